#include "RequestMembers.h"

#include <algorithm>

namespace tavhost {

namespace {

struct TextMember {
    const char *name;
    Text RequestMembers::*field;
};

constexpr TextMember TEXT_MEMBERS[] = {
    {"method", &RequestMembers::method},
    {"protocol", &RequestMembers::protocol},
    {"protocolVersion", &RequestMembers::protocolVersion},
    {"host", &RequestMembers::host},
    {"path", &RequestMembers::path},
    {"query", &RequestMembers::query},
    {"clientIp", &RequestMembers::clientIp},
    {"clientHost", &RequestMembers::clientHost},
    {"localAddress", &RequestMembers::localAddress},
    {"authType", &RequestMembers::authType},
    {"userName", &RequestMembers::userName},
    {"clientCertificate", &RequestMembers::clientCertificate},
    {"sslCipherSuite", &RequestMembers::sslCipherSuite},
    {"sslSessionId", &RequestMembers::sslSessionId},
};

std::string quoted(std::string_view member) { return "\"" + std::string(member) + "\""; }

[[noreturn]] void wrongType(std::string_view member, const char *wanted, const json_t *value) {
    throw RequestFault(quoted(member) + " must be " + wanted + ", not " + jsonTypeName(value));
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

void readCookies(const json_t *cookies, RequestMembers &request) {
    requireObject("cookies", cookies);
    forEachMember(cookies, [&](const char *name, const json_t *value) {
        if (json_is_null(value)) return;
        if (!json_is_string(value)) wrongType(name, "a text or null", value);
        request.cookies[name] = json_string_value(value);
    });
}

bool readText(std::string_view name, const json_t *value, RequestMembers &request) {
    const auto *member = std::find_if(std::begin(TEXT_MEMBERS), std::end(TEXT_MEMBERS), [&](const auto &row) { return row.name == name; });
    if (member == std::end(TEXT_MEMBERS)) return false;
    if (!json_is_string(value) && !json_is_null(value)) wrongType(name, "a text or null", value);
    request.*(member->field) = json_is_string(value) ? Text(json_string_value(value)) : Text();
    return true;
}

void readMember(std::string_view name, const json_t *value, RequestMembers &request) {
    if (readText(name, value, request)) return;
    const bool none = json_is_null(value); // the host's callback gives NULL or 0
    if (name == "port") {
        request.port = none ? 0 : integerOf(name, value);
    } else if (name == "listeningPort") {
        request.listeningPort = none ? 0 : integerOf(name, value);
    } else if (name == "headers") {
        if (!none) readHeaders(value, request.headers);
    } else if (name == "cookies") {
        if (!none) readCookies(value, request);
    } else if (name == "groups") {
        if (!none) request.groups = textList(name, value);
    } else {
        throw RequestFault("unknown request member " + quoted(name));
    }
}

json_t *listJson(const std::vector<std::string> &texts) {
    json_t *list = json_array();
    for (const std::string &text : texts) json_array_append_new(list, textJson(text.c_str()));
    return list;
}

} // namespace

// ---- requests ----

void readRequest(const json_t *members, RequestMembers &request) {
    requireObject("request", members);
    forEachMember(members, [&](const char *name, const json_t *value) { readMember(name, value, request); });
    if (!json_object_get(members, "port") && request.protocol == "https") request.port = 443;
    if (!json_object_get(members, "listeningPort")) request.listeningPort = request.port;
}

json_t *requestToJson(const RequestMembers &request) {
    json_t *json = json_object(), *headers = json_object(), *cookies = json_object();
    for (const TextMember &member : TEXT_MEMBERS) json_object_set_new(json, member.name, textJson(request.*(member.field)));
    json_object_set_new(json, "port", json_integer(request.port));
    json_object_set_new(json, "listeningPort", json_integer(request.listeningPort));
    for (const auto &[name, values] : request.headers) json_object_set_new(headers, name.c_str(), listJson(values));
    for (const auto &[name, value] : request.cookies) json_object_set_new(cookies, name.c_str(), textJson(value.c_str()));
    json_object_set_new(json, "headers", headers);
    json_object_set_new(json, "cookies", cookies);
    json_object_set_new(json, "groups", request.groups ? listJson(*request.groups) : json_null());
    return json;
}

int integerOf(std::string_view member, const json_t *value) {
    if (!json_is_integer(value)) wrongType(member, "an integer", value);
    const json_int_t number = json_integer_value(value);
    if (number < -1 || number > 65535) throw RequestFault(quoted(member) + " must lie between -1 and 65535");
    return static_cast<int>(number);
}

void readHeaders(const json_t *headers, Headers &result) {
    requireObject("headers", headers);
    forEachMember(headers, [&](const char *name, const json_t *value) {
        if (json_is_null(value)) return;
        std::vector<std::string> &values = result[name];
        if (json_is_string(value)) return values.emplace_back(json_string_value(value)), void();
        for (std::string &text : textList(name, value)) values.push_back(std::move(text));
    });
}

} // namespace tavhost
