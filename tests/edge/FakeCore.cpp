#include "edge/FakeCore.h"

#include <algorithm>
#include <cstdarg>

#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavHttpLanguage/tavHttpLanguage.h"
#include "tavLanguage/tavLanguage.h"
#include "tavRule/tavRule.h"
#include "tavTargetSelector/tavConnectorForSelector.h"
#include "tavTargetSelector/tavTargetSelector.h"

static Tav *current; // whose trace is being taken

static int printTrace(const TrContext *ctx, va_list args) {
    const char *format = trContextGetFormat(ctx);
    if (!current || !format) return 0;
    char line[4096];
    vsnprintf(line, sizeof line, format, args);
    current->trace.emplace_back(line);
    return 0;
}

_Tav::_Tav() {
    FILE *catalogue = fopen(TAV_SOURCE_DIR "/share/tav-trace.xml", "r");
    mgr = trMgrCreate(catalogue, TRUE);
    trMgrSetPrintf(mgr, printTrace);
    current = this;
    language = langCreateHttpLanguage(trMgrGetDefaultContext(mgr), trRecordGet(mgr, "control.process"));
    traceRules = tavRulesCreate(language, this);
    tavRulesSetType(traceRules, TAVRULESTYPE_SFTRACESPEC);
}

_Tav::~_Tav() {
    for (TavHttpContext *ctx : pool) tavHttpContextDelete(ctx);
    for (auto &[cluster, data] : partitions) tsPartitionIDDataDelete(data);
    tavRulesFree(traceRules);
    langFree(language);
    trSpecRefRelease(customSpec);
    trMgrDelete(mgr);
    trPurgeDeathRow();
    current = nullptr;
}

void _Tav::setTraceSpec(const char *text) { trContextSetSpec(trMgrGetDefaultContext(mgr), trSpecCreate(mgr, text)); }

void _Tav::setCustomTraceSpec(const char *text) {
    trSpecRefRelease(customSpec);
    customSpec = text ? trSpecCreate(mgr, text) : nullptr;
}

bool _Tav::traced(const std::string &part) const {
    return std::any_of(trace.begin(), trace.end(), [&](const std::string &line) { return line.find(part) != std::string::npos; });
}

// ---- getters ----

EnvCallBacks *tavGetEnvCallBacks(Tav *tav) noexcept { return tav ? &tav->env : nullptr; }
TrMgr *getTavTrMgr(Tav *tav) noexcept { return tav ? tav->mgr : nullptr; }
TrMgr *tavGetTrMgr(Tav *tav) noexcept { return tav ? tav->mgr : nullptr; }
TrContext *tavGetTrContext(Tav *tav) noexcept { return tav ? trMgrGetDefaultContext(tav->mgr) : nullptr; }
TrContext *GET_TRCTX() noexcept { return tavGetTrContext(current); }
TrRecord *GET_TRREC() noexcept { return current ? trRecordGet(current->mgr, "control.defaultdebug") : nullptr; }
Language *tavGetHttpLanguage(Tav *tav) noexcept { return tav ? tav->language : nullptr; }
TavRules *tavGetRequestTraceRules(Tav *tav) noexcept { return tav ? tav->traceRules : nullptr; }
HealthMonitor *tavGetHealthMonitor(Tav *) noexcept { return nullptr; }
Boolean tavIsTrustedProxyEnabled(Tav *tav) noexcept { return tav->trustedProxyEnabled; }
Boolean tavIsTrustedProxy(Tav *tav, const char *ip) noexcept { return ip && tav->trustedProxies.count(ip) != 0; }
Boolean tavSelectsEndpointByVHost(Tav *) noexcept { return FALSE; }
char *tavCopyProperty(Tav *, const char *) noexcept { return nullptr; }
Boolean tavIsOwnServerPath(Tav *, const char *) noexcept { return FALSE; }
Boolean tavSetServerCustomProperty(Tav *, const char *, const char *) noexcept { return FALSE; }
Boolean tavCanRoute(Tav *tav) noexcept { return tav->canRoute; }
Boolean tavPrivateHeadersDisabled(Tav *tav) noexcept { return tav->privateHeadersDisabled; }
int tavGetMaxSecondsToWaitDuringAtomicRollout(Tav *tav) noexcept { return tav->maxRolloutSeconds; }
TavTime tavGetMaxElapsedTimePerRequest(Tav *tav) noexcept { return tav->maxElapsed; }
int tavGetMaxTargetEndpointsPerRequest(Tav *tav) noexcept { return tav->maxEndpoints; }
TavTargetEndpoint *tavGetTargetEndpoint(Tav *tav) noexcept { return tav->fixedEndpoint; }
TavSSLMapMode tavGetSSLMapMode(Tav *tav) noexcept { return tav->sslMapMode; }
Boolean tavMaxRequestsPerDaemon(Tav *tav) noexcept {
    tav->requestsCounted++;
    return FALSE;
}

