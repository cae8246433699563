// The life of a request context.
//
// A context pins the snapshot that was current when the request arrived and lets go of it at the release, so a change of configuration
// never changes the routing of a request in flight. Contexts are pooled by the instance: a reused one keeps its trace context with the
// specification it last had, its trace records, its list and its arena; everything else starts afresh. The usual request allocates nothing.
//
// Ownership: the context owns its texts, its trace context and one reference to its private specification; it holds one snapshot
// reference between obtain and release, and with it the instance. Endpoint and server application are kept alive by what the selector
// counted in `targetInfo`, the rule by its match; the policy lives as long as the snapshot. Pooled contexts belong to the pool and hold no
// snapshot; the one that a thread left in its own place (tavKeepIdleContext) holds the current one.
//
// Locks: none of its own. Obtain takes none when the thread's own place has a context; otherwise the stop lock and, inside it, the
// routing-information lock, and the pool lock by itself; the host is called with none of them held.
#include "tavHttpContext/hcInternal.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavTime.h"

// ---- parts ----

static TavRoutingInfo *getRoutingInfo(Tav *tav) noexcept {
    tavStopLock(tav, "getRoutingInfo");
    TavRoutingInfo *ri = tavCanRoute(tav) ? tavRoutingInfoObtain(tav) : nullptr;
    tavStopUnlock(tav);
    return ri;
}

static TrSpec *createNoticeSpec(Tav *tav, TrMgr *mgr) noexcept {
    const TrSpec *notice = tavGetNoticeTraceSpec(tav);
    // Compiling touches every record; a copy is as good until a record is added.
    if (notice && notice->levelCount == mgr->recordCount.load(std::memory_order_relaxed)) return trSpecCopy(notice);
    return trSpecCreate(mgr, ":NOTICE");
}

static bool createTracing(TavHttpContext *ctx) noexcept {
    TrMgr *mgr = getTavTrMgr(ctx->tav);
    ctx->trContext = trContextCreate(mgr);
    ctx->trSpec = ctx->trContext ? createNoticeSpec(ctx->tav, mgr) : nullptr;
    if (!ctx->trSpec) return false;
    trContextSetSpec(ctx->trContext, trSpecRefObtain(ctx->trSpec));
    ctx->debugMap = trRecordGet(mgr, "http.request.map.url");
    ctx->debugStateChange = trRecordGet(mgr, "http.stateChange");
    ctx->rolloutRec = trRecordGet(mgr, "http.request.select.editionRollout");
    ctx->trRecTraceRuleMatches = trRecordGet(mgr, "http.request.rules.traceRuleMatch");
    ctx->debugRules = trRecordGet(mgr, "http.request.rules.process");
    ctx->responseProcess = trRecordGet(mgr, "http.response.process");
    ctx->requestProcess = trRecordGet(mgr, "http.request.process");
    ctx->connectFailure = trRecordGet(mgr, "http.request.connectFailure");
    return true;
}

static TavHttpContext *createContext(Tav *tav) noexcept {
    auto *ctx = tavNewRecord<TavHttpContext>();
    if (!ctx) return nullptr;
    ctx->tav = tav;
    ctx->failedServerApps = tavListCreate(nullptr);
    if (ctx->failedServerApps && createTracing(ctx)) return ctx;
    tavHttpContextDelete(ctx);
    return nullptr;
}

static void initialise(TavHttpContext *ctx, EnvHttpContext *envHttpContext) noexcept {
    ctx->envHttpContext = envHttpContext;
    ctx->requestMapped = FALSE;
    ctx->waitedForRollout = FALSE;
    ctx->requestMappingResult = 0;
    tavHttpContextResetMyTargetInfo(ctx);
    ctx->serviceTimeStart = TAV_NO_VALUE;
    ctx->serviceTime = TAV_NO_VALUE;
    ctx->sslMapMode = NullMapMode;
    ctx->state.store(INITIAL, std::memory_order_release);
    ctx->subState = 0;
    ctx->stateMsg = nullptr;
    ctx->action = NONE;
    ctx->errorCode = 0;
    ctx->sticky = FALSE;
    ctx->performedLoadBalancing = FALSE;
    ctx->privateHeadersAdded = FALSE;
    ctx->failureCount = 0;
    ctx->responseTimeouts = 0;
    ctx->policy = nullptr;
    ctx->configVersion = -1;
    ctx->affinityBreakReason[0] = '\0';
    ctx->startTime = tavGetTickedTime();
    ctx->trial = FALSE;
}

