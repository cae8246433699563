// The request and response members of a scenario line.
#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "decision/Request.h"
#include "support/Fault.h"

namespace tavctl {

EnvHttpContext requestFromJson(const json_t *members) try {
    EnvHttpContext request;
    tavhost::readRequest(members, request);
    return request;
} catch (const tavhost::RequestFault &fault) {
    throw Fault(fault.what());
}

void responseFromJson(const json_t *members, EnvHttpContext &request) try {
    if (!json_is_object(members)) throw Fault(fmt::format("\"response\" must be an object, not {}", jsonTypeName(members)));
    refuseOtherMembers(members, "response", {"status", "headers"});
    const json_t *status = json_object_get(members, "status");
    const json_t *headers = json_object_get(members, "headers");
    request.responseCode = status ? tavhost::integerOf("status", status) : 200;
    request.responseHeaders.clear();
    if (headers) tavhost::readHeaders(headers, request.responseHeaders);
} catch (const tavhost::RequestFault &fault) {
    throw Fault(fault.what());
}

void refuseOtherMembers(const json_t *object, const char *where, const std::vector<std::string_view> &names) {
    forEachMember(object, [&](std::string_view key, const json_t *) {
        if (std::find(names.begin(), names.end(), key) == names.end()) throw Fault(fmt::format("unknown {} member \"{}\"", where, key));
    });
}

} // namespace tavctl