// ---- the snapshot ----

Tav *tavRoutingInfoGetTav(TavRoutingInfo *ri) noexcept { return ri ? ri->tav : nullptr; }
RequestMapper *tavRoutingInfoGetRequestMapper(TavRoutingInfo *ri) noexcept { return ri ? ri->mapper : nullptr; }
TargetSelector *tavRoutingInfoGetTargetSelector(TavRoutingInfo *ri) noexcept { return ri ? ri->selector : nullptr; }
Boolean tavRoutingInfoIsPublished(TavRoutingInfo *) noexcept { return FALSE; }
void tavStopLock(Tav *tav, const char *) noexcept { tav->stopLocks++; }
void tavStopUnlock(Tav *tav) noexcept { tav->stopUnlocks++; }
TavRoutingInfo *tavRoutingInfoObtain(Tav *tav) noexcept {
    if (tav->routingInfo) tav->routingInfo->refCount++;
    return tav->routingInfo;
}
void tavRoutingInfoRelease(TavRoutingInfo *ri) noexcept {
    if (ri) ri->refCount--;
}

// ---- the pool ----

Boolean addTavHttpContextToPool(Tav *tav, TavHttpContext *ctx) noexcept {
    if (static_cast<int>(tav->pool.size()) >= tav->poolLimit) return FALSE;
    tav->pool.push_back(ctx);
    tavHttpContextSetState(ctx, CACHED, 0, nullptr);
    return TRUE;
}

TavHttpContext *removeTavHttpContextFromPool(Tav *tav) noexcept {
    if (tav->pool.empty()) return nullptr;
    TavHttpContext *ctx = tav->pool.back();
    tav->pool.pop_back();
    tavHttpContextSetState(ctx, INITIAL, 0, const_cast<char *>("from pool"));
    return ctx;
}

TavHttpContext *tavTakeIdleContext(Tav *) noexcept { return nullptr; }
Boolean tavKeepIdleContext(Tav *, TavHttpContext *) noexcept { return FALSE; }

// ---- trace specifications ----

TrSpec *tavPeekRequestTraceSpec(Tav *tav, Boolean *isCustom) noexcept {
    *isCustom = tav->customSpec != nullptr;
    return tav->customSpec ? tav->customSpec : trContextPeekSpec(tavGetTrContext(tav));
}
TrSpec *tavObtainRequestTraceSpec(Tav *tav, Boolean *isCustom) noexcept { return trSpecRefObtain(tavPeekRequestTraceSpec(tav, isCustom)); }
const TrSpec *tavGetNoticeTraceSpec(Tav *) noexcept { return nullptr; }

// ---- partition data ----

void tavLockPartitionData(Tav *tav, const char *) noexcept { tav->partitionsLocked = true; }
void tavUnlockPartitionData(Tav *tav) noexcept { tav->partitionsLocked = false; }
PartitionIDData *tavGetPartitionData(Tav *tav, const char *key) noexcept {
    const auto found = tav->partitions.find(key ? key : "");
    return tav->partitionsLocked && key && found != tav->partitions.end() ? found->second : nullptr;
}
Boolean tavSetPartitionData(Tav *tav, const char *key, PartitionIDData *data) noexcept {
    if (!key || !data) return FALSE;
    PartitionIDData *&stored = tav->partitions[key];
    tsPartitionIDDataDelete(stored);
    stored = data;
    tav->partitionsSet++;
    return TRUE;
}
Boolean tavHasPartitionData(Tav *tav) noexcept { return !tav->partitions.empty(); }

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
