// Obtaining, reusing and releasing contexts, and the choice of the trace specification.
#include "edge/Site.h"
#include "tavUtil/tavMemory.h"

namespace {

class HttpContextLife : public Site {};

// Everything a request may leave behind.
void dirty(TavHttpContext *ctx) {
    tavHttpContextSetPermit(ctx, "2.0", TRUE);
    tavHttpContextSetReject(ctx, 404, "no mapping found");
    tavHttpContextSetRedirect(ctx, "http://else/");
    tavHttpContextSetApplicationName(ctx, "shop");
    tavHttpContextSetModuleName(ctx, std::string(3000, 'm').c_str()); // more than the context's own room
    tavHttpContextSetMatchedVHostName(ctx, "default");
    tavHttpContextSetContextRoot(ctx, "/shop");
    tavHttpContextSetAffinityPolicy(ctx, reinterpret_cast<HttpAffinityPolicy *>(ctx));
    tavHttpContextSetSSLMapMode(ctx, SSLOnLoad);
    tavHttpContextSetPerformedLoadBalancing(ctx, TRUE);
    tavHttpContextAddPrivateHeaders(ctx);
    tavHttpContextGetURL(ctx);
    tavHttpContextSetAffinityBreakReason(ctx, "gone");
    tavListAddTail(ctx->failedServerApps, ctx);
    ctx->configVersion = 7;
    ctx->requestMapped = ctx->waitedForRollout = TRUE;
    ctx->requestMappingResult = 1;
    ctx->serviceTime = ctx->serviceTimeStart = 7;
    ctx->failureCount = ctx->responseTimeouts = 3;
    tavHttpContextSetState(ctx, RESPONSE_SENT, 5, const_cast<char *>("done"));
}

void expectFresh(TavHttpContext *ctx) {
    EXPECT_TRUE(tavHttpContextGetState(ctx) == INITIAL && tavHttpContextGetSubState(ctx) == 0 && !tavHttpContextGetMessage(ctx));
    EXPECT_TRUE(tavHttpContextGetAction(ctx) == NONE && tavHttpContextGetErrorCode(ctx) == 0);
    for (const char *text : {tavHttpContextGetErrorMessage(ctx), tavHttpContextGetRedirectURL(ctx), tavHttpContextGetApplicationName(ctx),
                             tavHttpContextGetModuleName(ctx), tavHttpContextGetEditionName(ctx), tavHttpContextGetMatchedVHostName(ctx),
                             tavHttpContextGetContextRoot(ctx), tavHttpContextGetRuleExpression(ctx),
                             tavHttpContextGetAffinityBreakReason(ctx), static_cast<const char *>(ctx->url)})
        EXPECT_EQ(text, nullptr) << text;
    EXPECT_EQ(tavHttpContextGetAffinityPolicy(ctx), nullptr);
    EXPECT_EQ(tavHttpContextGetSSLMapMode(ctx), NullMapMode);
    EXPECT_TRUE(!tavHttpContextGetMyTargetEndPoint(ctx) && tavListIsEmpty(ctx->failedServerApps));
    EXPECT_FALSE(ctx->requestMapped || ctx->waitedForRollout || ctx->sticky || ctx->performedLoadBalancing || ctx->privateHeadersAdded ||
                 ctx->outstandingRequestCountIsIncremented);
    EXPECT_TRUE(ctx->serviceTime == TAV_NO_VALUE && ctx->serviceTimeStart == TAV_NO_VALUE);
    EXPECT_TRUE(ctx->failureCount == 0 && ctx->responseTimeouts == 0);
    EXPECT_EQ(tavHttpContextGetConfigVersion(ctx), -1);
}

TEST_F(HttpContextLife, AReusedContextIsAsGoodAsNew) {
    tav->processType = ServerProcess;
    tav->maxRequestsPerDaemon = 9;
    TavHttpContext *ctx = obtain().release();
    expectFresh(ctx);
    EXPECT_EQ(ri->refCount, 2);
    TrContext *trContext = tavHttpContextGetTrContext(ctx);
    dirty(ctx);
    tavHttpContextRelease(ctx);
    EXPECT_EQ(ri->refCount, 1);
    EXPECT_EQ(tavHttpContextGetState(ctx), CACHED);
    tavHttpContextRelease(ctx); // once more: nothing happens
    EXPECT_EQ(tavListGetCount(tav->contextPool), 1);

    EnvHttpContext next;
    EXPECT_EQ(tavHttpContextObtain(tav, &next), ctx);
    expectFresh(ctx);
    EXPECT_EQ(tavHttpContextGetEnvContext(ctx), &next);
    EXPECT_EQ(tavHttpContextGetTrContext(ctx), trContext);
    EXPECT_EQ(tav->requestsPerDaemon, 2);
    tav->processType = StandaloneProcess;
    tavHttpContextRelease(ctx);
}

TEST_F(HttpContextLife, WithoutRoutingThereIsNoContext) {
    EXPECT_EQ(tavHttpContextObtain(nullptr, &host), nullptr);
    obtain();
    const TavComponentState state = tav->state.exchange(STOPPING);
    EXPECT_EQ(obtain(), nullptr);
    tav->state = state;
    tav->routingInfo = nullptr;
    EXPECT_EQ(obtain(), nullptr);
    tav->routingInfo = ri;
    EXPECT_EQ(tavListGetCount(tav->contextPool), 1) << "the pooled context is lost";
}

// The texts of a usual request need no allocation, and none is lost.
TEST_F(HttpContextLife, APooledContextServesWithoutAllocating) {
    obtain();
    tavSetAllocationGate([](size_t) noexcept -> Boolean { return FALSE; });
    for (int i = 0; i < 50; i++) {
        Obtained ctx = obtain();
        if (!ctx) break;
        EXPECT_TRUE(tavHttpContextSetApplicationName(ctx, "shop"));
        EXPECT_TRUE(tavHttpContextSetModuleName(ctx, "/cell/c/application/shop/webModule/store"));
        for (int again = 0; again < 1000; again++) EXPECT_TRUE(tavHttpContextSetEditionName(ctx, "2.0"));
        EXPECT_TRUE(tavHttpContextSetPermit(ctx, tavHttpContextGetEditionName(ctx), TRUE));
        EXPECT_FALSE(tavHttpContextSetRedirect(ctx, std::string(3000, 'u').c_str()));
        EXPECT_EQ(tavHttpContextGetAction(ctx), PERMIT) << "the failed redirect changed the action";
        EXPECT_FALSE(tavHttpContextSetReject(ctx, 403, std::string(3000, 't').c_str()));
        EXPECT_EQ(tavHttpContextGetErrorCode(ctx), 403);
        EXPECT_EQ(tavHttpContextGetErrorMessage(ctx), nullptr);
        EXPECT_STREQ(tavHttpContextGetModuleName(ctx), "/cell/c/application/shop/webModule/store");
    }
    tavSetAllocationGate(nullptr);
}

TEST_F(HttpContextLife, ChoosesTheTraceSpecification) {
    TrSpec *byPath = addTraceRule(2, "uri LIKE '/shop%'", "http.request.rules.traceRuleMatch:DEBUG");
    addTraceRule(3, "port = 80", ":NOTICE");
    const struct {
        const char *path, *customSpec, *traced;
    } cases[] = {
        {"/shop/a", nullptr, "uri LIKE '/shop%'"},
        {"/other", nullptr, "DEFAULT trace spec"},
        {"/other", ":DEBUG", "custom property 'DefaultRequestTraceSpec'"},
        {"/shop/b", ":DEBUG", "uri LIKE '/shop%'"},
    };
    for (const auto &c : cases) {
        const bool shop = c.path[1] == 's';
        host.path = c.path;
        host.port = shop ? 80 : 81;
        set("DefaultRequestTraceSpec", c.customSpec);
        traceOn(":DEBUG");
        Obtained ctx = obtain();
        TrSpec *const custom = tav->customPropDefaultRequestTraceSpec, *otherwise = custom ? custom : trContextPeekSpec(tav->trCtx);
        EXPECT_EQ(trContextPeekSpec(tavHttpContextGetTrContext(ctx)), shop ? byPath : otherwise) << c.path;
        EXPECT_TRUE(traced(c.traced)) << takeTrace();
    }
    host.path.reset(); // nothing that is traced may be null
    host.host.reset();
    obtain();
}

// The rule's specification goes when the rule is gone and no context uses it any more.
TEST_F(HttpContextLife, TheSpecificationOutlivesItsRule) {
    TrSpec *spec = addTraceRule(1, "port = 80", "http:DEBUG");
    Obtained ctx = obtain();
    tavRulesPurge(tav->requestTraceRules);
    trPurgeDeathRow();
    EXPECT_EQ(trContextPeekSpec(tavHttpContextGetTrContext(ctx)), spec);
    EXPECT_EQ(spec->refCount, 1);
    const int shared = trContextPeekSpec(tav->trCtx)->refCount;
    ctx.reset();
    obtain();
    obtain();
    EXPECT_EQ(trContextPeekSpec(tav->trCtx)->refCount, shared + 1) << "one for the context, not one a request";
    const TrRecord *late = trRecordCreate(trGroupGetRoot(tav->trMgr), "late", TR_INFO, -1); // known to the next new context
    const Obtained pooled = obtain(), made = obtain();
    EXPECT_NE(trSpecMaxLevel(made->trSpec, late), trSpecMaxLevel(pooled->trSpec, late));
}

} // namespace
