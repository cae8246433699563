// A request on the shop through a host that answers anything: nothing, empty texts, huge ones. The input chooses every answer and every
// step of the request.
#include <array>
#include <vector>

#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "tav/tavRecord.h"

namespace {

const std::vector<std::string> TEXTS = fuzzPieces(
    "http|https|ftp|GET|shop.example.com|SHOP.EXAMPLE.COM|other|/shop/x.jsp|/shop/secret|/shop/old|/admin/a|"
    "/shop/a;jsessionid=x:clone1|/shop/;jsessionid|/shop;JSESSIONID=|clone1|id:clone1|id:nobody:clone2:|:::|yes|10.0.0.1|10.9.9.9|"
    "p1:clone1;p2:clone2|;;:;|p1:clone1|1|SHOPSESSION=id:clone7; Path=/|JSESSIONID=id;|=|SHOPSESSION|%s%n%d|a=b&c=d|&&=|\xff\xfe|\n\r\t",
    '|');

Text anyText(FuzzInput &input) {
    const unsigned choice = input.pick(256);
    if (choice < 40) return {};
    if (choice < 60) return "";
    if (choice < 64) return std::string(input.pick(2) ? 70000 : 3000, choice & 1 ? 'a' : '/');
    if (choice < 120) return input.take(input.pick(64)).c_str();
    return TEXTS[choice % TEXTS.size()];
}

int anyNumber(FuzzInput &input) {
    constexpr int NUMBERS[] = {80, 8080, 81, 0, -1, 2147483647, -2147483647 - 1, 9080};
    return NUMBERS[input.pick(8)];
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
    const EnvCallBacks usual = shop.tav->env;
    thin(shop.tav->env, input.pick(32));
    {
        EnvHttpContext request;
        request.anyText = [&] { return anyText(input); };
        request.anyNumber = [&] { return anyNumber(input); };
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
