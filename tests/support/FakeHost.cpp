#include "support/FakeHost.h"

#include <atomic>
#include <cstring>

namespace {

using Ctx = EnvHttpContext;

void fill(HostText &buffer, const Ctx *ctx, const std::string *value) {
    const Text any = ctx->anyText ? ctx->anyText() : Text();
    if (ctx->anyText) value = any ? &*any : nullptr;
    buffer.reset(value ? strdup(value->c_str()) : nullptr);
}

int number(const Ctx *ctx, int own) { return ctx->anyNumber ? ctx->anyNumber() : own; }

enum : size_t { HEADER, COOKIE, RESPONSE_HEADER, RESPONSE_COOKIE, MEMBERS };
std::atomic<size_t> getters = MEMBERS;

char *answer(Ctx *ctx, size_t getter, const std::string *value) {
    fill(ctx->answers.at(getter), ctx, value);
    return ctx->answers[getter].get();
}

template <Text Ctx::*member>
char *text(Ctx *ctx) {
    static const size_t own = getters++;
    return answer(ctx, own, ctx->*member ? &*(ctx->*member) : nullptr);
}

char **answerList(Ctx *ctx, const std::vector<std::string> *values) {
    const size_t count = ctx->anyNumber ? static_cast<unsigned>(ctx->anyNumber()) % ctx->list.size() : values ? values->size() + 1 : 0;
    if (count == 0) return nullptr;
    for (size_t i = 0; i + 1 < count; i++) {
        fill(ctx->listTexts.at(i), ctx, ctx->anyText ? nullptr : &(*values)[i]);
        ctx->list[i] = ctx->listTexts[i].get();
    }
    ctx->list[count - 1] = nullptr;
    return ctx->list.data();
}

// Nobody asks for what has no name.
const char *checked(const char *name) { return *name ? name : (abort(), nullptr); }

const std::vector<std::string> *find(const Headers &headers, const char *name) {
    const auto found = headers.find(checked(name));
    return found == headers.end() || found->second.empty() ? nullptr : &found->second;
}

const std::string *firstOf(const Headers &headers, const char *name) {
    const auto *values = find(headers, name);
    return values ? values->data() : nullptr;
}

Text textOrNone(const char *value) { return value ? Text(value) : Text(); }

int change(const Ctx *ctx, Headers &headers, Changes &changes, const char *name, const char *value) {
    if (ctx->anyNumber) return ctx->anyNumber();
    changes.emplace_back(checked(name), textOrNone(value));
    headers.erase(name);
    if (value) headers[name] = {value};
    return 0;
}

} // namespace

Text EnvHttpContext::lastSet(const std::string &name) const {
    for (auto it = headersSet.rbegin(); it != headersSet.rend(); ++it)
        if (it->first == name) return it->second;
    return "(unset)";
}

EnvCallBacks fakeHostCallBacks() {
    EnvCallBacks env{};
    env.version = TAV_ENV_VERSION;
    auto &request = env.http.request;
    request.getClientIpAddr = text<&Ctx::clientIp>;
    request.getClientHostName = text<&Ctx::clientHost>;
    request.getProtocolVersion = text<&Ctx::protocolVersion>;
    request.getListeningPort = [](Ctx *ctx) { return number(ctx, ctx->listeningPort); };
    request.getVirtualHost = text<&Ctx::host>;
    request.getLocalAddress = text<&Ctx::localAddress>;
    request.getVirtualPort = [](Ctx *ctx) { return number(ctx, ctx->port); };
    request.getProtocol = text<&Ctx::protocol>;
    request.getMethod = text<&Ctx::method>;
    request.getPath = text<&Ctx::path>;
    request.getQueryString = text<&Ctx::query>;
    request.getAuthType = text<&Ctx::authType>;
    request.getUserName = text<&Ctx::userName>;
    request.getGroupNames = [](Ctx *ctx) { return answerList(ctx, ctx->groups ? &*ctx->groups : nullptr); };
    request.getClientCertificate = text<&Ctx::clientCertificate>;
    request.getSSLCipherSuite = text<&Ctx::sslCipherSuite>;
    request.getSSLSessionId = text<&Ctx::sslSessionId>;
    request.getHeaderValue = [](Ctx *ctx, char *name) { return answer(ctx, HEADER, firstOf(ctx->headers, name)); };
    request.setHeaderValue = [](Ctx *ctx, char *name, char *value) { return change(ctx, ctx->headers, ctx->headersSet, name, value); };
    request.getHeaderValues = [](Ctx *ctx, char *name) { return answerList(ctx, find(ctx->headers, name)); };
    request.getCookieValue = [](Ctx *ctx, char *name) {
        const auto found = ctx->cookies.find(checked(name));
        return answer(ctx, COOKIE, found == ctx->cookies.end() ? nullptr : &found->second);
    };
    request.resume = [](Ctx *ctx) {
        ctx->resumes++;
        return number(ctx, ctx->resumeResult);
    };
    auto &response = env.http.response;
    response.getResponseCode = [](Ctx *ctx) { return number(ctx, ctx->responseCode); };
    response.getHeaderValue = [](Ctx *ctx, char *name) { return answer(ctx, RESPONSE_HEADER, firstOf(ctx->responseHeaders, name)); };
    response.getHeaderValues = [](Ctx *ctx, char *name) { return answerList(ctx, find(ctx->responseHeaders, name)); };
    response.setHeaderValue = [](Ctx *ctx, char *name, char *value) {
        return change(ctx, ctx->responseHeaders, ctx->responseHeadersSet, name, value);
    };
    response.getCookieValue = [](Ctx *ctx, char *) { return answer(ctx, RESPONSE_COOKIE, nullptr); };
    response.setCookieValue = [](Ctx *ctx, char *name, char *value) {
        ctx->responseCookiesSet.emplace_back(checked(name), textOrNone(value));
        return number(ctx, 0);
    };
    return env;
}
