// A host for tests: one request is a plain record, and the callback table reads and writes it.
//
// Every getter answers from a buffer of its own that it gives up at its next call, as a host may: a caller that keeps a pointer for too
// long is seen by the address sanitizer. Header names are found without regard to case, cookie names exactly. Getters take memory with
// malloc only, so that a test may let all of the library's own fail.
#ifndef SUPPORT_FAKEHOST_H
#define SUPPORT_FAKEHOST_H

#include <strings.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tav/env.h>

struct IgnoreCase {
    using is_transparent = void;
    static const char *of(const std::string &text) { return text.c_str(); }
    static const char *of(const char *text) { return text; }
    bool operator()(const auto &a, const auto &b) const { return strcasecmp(of(a), of(b)) < 0; }
};

using Text = std::optional<std::string>; // nullopt: the host answers NULL
using Headers = std::map<std::string, std::vector<std::string>, IgnoreCase>;
using Changes = std::vector<std::pair<std::string, Text>>; // in order; nullopt: removed

struct FreeText {
    void operator()(char *text) const { free(text); }
};
using HostText = std::unique_ptr<char, FreeText>;

struct EnvHttpContext {
    Text method = "GET", protocol = "http", protocolVersion = "HTTP/1.1", host = "localhost", path = "/", query;
    Text clientIp = "127.0.0.1", clientHost, localAddress, authType, userName, clientCertificate, sslCipherSuite, sslSessionId;
    int port = 80, listeningPort = 80;
    std::optional<std::vector<std::string>> groups;
    Headers headers;
    std::map<std::string, std::string, std::less<>> cookies;
    int responseCode = 200;
    Headers responseHeaders;

    // A host that answers anything: what these say, at every single call, in place of all of the above.
    std::function<Text()> anyText;
    std::function<int()> anyNumber;

    Changes headersSet, responseHeadersSet, responseCookiesSet; // what the library did
    int resumeResult = 0, resumes = 0;

    Text lastSet(const std::string &name) const; // what request header `name` was last set to; "(unset)" when it never was

    std::array<HostText, 20> answers; // by getter
    std::array<HostText, 8> listTexts;
    std::array<char *, 9> list{};
};

// Every slot of http.request and http.response is set; nothing else.
EnvCallBacks fakeHostCallBacks();

#endif
