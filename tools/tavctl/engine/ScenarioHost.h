// The host that the library sees here: each request is a record, and the callback table reads and writes it.
//
// Header names are found without regard to case, cookie names exactly. Whatever a getter gave stays valid as long as the record: a header
// that is set again retires its old value instead of freeing it.
#ifndef TAVCTL_SCENARIOHOST_H
#define TAVCTL_SCENARIOHOST_H

#include <strings.h>
#include <tav/env.h>

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/Json.h"

namespace tavctl {

using Text = std::optional<std::string>; // none: the callback returns NULL

struct IgnoreCase {
    bool operator()(const std::string &a, const std::string &b) const { return strcasecmp(a.c_str(), b.c_str()) < 0; }
};
using Headers = std::map<std::string, std::vector<std::string>, IgnoreCase>;

// What the library set (or removed: none), in the order of the first time.
class Changes {
public:
    void set(const std::string &name, Text value);
    const std::vector<std::pair<std::string, Text>> &list() const { return list_; }
    bool contains(const std::string &name) const;
    json_t *toJson() const; // returns new
    void clear() { list_.clear(); }

private:
    std::vector<std::pair<std::string, Text>> list_;
};

} // namespace tavctl

struct EnvHttpContext {
    tavctl::Text method = "GET", protocol = "http", protocolVersion = "HTTP/1.1", host = "localhost", path = "/", query;
    tavctl::Text clientIp = "127.0.0.1", clientHost, localAddress, authType, userName;
    tavctl::Text clientCertificate, sslCipherSuite, sslSessionId;
    int port = 80, listeningPort = 80;
    std::optional<std::vector<std::string>> groups;
    tavctl::Headers headers;
    std::map<std::string, std::string> cookies;

    int responseCode = 200;
    tavctl::Headers responseHeaders;

    tavctl::Changes headersSet, responseHeadersSet, responseCookiesSet;

    std::deque<std::vector<std::string>> retired; // values of headers that were set again
    std::deque<std::vector<char *>> lists;        // what the getters of lists gave
};

namespace tavctl {

// Every slot of http.request and http.response is set; nothing else.
EnvCallBacks scenarioHostCallBacks();

} // namespace tavctl

#endif
