// A request on the shop through a host that answers anything: nothing, empty texts, huge ones, what the last call answered gone. The input
// chooses every answer and every step of the request.
#include <array>
#include <vector>

#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "tav/tavRecord.h"

namespace {

FuzzInput *answers; // of the request that runs

const std::vector<std::string> TEXTS = fuzzPieces(
    "http|https|ftp|GET|shop.example.com|SHOP.EXAMPLE.COM|other|/shop/x.jsp|/shop/secret|/shop/old|/admin/a|"
    "/shop/a;jsessionid=x:clone1|/shop/;jsessionid|/shop;JSESSIONID=|clone1|id:clone1|id:nobody:clone2:|:::|yes|10.0.0.1|10.9.9.9|"
    "p1:clone1;p2:clone2|;;:;|p1:clone1|1|SHOPSESSION=id:clone7; Path=/|JSESSIONID=id;|=|SHOPSESSION|%s%n%d|a=b&c=d|&&=|\xff\xfe|\n\r\t",
    '|');

// Each caller has a text of its own that goes at its next call.
char *answer(std::string &own) {
    const unsigned choice = answers->pick(256);
    if (choice < 40) return nullptr;
    if (choice < 60) {
        own.clear();
    } else if (choice < 64) {
        own.assign(answers->pick(2) ? 70000 : 3000, choice & 1 ? 'a' : '/');
    } else if (choice < 120) {
        own = std::string(answers->take(answers->pick(64)).c_str());
    } else {
        own = TEXTS[choice % TEXTS.size()];
    }
    own.shrink_to_fit();
    return own.data();
}

template <int slot>
char *text(EnvHttpContext *) {
    static std::string own;
    std::string().swap(own);
    return answer(own);
}
template <int slot>
char *named(EnvHttpContext *ctx, char *name) {
    FUZZ_CHECK(name && *name);
    return text<slot>(ctx);
}
template <int slot>
char **list(EnvHttpContext *) {
    static std::vector<std::string> own;
    static std::vector<char *> pointers;
    pointers.clear();
    own.assign(answers->pick(6), "");
    if (own.empty()) return nullptr;
    own.pop_back();
    for (std::string &each : own) {
        if (!answer(each)) each = "?";
        pointers.push_back(each.data());
    }
    pointers.push_back(nullptr);
    return pointers.data();
}
int number(EnvHttpContext *) {
    constexpr int NUMBERS[] = {80, 8080, 81, 0, -1, 2147483647, -2147483647 - 1, 9080};
    return NUMBERS[answers->pick(8)];
}
int take(EnvHttpContext *, char *name, char *) {
    FUZZ_CHECK(name && *name);
    return static_cast<int>(answers->pick(2)) - 1;
}

void hostile(EnvCallBacks &env) {
    auto &request = env.http.request;
    request.getClientIpAddr = text<0>;
    request.getClientHostName = text<1>;
    request.getProtocolVersion = text<2>;
    request.getListeningPort = number;
    request.getVirtualHost = text<3>;
    request.getLocalAddress = text<4>;
    request.getVirtualPort = number;
    request.getProtocol = text<5>;
    request.getMethod = text<6>;
    request.getPath = text<7>;
    request.getQueryString = text<8>;
    request.getAuthType = text<9>;
    request.getUserName = text<10>;
    request.getGroupNames = list<0>;
    request.getClientCertificate = text<11>;
    request.getSSLCipherSuite = text<12>;
    request.getSSLSessionId = text<13>;
    request.getHeaderValue = named<14>;
    request.setHeaderValue = take;
    request.getHeaderValues = [](EnvHttpContext *ctx, char *) { return list<1>(ctx); };
    request.getCookieValue = named<15>;
    request.resume = number;
    env.http.response.getResponseCode = number;
    env.http.response.getHeaderValue = named<16>;
    env.http.response.getHeaderValues = [](EnvHttpContext *ctx, char *) { return list<2>(ctx); };
    env.http.response.setHeaderValue = take;
    env.http.response.getCookieValue = named<17>;
    env.http.response.setCookieValue = take;
}

// Takes away slots that a host need not have.
void thin(EnvCallBacks &env, unsigned which) {
    auto &request = env.http.request;
    if (which & 1) env.http.response = {};
    if (which & 2) request.getHeaderValue = nullptr;
    if (which & 4) request.getQueryString = nullptr, request.getGroupNames = nullptr, request.getHeaderValues = nullptr;
    if (which & 8) env.http.response.setCookieValue = nullptr, env.http.response.getHeaderValues = nullptr;
    if (which & 16) request.getMethod = nullptr, request.getClientHostName = nullptr, request.getLocalAddress = nullptr;
}

void readAll(TavHttpContext *ctx) {
    tavHttpContextGetURL(ctx);
    tavHttpContextGetPath(ctx);
    tavHttpContextGetProtocol(ctx);
    tavHttpContextGetVirtualHost(ctx);
    tavHttpContextGetVirtualPort(ctx);
    tavHttpContextGetTargetEndpointServerName(ctx);
    tavHttpContextGetPerformedLoadBalancing(ctx);
    const shop::Decision decision = shop::decisionOf(ctx);
    FUZZ_CHECK(decision.action != REDIRECT || !decision.redirect.empty());
}

void step(TavHttpContext *ctx, FuzzInput &input) {
    static char message[] = "message %s";
    static void (*const steps[])(TavHttpContext *, FuzzInput &) = {
        [](TavHttpContext *its, FuzzInput &) { tavHttpContextShouldHandle(its); },
        [](TavHttpContext *its, FuzzInput &) { tavHttpContextGetTargetEndpoint(its); },
        [](TavHttpContext *its, FuzzInput &) { tavHttpContextWaitForRollout(its); },
        [](TavHttpContext *its, FuzzInput &) { tavHttpContextCancelRequest(its); },
        [](TavHttpContext *its, FuzzInput &in) { tavHttpContextSetSSLMapMode(its, static_cast<TavSSLMapMode>(in.pick(4))); },
        [](TavHttpContext *its, FuzzInput &) { readAll(its); },
        [](TavHttpContext *its, FuzzInput &) { tavHttpContextPerformResponseProcessing(its); },
        [](TavHttpContext *its, FuzzInput &in) {
            const auto state = static_cast<TavHttpContextState>(in.pick(21));
            tavHttpContextSetState(its, state, 1, in.pick(2) ? message : nullptr);
        },
    };
    steps[input.pick(std::size(steps))](ctx, input);
}

} // namespace

FUZZ_TARGET(fuzz_request) {
    FuzzShop &shop = FuzzShop::get();
    FuzzInput input(data, size);
    answers = &input;
    const EnvCallBacks usual = shop.tav->env;
    hostile(shop.tav->env);
    thin(shop.tav->env, input.pick(32));
    {
        EnvHttpContext request;
        std::array<TavHttpContext *, 3> contexts{};
        for (int i = 0; i < 60 && !input.empty(); i++) {
            TavHttpContext *&ctx = contexts[input.pick(3)];
            if (!ctx) {
                ctx = tavHttpContextObtain(shop.tav, &request);
            } else if (input.pick(12) == 11) {
                tavHttpContextRelease(ctx);
                ctx = nullptr;
            } else {
                step(ctx, input);
            }
        }
        for (TavHttpContext *ctx : contexts) tavHttpContextRelease(ctx);
    }
    shop.tav->env = usual;
    // Nobody is under way any more.
    const std::string dump = shop.dump();
    for (size_t at = 0; (at = dump.find("\"outstandingRequests\": ", at)) != std::string::npos; at++) FUZZ_CHECK(dump[at + 23] == '0');
    shop.reset();
    return 0;
}
