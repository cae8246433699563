// Requests from scenario members and from command-line options.
#ifndef TAVCTL_REQUEST_H
#define TAVCTL_REQUEST_H

#include <string>
#include <vector>

#include "engine/ScenarioHost.h"

namespace CLI {
class App;
}

namespace tavctl {

// From the request members of a scenario (docs/scenario-format.md). Throws Fault with the reason alone.
EnvHttpContext requestFromJson(const json_t *members);
// Fills the response side. Throws Fault with the reason alone.
void responseFromJson(const json_t *members, EnvHttpContext &request);
// Throws Fault with the reason alone when `object` has a member that is not in `names`.
void refuseOtherMembers(const json_t *object, const char *where, const std::vector<std::string_view> &names);

// The options of one request on the command line.
struct RequestOptions {
    std::string method = "GET";
    std::vector<std::string> headers; // "Name: value"
    std::vector<std::string> cookies; // "name=value; name=value"
    std::string clientIp = "127.0.0.1";

    void addTo(CLI::App &command);
    // `url`: "http://host:port/path?query" or a path alone. A "Host" header decides over the URL's host and port. Throws Fault.
    EnvHttpContext request(const std::string &url) const;
};

// "GET http://host:80/path?query"
std::string requestTitle(const EnvHttpContext &request);

} // namespace tavctl

#endif
