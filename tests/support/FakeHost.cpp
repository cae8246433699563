#include "support/FakeHost.h"

#include <cstring>

namespace {

std::unique_ptr<char[]> copyOf(const std::string &text) {
    std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

char *answer(EnvHttpContext *ctx, const char *getter, const Text &value) {
    std::unique_ptr<char[]> &buffer = ctx->answers[getter];
    buffer = value ? copyOf(*value) : nullptr;
    return buffer.get();
}

template <Text EnvHttpContext::*member>
char *textGetter(EnvHttpContext *ctx) {
    static const char key = 0; // one per member
    return answer(ctx, std::to_string(reinterpret_cast<uintptr_t>(&key)).c_str(), ctx->*member);
}

char **answerList(EnvHttpContext *ctx, const std::vector<std::string> *values) {
    if (!values) return nullptr;
    ctx->listTexts.clear();
    ctx->list.clear();
    for (const std::string &value : *values) ctx->list.push_back(ctx->listTexts.emplace_back(copyOf(value)).get());
    ctx->list.push_back(nullptr);
    return ctx->list.data();
}

const std::vector<std::string> *find(const Headers &headers, const char *name) {
    const auto found = headers.find(name);
    return found == headers.end() || found->second.empty() ? nullptr : &found->second;
}

Text firstOf(const Headers &headers, const char *name) {
    const auto *values = find(headers, name);
    return values ? Text(values->front()) : Text();
}

int change(Headers &headers, Changes &changes, const char *name, const char *value) {
    changes.emplace_back(name, value ? Text(value) : Text());
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
    using Ctx = EnvHttpContext;
    EnvCallBacks env{};
    env.version = TAV_ENV_VERSION;
    auto &request = env.http.request;
    request.getClientIpAddr = textGetter<&Ctx::clientIp>;
    request.getClientHostName = textGetter<&Ctx::clientHost>;
    request.getProtocolVersion = textGetter<&Ctx::protocolVersion>;
    request.getListeningPort = [](Ctx *ctx) { return ctx->listeningPort; };
    request.getVirtualHost = textGetter<&Ctx::host>;
    request.getLocalAddress = textGetter<&Ctx::localAddress>;
    request.getVirtualPort = [](Ctx *ctx) { return ctx->port; };
    request.getProtocol = textGetter<&Ctx::protocol>;
    request.getMethod = textGetter<&Ctx::method>;
    request.getPath = textGetter<&Ctx::path>;
    request.getQueryString = textGetter<&Ctx::query>;
    request.getAuthType = textGetter<&Ctx::authType>;
    request.getUserName = textGetter<&Ctx::userName>;
    request.getGroupNames = [](Ctx *ctx) { return answerList(ctx, ctx->groups ? &*ctx->groups : nullptr); };
    request.getClientCertificate = textGetter<&Ctx::clientCertificate>;
    request.getSSLCipherSuite = textGetter<&Ctx::sslCipherSuite>;
    request.getSSLSessionId = textGetter<&Ctx::sslSessionId>;
    request.getHeaderValue = [](Ctx *ctx, char *name) { return answer(ctx, "header", firstOf(ctx->headers, name)); };
    request.setHeaderValue = [](Ctx *ctx, char *name, char *value) { return change(ctx->headers, ctx->headersSet, name, value); };
    request.getHeaderValues = [](Ctx *ctx, char *name) { return answerList(ctx, find(ctx->headers, name)); };
    request.getCookieValue = [](Ctx *ctx, char *name) {
        const auto found = ctx->cookies.find(name);
        return answer(ctx, "cookie", found == ctx->cookies.end() ? Text() : Text(found->second));
    };
    request.resume = [](Ctx *ctx) {
        ctx->resumes++;
        return ctx->resumeResult;
    };
    auto &response = env.http.response;
    response.getResponseCode = [](Ctx *ctx) { return ctx->responseCode; };
    response.getHeaderValue = [](Ctx *ctx, char *name) { return answer(ctx, "response", firstOf(ctx->responseHeaders, name)); };
    response.getHeaderValues = [](Ctx *ctx, char *name) { return answerList(ctx, find(ctx->responseHeaders, name)); };
    response.setHeaderValue = [](Ctx *ctx, char *name, char *value) {
        return change(ctx->responseHeaders, ctx->responseHeadersSet, name, value);
    };
    response.getCookieValue = [](Ctx *, char *) -> char * { return nullptr; };
    response.setCookieValue = [](Ctx *ctx, char *name, char *value) {
        ctx->responseCookiesSet.emplace_back(name, value ? Text(value) : Text());
        return 0;
    };
    return env;
}