// Gives back what the request used. The texts are gone afterwards; the record is as good as new once it is initialised.
static void clean(TavHttpContext *ctx) noexcept {
    if (ctx->targetServerApplication) tsTargetInfoDecrementRefCnt(ctx);
    tavHttpContextResetMyTargetInfo(ctx);
    hcClearTexts(ctx);
    if (!tavListIsEmpty(ctx->failedServerApps)) tavListClean(ctx->failedServerApps);
    ctx->policy = nullptr;
    ctx->moduleHint = nullptr;
    ctx->ruleMatch.reset();
    ctx->stateMsg = nullptr;
}

static void poolOrDelete(TavHttpContext *ctx) noexcept {
    if (addTavHttpContextToPool(ctx->tav, ctx)) return;
    TR_DEBUG(ctx->trContext, ctx->requestProcess, "tavHttpContextRelease: deleting the context - ctx=%p\n", static_cast<void *>(ctx));
    tavHttpContextDelete(ctx);
}

// The long way to a context with a snapshot; null when there is no snapshot or no memory.
static TavHttpContext *pooledOrNewContext(Tav *tav) noexcept {
    TavHttpContext *ctx = removeTavHttpContextFromPool(tav);
    TavRoutingInfo *ri = getRoutingInfo(tav);
    if (!ri) {
        if (ctx) poolOrDelete(ctx);
        return nullptr;
    }
    if (!ctx) ctx = createContext(tav);
    if (!ctx) {
        tavRoutingInfoRelease(ri);
        return nullptr;
    }
    ctx->routingInfo = ri;
    return ctx;
}

// ---- life ----

static TavHttpContext *obtainUntraced(Tav *tav, EnvHttpContext *envHttpContext) noexcept {
    if (!tav || !tavCanRoute(tav)) return nullptr;
    TavHttpContext *ctx = tavTakeIdleContext(tav);
    if (!ctx) ctx = pooledOrNewContext(tav);
    if (ctx) initialise(ctx, envHttpContext);
    return ctx;
}

TavHttpContext *tavHttpContextObtain(Tav *tav, EnvHttpContext *envHttpContext) noexcept {
    TavHttpContext *ctx = obtainUntraced(tav, envHttpContext);
    if (!ctx) return nullptr;
    hcInitRequestTraceSpec(ctx);
    tavMaxRequestsPerDaemon(tav); // only counts: the daemon ends by itself once the limit is passed
    TR_DEBUG(ctx->trContext, ctx->requestProcess, "tavHttpContextObtain: exit - ctx=%p\n", static_cast<void *>(ctx));
    return ctx;
}

TavHttpContext *tavHttpContextObtainTrial(Tav *tav, EnvHttpContext *envHttpContext, const char *traceSpec) noexcept {
    TrSpec *spec = tav && traceSpec ? trSpecCreate(getTavTrMgr(tav), traceSpec) : nullptr;
    TavHttpContext *ctx = traceSpec && !spec ? nullptr : obtainUntraced(tav, envHttpContext);
    if (!ctx) {
        trSpecRefRelease(spec);
        return nullptr;
    }
    ctx->trial = TRUE;
    if (spec)
        trContextSetSpec(ctx->trContext, spec);
    else
        hcInitRequestTraceSpec(ctx);
    return ctx;
}

// A host that never reported how the request ended must not leave the server's count raised.
static void endUnreportedRequest(TavHttpContext *ctx) noexcept {
    if (!ctx->outstandingRequestCountIsIncremented) return;
    tsServerApplicationDecrementOutstandingRequestCount(ctx, ctx->targetServerApplication, 0, ctx->serviceTime, FALSE);
    ctx->outstandingRequestCountIsIncremented = FALSE;
}

void tavHttpContextRelease(TavHttpContext *ctx) noexcept {
    TavHttpContextState state = tavHttpContextGetState(ctx);
    if (state == CACHED || state == FREE) return; // null, or released already
    TR_DEBUG(ctx->trContext, ctx->requestProcess, "tavHttpContextRelease: enter - ctx=%p\n", static_cast<void *>(ctx));
    endUnreportedRequest(ctx);
    clean(ctx);
    if (tavKeepIdleContext(ctx->tav, ctx)) return;
    TavRoutingInfo *ri = ctx->routingInfo;
    ctx->routingInfo = nullptr;
    poolOrDelete(ctx);
    tavRoutingInfoRelease(ri); // may free the instance, and with it the pool
}

void tavHttpContextDelete(TavHttpContext *ctx) noexcept {
    if (!ctx) return;
    ctx->state.store(FREE, std::memory_order_release);
    trSpecRefRelease(ctx->trSpec);
    clean(ctx);
    trContextDelete(ctx->trContext);
    tavListDestroy(ctx->failedServerApps);
    tavDestroyRecord(ctx);
}
