#include "edge/FakeCore.h"

#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavHttpLanguage/tavHttpLanguage.h"
#include "tavLanguage/tavLanguage.h"
#include "tavRule/tavRule.h"
#include "tavTargetSelector/tavConnectorForSelector.h"
#include "tavTargetSelector/tavTargetSelector.h"

static FakeCore *core(Tav *tav) { return static_cast<FakeCore *>(tav); }

FakeCore::FakeCore() {
    language = langCreateHttpLanguage(trMgrGetDefaultContext(mgr), trRecordGet(mgr, "control.process"));
    traceRules = tavRulesCreate(language, this);
    tavRulesSetType(traceRules, TAVRULESTYPE_SFTRACESPEC);
}

FakeCore::~FakeCore() {
    for (TavHttpContext *ctx : pool) tavHttpContextDelete(ctx);
    for (auto &[cluster, data] : partitions) tsPartitionIDDataDelete(data);
    tavRulesFree(traceRules);
    langFree(language);
    trSpecRefRelease(customSpec);
}

void FakeCore::setCustomTraceSpec(const char *text) {
    trSpecRefRelease(customSpec);
    customSpec = text ? trSpecCreate(mgr, text) : nullptr;
}

// ---- getters ----

TavRules *tavGetRequestTraceRules(Tav *tav) noexcept { return tav ? core(tav)->traceRules : nullptr; }
HealthMonitor *tavGetHealthMonitor(Tav *) noexcept { return nullptr; }
Boolean tavIsTrustedProxyEnabled(Tav *tav) noexcept { return core(tav)->trustedProxyEnabled; }
Boolean tavIsTrustedProxy(Tav *tav, const char *ip) noexcept { return ip && core(tav)->trustedProxies.count(ip) != 0; }
Boolean tavIsOwnServerPath(Tav *, const char *) noexcept { return FALSE; }
Boolean tavSetServerCustomProperty(Tav *, const char *, const char *) noexcept { return FALSE; }
Boolean tavCanRoute(Tav *tav) noexcept { return core(tav)->canRoute; }
Boolean tavPrivateHeadersDisabled(Tav *tav) noexcept { return core(tav)->privateHeadersDisabled; }
int tavGetMaxSecondsToWaitDuringAtomicRollout(Tav *tav) noexcept { return core(tav)->maxRolloutSeconds; }
TavTime tavGetMaxElapsedTimePerRequest(Tav *tav) noexcept { return core(tav)->maxElapsed; }
int tavGetMaxTargetEndpointsPerRequest(Tav *tav) noexcept { return core(tav)->maxEndpoints; }
TavTargetEndpoint *tavGetTargetEndpoint(Tav *tav) noexcept { return core(tav)->fixedEndpoint; }
Boolean tavMaxRequestsPerDaemon(Tav *tav) noexcept {
    core(tav)->requestsCounted++;
    return FALSE;
}

// ---- the snapshot ----

void tavStopLock(Tav *tav, const char *) noexcept { core(tav)->stopLocks++; }
void tavStopUnlock(Tav *tav) noexcept { core(tav)->stopLocks--; }
TavRoutingInfo *tavRoutingInfoObtain(Tav *tav) noexcept {
    if (core(tav)->routingInfo) core(tav)->routingInfo->refCount++;
    return core(tav)->routingInfo;
}
void tavRoutingInfoRelease(TavRoutingInfo *ri) noexcept {
    if (ri) ri->refCount--;
}
long long tavRoutingInfoGetVersion(const TavRoutingInfo *ri) noexcept { return ri->version; }

// ---- the pool ----

Boolean addTavHttpContextToPool(Tav *tav, TavHttpContext *ctx) noexcept {
    if (static_cast<int>(core(tav)->pool.size()) >= core(tav)->poolLimit) return FALSE;
    core(tav)->pool.push_back(ctx);
    tavHttpContextSetState(ctx, CACHED, 0, nullptr);
    return TRUE;
}

TavHttpContext *removeTavHttpContextFromPool(Tav *tav) noexcept {
    if (core(tav)->pool.empty()) return nullptr;
    TavHttpContext *ctx = core(tav)->pool.back();
    core(tav)->pool.pop_back();
    tavHttpContextSetState(ctx, INITIAL, 0, const_cast<char *>("from pool"));
    return ctx;
}

TavHttpContext *tavTakeIdleContext(Tav *) noexcept { return nullptr; }
Boolean tavKeepIdleContext(Tav *, TavHttpContext *) noexcept { return FALSE; }

// ---- trace specifications ----

TrSpec *tavPeekRequestTraceSpec(Tav *tav, Boolean *isCustom) noexcept {
    *isCustom = core(tav)->customSpec != nullptr;
    return core(tav)->customSpec ? core(tav)->customSpec : trContextPeekSpec(tavGetTrContext(tav));
}
TrSpec *tavObtainRequestTraceSpec(Tav *tav, Boolean *isCustom) noexcept { return trSpecRefObtain(tavPeekRequestTraceSpec(tav, isCustom)); }
const TrSpec *tavGetNoticeTraceSpec(Tav *) noexcept { return nullptr; }

// ---- partition data ----

Boolean tavSetPartitionData(Tav *tav, const char *key, PartitionIDData *data) noexcept {
    if (!key || !data) return FALSE;
    PartitionIDData *&stored = tav->partitions[key];
    tsPartitionIDDataDelete(stored);
    stored = data;
    core(tav)->partitionsSet++;
    return TRUE;
}

// ---- what the model floor asks of others; a program that links the real ones uses those ----

#define FAKE_WEAK __attribute__((weak))
FAKE_WEAK void tavConnectorObtainRef(TavConnector *, const char *) noexcept {}
FAKE_WEAK void tavConnectorReleaseRef(TavConnector *, const char *) noexcept {}
FAKE_WEAK void tavConnectorPostRoutingChange(TavConnector *, const char *, Boolean, Boolean) noexcept {}
FAKE_WEAK EndPointRef *tavEndPointRefObtain(Tav *, TavTargetEndpoint *) noexcept { return nullptr; }
FAKE_WEAK void tavEndPointRefRelease(Tav *, EndPointRef *) noexcept {}
FAKE_WEAK void tavEndPointRefDetach(Tav *, EndPointRef *) noexcept {}
FAKE_WEAK EnvTargetEndpoint *tavEndPointRefGet(const EndPointRef *) noexcept { return nullptr; }
FAKE_WEAK void hmCheckHealthPolicies(Tav *, TavHttpContext *, TargetServer *, TavList *, TavTime, int) noexcept {}
FAKE_WEAK void hmLinkServerToHealthPolicy(Tav *, TargetServer *, TavList *, HealthPolicy *, Boolean) noexcept {}
FAKE_WEAK void hmHealthPolicyLinkDelete(void *) noexcept {}
