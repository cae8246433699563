#include "engine/ScenarioHost.h"

#include <algorithm>

namespace tavctl {

namespace {

using Request = EnvHttpContext;

char *give(const Text &text) { return text ? const_cast<char *>(text->c_str()) : nullptr; }

template <Text tavhost::RequestMembers::*member>
char *textOf(Request *request) {
    return give(request->*member);
}

char **giveList(Request *request, const std::vector<std::string> *values) {
    if (!values) return nullptr;
    std::vector<char *> &list = request->lists.emplace_back();
    for (const std::string &value : *values) list.push_back(const_cast<char *>(value.c_str()));
    list.push_back(nullptr);
    return list.data();
}

const std::vector<std::string> *find(const Headers &headers, const char *name) {
    const auto found = headers.find(name);
    return found == headers.end() || found->second.empty() ? nullptr : &found->second;
}

char *firstOf(const Headers &headers, const char *name) {
    const std::vector<std::string> *values = find(headers, name);
    return values ? const_cast<char *>(values->front().c_str()) : nullptr;
}

int change(Request *request, Headers &headers, Changes &changes, const char *name, const char *value) {
    const Text text = value ? Text(value) : Text();
    changes.set(name, text);
    std::vector<std::string> &values = headers[name];
    request->retired.push_back(std::move(values));
    values.clear();
    if (text) values.push_back(*text);
    return 0;
}

void fillRequest(EnvCallBacks &env) {
    auto &slots = env.http.request;
    slots.getClientIpAddr = textOf<&Request::clientIp>;
    slots.getClientHostName = textOf<&Request::clientHost>;
    slots.getProtocolVersion = textOf<&Request::protocolVersion>;
    slots.getListeningPort = [](Request *request) { return request->listeningPort; };
    slots.getVirtualHost = textOf<&Request::host>;
    slots.getLocalAddress = textOf<&Request::localAddress>;
    slots.getVirtualPort = [](Request *request) { return request->port; };
    slots.getProtocol = textOf<&Request::protocol>;
    slots.getMethod = textOf<&Request::method>;
    slots.getPath = textOf<&Request::path>;
    slots.getQueryString = textOf<&Request::query>;
    slots.getAuthType = textOf<&Request::authType>;
    slots.getUserName = textOf<&Request::userName>;
    slots.getGroupNames = [](Request *request) { return giveList(request, request->groups ? &*request->groups : nullptr); };
    slots.getClientCertificate = textOf<&Request::clientCertificate>;
    slots.getSSLCipherSuite = textOf<&Request::sslCipherSuite>;
    slots.getSSLSessionId = textOf<&Request::sslSessionId>;
    slots.getHeaderValue = [](Request *request, char *name) { return firstOf(request->headers, name); };
    slots.setHeaderValue = [](Request *request, char *name, char *value) {
        return change(request, request->headers, request->headersSet, name, value);
    };
    slots.getHeaderValues = [](Request *request, char *name) { return giveList(request, find(request->headers, name)); };
    slots.getCookieValue = [](Request *request, char *name) -> char * {
        const auto found = request->cookies.find(name);
        return found == request->cookies.end() ? nullptr : const_cast<char *>(found->second.c_str());
    };
    slots.resume = [](Request *) { return 0; };
}

// The cookie of that name among the response's "Set-Cookie" headers, without its attributes.
char *responseCookie(Request *request, char *name) {
    const std::vector<std::string> *values = find(request->responseHeaders, "Set-Cookie");
    const std::string start = std::string(name) + "=";
    for (size_t i = 0; values && i < values->size(); i++) {
        const std::string &value = (*values)[i];
        if (value.compare(0, start.size(), start) != 0) continue;
        std::vector<std::string> &kept = request->retired.emplace_back();
        kept.push_back(value.substr(start.size(), value.find(';') - start.size()));
        return const_cast<char *>(kept.front().c_str());
    }
    return nullptr;
}

void fillResponse(EnvCallBacks &env) {
    auto &slots = env.http.response;
    slots.getResponseCode = [](Request *request) { return request->responseCode; };
    slots.getHeaderValue = [](Request *request, char *name) { return firstOf(request->responseHeaders, name); };
    slots.getHeaderValues = [](Request *request, char *name) { return giveList(request, find(request->responseHeaders, name)); };
    slots.setHeaderValue = [](Request *request, char *name, char *value) {
        return change(request, request->responseHeaders, request->responseHeadersSet, name, value);
    };
    slots.getCookieValue = responseCookie;
    slots.setCookieValue = [](Request *request, char *name, char *value) {
        request->responseCookiesSet.set(name, value ? Text(value) : Text());
        return 0;
    };
}

} // namespace

void Changes::set(const std::string &name, Text value) {
    const auto found = std::find_if(list_.begin(), list_.end(), [&](const auto &change) { return change.first == name; });
    if (found == list_.end())
        list_.emplace_back(name, std::move(value));
    else
        found->second = std::move(value);
}

bool Changes::contains(const std::string &name) const {
    return std::any_of(list_.begin(), list_.end(), [&](const auto &change) { return change.first == name; });
}

json_t *Changes::toJson() const {
    json_t *json = json_object();
    for (const auto &[name, value] : list_) json_object_set_new(json, name.c_str(), jsonText(value));
    return json;
}

EnvCallBacks scenarioHostCallBacks() {
    EnvCallBacks env{};
    env.version = TAV_ENV_VERSION;
    fillRequest(env);
    fillResponse(env);
    return env;
}

} // namespace tavctl
