// What becomes of the request: mapping, the rules' action, the target endpoint and the wait for a rollout.
#include <atomic>

#include "tavHttpContext/hcInternal.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavTime.h"

// ---- what the rules decided ----

Boolean tavHttpContextSetPermit(TavHttpContext *ctx, const char *edition, Boolean sticky) noexcept {
    if (!ctx || !hcSetText(ctx, &ctx->editionName, edition)) return FALSE;
    ctx->action = PERMIT;
    ctx->sticky = sticky;
    return TRUE;
}

Boolean tavHttpContextSetReject(TavHttpContext *ctx, int errorCode, const char *text) noexcept {
    if (!ctx) return FALSE;
    ctx->action = REJECT;
    ctx->errorCode = errorCode;
    if (hcSetText(ctx, &ctx->errorMsg, text)) return TRUE;
    hcSetText(ctx, &ctx->errorMsg, nullptr); // an older rejection's text would explain the wrong thing
    return FALSE;
}

Boolean tavHttpContextSetRedirect(TavHttpContext *ctx, const char *url) noexcept {
    if (!ctx || !hcSetText(ctx, &ctx->redirectURL, url)) return FALSE;
    ctx->action = REDIRECT;
    return TRUE;
}

// ---- mapping ----

static int performRequestMapping(TavHttpContext *ctx) noexcept {
    if (ctx->requestMapped) {
        TR_DEBUG(ctx->trContext, ctx->debugMap, "performRequestMapping: return previous result: %d\n", ctx->requestMappingResult);
        return ctx->requestMappingResult;
    }
    hcSetText(ctx, &ctx->editionName, nullptr); // a rule that now rejects or redirects must not leave an earlier permit's edition
    ctx->ruleMatch.reset();
    ctx->configVersion = tavRoutingInfoGetVersion(ctx->routingInfo);
    ctx->requestMappingResult = rmMapRequest(tavRoutingInfoGetRequestMapper(ctx->routingInfo), ctx);
    ctx->requestMapped = TRUE;
    TR_DEBUG(ctx->trContext, ctx->debugMap, "performRequestMapping: exit %d\n", ctx->requestMappingResult);
    return ctx->requestMappingResult;
}

int tavHttpContextShouldHandle(TavHttpContext *ctx) noexcept { return ctx ? performRequestMapping(ctx) : 0; }

const char *tavHttpContextGetApplicationEditionName(TavHttpContext *ctx) noexcept {
    if (!ctx) return nullptr;
    int result = performRequestMapping(ctx);
    if (result == 1) return ctx->editionName;
    ctx->action = REJECT;
    ctx->errorCode = result == 0 ? 404 : 500;
    return nullptr;
}

// ---- target endpoint ----

static bool maxElapsedTimeExceeded(TavHttpContext *ctx) noexcept {
    TavTime limit = tavGetMaxElapsedTimePerRequest(ctx->tav);
    return limit != TAV_NO_VALUE && tavGetTickedTime() - ctx->startTime >= limit;
}

TavTargetEndpoint *tavHttpContextGetTargetEndpoint(TavHttpContext *ctx) noexcept {
    if (!ctx) return nullptr;
    if (ctx->targetEndpoint) return ctx->targetEndpoint;
    if (TavTargetEndpoint *fixed = tavGetTargetEndpoint(ctx->tav)) return fixed;
    if (!tavHttpContextGetApplicationEditionName(ctx)) return nullptr;
    if (ctx->failureCount >= tavGetMaxTargetEndpointsPerRequest(ctx->tav)) {
        TR_DEBUG(ctx->trContext, ctx->requestProcess, "tavHttpContextGetTargetEndpoint: exit - tep=NULL, failureCount=%d\n",
                 ctx->failureCount);
        return nullptr;
    }
    if (maxElapsedTimeExceeded(ctx)) {
        TR_DEBUG(ctx->trContext, ctx->requestProcess,
                 "tavHttpContextGetTargetEndpoint: exit - tep=NULL, MaxElapsedTimePerRequest exceeded\n");
        tavHttpContextSetReject(ctx, 504, "MaxElapsedTimePerRequest exceeded");
        return nullptr;
    }
    ctx->targetEndpoint = tsSelect(tavRoutingInfoGetTargetSelector(ctx->routingInfo), ctx);
    TR_DEBUG(ctx->trContext, ctx->requestProcess, "tavHttpContextGetTargetEndpoint: exit - tep=%p\n",
             static_cast<void *>(ctx->targetEndpoint));
    return ctx->targetEndpoint;
}

// ---- rollout wait ----

static constexpr int ROLLOUT_TRACE_LEVEL = TR_INFO;
static std::atomic<void (*)(int)> rolloutSleep{tavSleep};

void tavHttpContextSetRolloutSleep(void (*sleep)(int seconds)) noexcept { rolloutSleep = sleep ? sleep : tavSleep; }

static TavTargetEndpoint *waitForEndpoint(TavHttpContext *ctx, int maxSeconds) noexcept {
    for (int second = 0; second < maxSeconds; second++) {
        rolloutSleep.load()(1);
        ctx->requestMapped = FALSE;
        tavHttpContextSetAffinityBreakReason(ctx, nullptr); // the edition of before may have had other session cookies
        if (TavTargetEndpoint *endpoint = tavHttpContextGetTargetEndpoint(ctx)) return endpoint;
    }
    return nullptr;
}

TavTargetEndpoint *tavHttpContextWaitForRollout(TavHttpContext *ctx) noexcept {
    if (!ctx) return nullptr;
    int maxSeconds = tavGetMaxSecondsToWaitDuringAtomicRollout(ctx->tav);
    if (maxSeconds < 1) {
        TR_TRACE(ctx->trContext, ctx->rolloutRec, ROLLOUT_TRACE_LEVEL, "waiting during application rollout is disabled\n");
        return nullptr;
    }
    if (ctx->waitedForRollout) return nullptr;
    if (ctx->trial) {
        TR_TRACE(ctx->trContext, ctx->rolloutRec, ROLLOUT_TRACE_LEVEL, "would wait for rollout of application '%s' for max of %d seconds\n",
                 tavOrNull(ctx->applicationName), maxSeconds);
        return nullptr;
    }
    ctx->waitedForRollout = TRUE;
    TR_TRACE(ctx->trContext, ctx->rolloutRec, ROLLOUT_TRACE_LEVEL, "wait for rollout of application '%s' for max of %d seconds\n",
             tavOrNull(ctx->applicationName), maxSeconds);
    TavTargetEndpoint *endpoint = waitForEndpoint(ctx, maxSeconds);
    if (endpoint)
        TR_TRACE(ctx->trContext, ctx->rolloutRec, ROLLOUT_TRACE_LEVEL, "successful wait for rollout of application '%s'\n",
                 tavOrNull(ctx->applicationName));
    else
        TR_TRACE(ctx->trContext, ctx->rolloutRec, ROLLOUT_TRACE_LEVEL, "timed out waiting for rollout of application '%s'\n",
                 tavOrNull(ctx->applicationName));
    return endpoint;
}
