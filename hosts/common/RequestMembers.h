// A request as a record and as a JSON object; the object's members are told in docs/scenario-format.md.
#ifndef TAV_HOSTS_REQUESTMEMBERS_H
#define TAV_HOSTS_REQUESTMEMBERS_H

#include <jansson.h>
#include <strings.h>

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "JsonValue.h"

namespace tavhost {

using Text = std::optional<std::string>; // none: the request has none

struct IgnoreCase {
    bool operator()(const std::string &a, const std::string &b) const { return strcasecmp(a.c_str(), b.c_str()) < 0; }
};
using Headers = std::map<std::string, std::vector<std::string>, IgnoreCase>;

struct RequestMembers {
    Text method = "GET", protocol = "http", protocolVersion = "HTTP/1.1", host = "localhost", path = "/", query;
    Text clientIp = "127.0.0.1", clientHost, localAddress, authType, userName;
    Text clientCertificate, sslCipherSuite, sslSessionId;
    int port = 80, listeningPort = 80;
    std::optional<std::vector<std::string>> groups;
    Headers headers;
    std::map<std::string, std::string> cookies;
};

// Why an object is no request, in words.
class RequestFault : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Throws RequestFault.
void readRequest(const json_t *members, RequestMembers &request);
// Every member, null for what the request does not have. Returns new.
json_t *requestToJson(const RequestMembers &request);

// ---- for other objects ----

// The value of `member` as an integer between -1 and 65535. Throws RequestFault.
int integerOf(std::string_view member, const json_t *value);
// Each value one text or a list of texts; null: the header is absent. Throws RequestFault.
void readHeaders(const json_t *headers, Headers &result);

} // namespace tavhost

#endif
