// Getters and setters without logic, and the process-wide trace variables.
#include <atomic>

#include "tavHttpContext/tavInstanceForContext.h"
#include "tavInternal.h"
#include "tavUtil/tavMemory.h"
#include "tavVersion/tavVersion.h"
#include "tr/tr.h"

namespace {

std::atomic<TrContext *> globalTraceContext{nullptr};
std::atomic<TrRecord *> globalTraceRecord{nullptr};

} // namespace

TrContext *GET_TRCTX() noexcept { return globalTraceContext; }
TrRecord *GET_TRREC() noexcept { return globalTraceRecord; }
void tavSetGlobalTraceContext(TrContext *ctx) noexcept { globalTraceContext = ctx; }
void tavSetGlobalTraceRecord(TrRecord *record) noexcept { globalTraceRecord = record; }

void tavClearGlobalTrace(TrMgr *mgr) noexcept {
    TrContext *ctx = trMgrGetDefaultContext(mgr);
    globalTraceContext.compare_exchange_strong(ctx, nullptr);
    TrRecord *record = trMgrGetRecord(mgr, "control.defaultdebug");
    globalTraceRecord.compare_exchange_strong(record, nullptr);
}

EnvCallBacks *tavGetEnvCallBacks(Tav *tav) TAV_NOEXCEPT { return tav ? &tav->env : nullptr; }
TrMgr *tavGetTrMgr(Tav *tav) TAV_NOEXCEPT { return tav ? tav->trMgr : nullptr; }
TrMgr *getTavTrMgr(Tav *tav) noexcept { return tavGetTrMgr(tav); }
TrContext *tavGetTrContext(Tav *tav) TAV_NOEXCEPT { return tav ? tav->trCtx : nullptr; }
TrRecord *tavGetProcessRec(Tav *tav) noexcept { return tav ? tav->processRec : nullptr; }
TrRecord *tavGetDebugIPC(Tav *tav) noexcept { return tav ? tav->ipcProcessRec : nullptr; }
Language *tavGetHttpLanguage(Tav *tav) noexcept { return tav ? tav->httpLanguage : nullptr; }
TavRules *tavGetRequestTraceRules(Tav *tav) noexcept { return tav ? tav->requestTraceRules : nullptr; }
HealthMonitor *tavGetHealthMonitor(Tav *tav) noexcept { return tav ? tav->healthMonitor : nullptr; }
TavProperties *tavGetProperties(Tav *tav) TAV_NOEXCEPT { return tav ? tav->props : nullptr; }
Boolean tavIsTrustedProxyEnabled(Tav *tav) noexcept { return tav ? tav->enableTrustedProxy.load() : FALSE; }
Boolean tavSelectsEndpointByVHost(Tav *tav) noexcept { return tav ? tav->selectEndpointByVHost.load() : FALSE; }
int tavGetMaxSecondsToWaitDuringAtomicRollout(Tav *tav) TAV_NOEXCEPT { return tav ? tav->maxSecondsToWaitDuringAtomicRollout.load() : 0; }
TavSSLMapMode tavGetSSLMapMode(Tav *tav) TAV_NOEXCEPT { return tav ? tav->sslMapMode.load() : NullMapMode; }
TavTargetEndpoint *tavGetTargetEndpoint(Tav *tav) TAV_NOEXCEPT { return tav ? tav->targetEndpoint : nullptr; }
int tavGetMaxTargetEndpointsPerRequest(Tav *tav) TAV_NOEXCEPT { return tav ? tav->maxTargetEndpointsPerRequest.load() : 0; }
Boolean tavPrivateHeadersDisabled(Tav *tav) TAV_NOEXCEPT { return tav ? tav->privateHeadersDisabled.load() : FALSE; }
TavTime tavGetMaxElapsedTimePerRequest(Tav *tav) TAV_NOEXCEPT { return tav ? tav->maxElapsedTimePerRequestInMillis.load() : TAV_NO_VALUE; }

long long tavGetConfigVersion(Tav *tav) TAV_NOEXCEPT { return tav ? tav->configVersion.load(std::memory_order_relaxed) : -1; }

void tavSetSSLMapMode(Tav *tav, TavSSLMapMode mode) TAV_NOEXCEPT {
    if (tav) tav->sslMapMode = mode;
}

void tavSetMaxTargetEndpointsPerRequest(Tav *tav, int max) TAV_NOEXCEPT {
    if (tav) tav->maxTargetEndpointsPerRequest = max;
}

void tavMemFree(Tav *, void *memory) TAV_NOEXCEPT { tavFree(memory); }

// ---- trace specifications ----

int tavSetDefaultTraceSpec(Tav *tav, const char *text) noexcept {
    TrSpec *spec = trSpecCreate(tav->trMgr, text);
    if (!spec) return -1;
    TR_DEBUG(tav->trCtx, tav->processRec, "tavSetDefaultTraceSpec: default trace spec set to %s", text);
    TR_LOG(tav->trCtx, tav->defaultTraceSpecSet, text);
    trContextSetSpec(tav->trCtx, spec);
    return 0;
}

int tavSetTraceSpec(Tav *tav, const char *spec) TAV_NOEXCEPT { return tav && spec ? tavSetDefaultTraceSpec(tav, spec) : -1; }

TrSpec *tavGetCustomPropDefaultRequestTraceSpec(Tav *tav) noexcept {
    return tav ? tav->customPropDefaultRequestTraceSpec.load(std::memory_order_acquire) : nullptr;
}

TrSpec *tavObtainRequestTraceSpec(Tav *tav, Boolean *isCustom) noexcept {
    {
        TavLockGuard guard(tav->trSpecLock, "tavObtainRequestTraceSpec");
        TrSpec *custom = tavGetCustomPropDefaultRequestTraceSpec(tav);
        *isCustom = custom != nullptr;
        if (custom) return trSpecRefObtain(custom);
    }
    return trContextGetSpec(tav->trCtx);
}

TrSpec *tavPeekRequestTraceSpec(Tav *tav, Boolean *isCustom) noexcept {
    TrSpec *custom = tavGetCustomPropDefaultRequestTraceSpec(tav);
    *isCustom = custom != nullptr;
    return custom ? custom : trContextPeekSpec(tav->trCtx);
}

const TrSpec *tavGetNoticeTraceSpec(Tav *tav) noexcept { return tav ? tav->noticeTraceSpec : nullptr; }
