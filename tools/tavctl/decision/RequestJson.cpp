// The request and response members of a scenario line.
#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "decision/Request.h"
#include "support/Fault.h"

namespace tavctl {

namespace {

struct TextMember {
    std::string_view name;
    Text EnvHttpContext::*field;
};

constexpr TextMember TEXT_MEMBERS[] = {
    {"method", &EnvHttpContext::method},
    {"protocol", &EnvHttpContext::protocol},
    {"protocolVersion", &EnvHttpContext::protocolVersion},
    {"host", &EnvHttpContext::host},
    {"path", &EnvHttpContext::path},
    {"query", &EnvHttpContext::query},
    {"clientIp", &EnvHttpContext::clientIp},
    {"clientHost", &EnvHttpContext::clientHost},
    {"localAddress", &EnvHttpContext::localAddress},
    {"authType", &EnvHttpContext::authType},
    {"userName", &EnvHttpContext::userName},
    {"clientCertificate", &EnvHttpContext::clientCertificate},
    {"sslCipherSuite", &EnvHttpContext::sslCipherSuite},
    {"sslSessionId", &EnvHttpContext::sslSessionId},
};

[[noreturn]] void wrongType(std::string_view member, const char *wanted, const json_t *value) {
    throw Fault(fmt::format("\"{}\" must be {}, not {}", member, wanted, jsonTypeName(value)));
}

int integer(std::string_view member, const json_t *value) {
    if (!json_is_integer(value)) wrongType(member, "an integer", value);
    const json_int_t number = json_integer_value(value);
    if (number < -1 || number > 65535) throw Fault(fmt::format("\"{}\" must lie between -1 and 65535", member));
    return static_cast<int>(number);
}

void requireObject(std::string_view member, const json_t *value) {
    if (!json_is_object(value)) wrongType(member, "an object", value);
}

std::vector<std::string> textList(std::string_view member, const json_t *value) {
    if (!json_is_array(value)) wrongType(member, "a list of texts", value);
    std::vector<std::string> list;
    for (size_t i = 0; i < json_array_size(value); i++) {
        const json_t *element = json_array_get(value, i);
        if (!json_is_string(element)) wrongType(member, "a list of texts", element);
        list.emplace_back(json_string_value(element));
    }
    return list;
}

// Each value one text or a list of texts; null: the header is absent.
void readHeaders(const json_t *headers, Headers &result) {
    requireObject("headers", headers);
    for (void *it = json_object_iter(const_cast<json_t *>(headers)); it; it = json_object_iter_next(const_cast<json_t *>(headers), it)) {
        const char *name = json_object_iter_key(it);
        const json_t *value = json_object_iter_value(it);
        if (json_is_null(value)) continue;
        std::vector<std::string> &values = result[name];
        if (json_is_string(value)) {
            values.emplace_back(json_string_value(value));
        } else {
            for (std::string &text : textList(name, value)) values.push_back(std::move(text));
        }
    }
}

void readCookies(const json_t *cookies, EnvHttpContext &request) {
    requireObject("cookies", cookies);
    for (void *it = json_object_iter(const_cast<json_t *>(cookies)); it; it = json_object_iter_next(const_cast<json_t *>(cookies), it)) {
        const json_t *value = json_object_iter_value(it);
        if (json_is_null(value)) continue;
        if (!json_is_string(value)) wrongType(json_object_iter_key(it), "a text or null", value);
        request.cookies[json_object_iter_key(it)] = json_string_value(value);
    }
}

bool readText(std::string_view name, const json_t *value, EnvHttpContext &request) {
    const auto *member = std::find_if(std::begin(TEXT_MEMBERS), std::end(TEXT_MEMBERS), [&](const auto &row) { return row.name == name; });
    if (member == std::end(TEXT_MEMBERS)) return false;
    if (!json_is_string(value) && !json_is_null(value)) wrongType(name, "a text or null", value);
    request.*(member->field) = json_is_string(value) ? Text(json_string_value(value)) : Text();
    return true;
}

void readMember(std::string_view name, const json_t *value, EnvHttpContext &request) {
    if (readText(name, value, request)) return;
    if (name == "port") {
        request.port = integer(name, value);
    } else if (name == "listeningPort") {
        request.listeningPort = integer(name, value);
    } else if (name == "headers") {
        readHeaders(value, request.headers);
    } else if (name == "cookies") {
        readCookies(value, request);
    } else if (name == "groups") {
        if (!json_is_null(value)) request.groups = textList(name, value);
    } else {
        throw Fault(fmt::format("unknown request member \"{}\"", name));
    }
}

} // namespace

EnvHttpContext requestFromJson(const json_t *members) {
    requireObject("request", members);
    EnvHttpContext request;
    json_t *object = const_cast<json_t *>(members);
    for (void *it = json_object_iter(object); it; it = json_object_iter_next(object, it))
        readMember(json_object_iter_key(it), json_object_iter_value(it), request);
    if (!json_object_get(members, "port") && request.protocol == "https") request.port = 443;
    if (!json_object_get(members, "listeningPort")) request.listeningPort = request.port;
    return request;
}

void responseFromJson(const json_t *members, EnvHttpContext &request) {
    requireObject("response", members);
    refuseOtherMembers(members, "response", {"status", "headers"});
    const json_t *status = json_object_get(members, "status");
    const json_t *headers = json_object_get(members, "headers");
    request.responseCode = status ? integer("status", status) : 200;
    request.responseHeaders.clear();
    if (headers) readHeaders(headers, request.responseHeaders);
}

void refuseOtherMembers(const json_t *object, const char *where, const std::vector<std::string_view> &names) {
    json_t *json = const_cast<json_t *>(object);
    for (void *it = json_object_iter(json); it; it = json_object_iter_next(json, it)) {
        const std::string_view key = json_object_iter_key(it);
        if (std::find(names.begin(), names.end(), key) == names.end()) throw Fault(fmt::format("unknown {} member \"{}\"", where, key));
    }
}

} // namespace tavctl
