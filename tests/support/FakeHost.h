// A host for tests: one request is a plain record, and the callback table reads and writes it.
//
// Every getter answers from a buffer of its own that it gives up at its next call, as a host may: a caller that keeps a pointer for too
// long is seen by the address sanitizer. Header names are found without regard to case, cookie names exactly.
#ifndef SUPPORT_FAKEHOST_H
#define SUPPORT_FAKEHOST_H

#include <strings.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tav/env.h>

struct IgnoreCase {
    bool operator()(const std::string &a, const std::string &b) const { return strcasecmp(a.c_str(), b.c_str()) < 0; }
};

using Text = std::optional<std::string>; // nullopt: the host answers NULL
using Headers = std::map<std::string, std::vector<std::string>, IgnoreCase>;
using Changes = std::vector<std::pair<std::string, Text>>; // in order; nullopt: removed

struct EnvHttpContext {
    Text method = "GET", protocol = "http", protocolVersion = "HTTP/1.1", host = "localhost", path = "/", query;
    Text clientIp = "127.0.0.1", clientHost, localAddress, authType, userName, clientCertificate, sslCipherSuite, sslSessionId;
    int port = 80, listeningPort = 80;
    std::optional<std::vector<std::string>> groups;
    Headers headers;
    std::map<std::string, std::string> cookies;
    int responseCode = 200;
    Headers responseHeaders;

    Changes headersSet, responseHeadersSet, responseCookiesSet; // what the library did
    int resumeResult = 0, resumes = 0;

    Text lastSet(const std::string &name) const; // what request header `name` was last set to; "(unset)" when it never was

    std::map<std::string, std::unique_ptr<char[]>> answers; // by getter
    std::vector<std::unique_ptr<char[]>> listTexts;
    std::vector<char *> list;
};

// Every slot of http.request and http.response is set; nothing else.
EnvCallBacks fakeHostCallBacks();

#endif
