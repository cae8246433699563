// Creation of an instance: the checks of the host's table, the trace manager, the instance's parts in the order of its record.
//
// A creation that finds no memory halfway gives the half-built record to the same teardown that the last release uses, so every teardown
// step tolerates a part that was never made.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tavConnector/tavConnector.h"
#include "tavControl.h"
#include "tavDefaultConnector.h"
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavHttpLanguage/tavHttpLanguage.h"
#include "tavInternal.h"
#include "tavRecord.h"
#include "tavRule/tavRule.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

constexpr char kDefaultTraceSpec[] = ":NOTICE";

struct RequiredSlot {
    const char *name;
    bool (*isSet)(const EnvCallBacks &env);
};

#define TAV_SLOT(path)                                                     \
    {                                                                      \
#path, [](const EnvCallBacks &env) { return env.path != nullptr; } \
    }

// In the order in which they are checked; getProtocol is asked for twice.
constexpr RequiredSlot kRequiredSlots[] = {
    TAV_SLOT(http.request.getProtocol),          TAV_SLOT(http.request.getVirtualHost),
    TAV_SLOT(http.request.getVirtualPort),       TAV_SLOT(http.request.getPath),
    TAV_SLOT(http.request.getClientIpAddr),      TAV_SLOT(http.request.getListeningPort),
    TAV_SLOT(http.request.getProtocolVersion),   TAV_SLOT(http.request.getProtocol),
    TAV_SLOT(http.request.getClientCertificate), TAV_SLOT(http.request.getSSLCipherSuite),
    TAV_SLOT(http.request.getSSLSessionId),      TAV_SLOT(http.request.getAuthType),
    TAV_SLOT(http.request.getUserName),          TAV_SLOT(http.request.setHeaderValue),
    TAV_SLOT(http.request.getCookieValue),
};
#undef TAV_SLOT

bool isValidEnv(const EnvCallBacks *env) noexcept {
    if (!env) {
        fputs("ERROR: first argument (EnvCallBacks) to tavCreate must not be NULL\n", stderr);
        return false;
    }
    if (env->version != TAV_ENV_VERSION) {
        fprintf(stderr, "ERROR: TAV library initialization failure: EnvCallBacks.version is invalid in call to tavCreate: %d != %d\n",
                env->version, TAV_ENV_VERSION);
        return false;
    }
    for (const RequiredSlot &slot : kRequiredSlots) {
        if (slot.isSet(*env)) continue;
        fprintf(stderr, "ERROR: TAV library initialization failure: EnvCallBacks.%s is invalid in call to tavCreate\n", slot.name);
        return false;
    }
    return true;
}

FILE *openCatalogue(const char *path) noexcept {
    if (!path) {
        fputs("ERROR: both 2nd and 3rd arguments to tavCreate may not be NULL\n", stderr);
        return nullptr;
    }
    FILE *file = fopen(path, "re");
    if (!file) fprintf(stderr, "ERROR: failed to open %s in tavCreate: %s\n", path, strerror(errno));
    return file;
}

int setAlarmEx(void (*fn)(void *), void *arg, int milliseconds, void *env) { return tavSetAlarm(fn, arg, milliseconds, env); }

void fillDefaults(EnvCallBacks &env) noexcept {
    if (!env.http.connector.open) tavDefaultConnectorInstall(env);
    if (!env.alarm && !env.alarm_ex) env.alarm_ex = setAlarmEx;
}

struct RecordField {
    TrRecord *Tav::*field;
    const char *path;
};

constexpr RecordField kRecords[] = {
    {&Tav::processRec, "control.process"},
    {&Tav::controlStateChangeRec, "control.stateChange"},
    {&Tav::jsonReceivedRec, "control.json.received"},
    {&Tav::jsonUpdatedRec, "control.json.updated"},
    {&Tav::invalidJSON, "control.error.invalidJSON"},
    {&Tav::invalidAction, "control.error.invalidAction"},
    {&Tav::invalidKey, "control.error.invalidKey"},
    {&Tav::ipcProcessRec, "control.ipc"},
    {&Tav::requestTraceSpecAdded, "control.trace.requestTraceSpecAdded"},
    {&Tav::requestTraceSpecRemoved, "control.trace.requestTraceSpecRemoved"},
    {&Tav::defaultReqTraceSpecSet, "control.trace.defaultReqTraceSpecSet"},
    {&Tav::defaultReqTraceSpecReset, "control.trace.defaultReqTraceSpecReset"},
    {&Tav::defaultTraceSpecSet, "control.trace.defaultTraceSpecSet"},
    {&Tav::defaultTraceSpecSetEmpty, "control.trace.defaultTraceSpecSetEmpty"},
    {&Tav::defaultTraceSpecReset, "control.trace.defaultTraceSpecReset"},
};

// The text is the library's own, so only a catalogue of another version refuses it. Want of memory is no reason to end the process.
bool setDefaultTraceSpec(Tav *tav) noexcept {
    const unsigned failures = tavAllocationFailures();
    if (tavSetDefaultTraceSpec(tav, kDefaultTraceSpec) == 0) return true;
    if (tavAllocationFailures() != failures) return false;
    printf("FATAL ERROR: invalid default trace spec: '%s'\n", kDefaultTraceSpec);
    exit(1);
}

bool createTrace(Tav *tav, FILE *catalogue, Boolean closeFlag) noexcept {
    tav->trMgr = trMgrCreate(catalogue, closeFlag);
    if (!tav->trMgr) return false;
    trMgrSetPrintf(tav->trMgr, tav->env.trace.printf);
    tavSetGlobalTraceRecord(trRecordGet(tav->trMgr, "control.defaultdebug"));
    tav->trSpecLock = tavLockCreateRanked(TavLockRank::TraceSpec);
    if (!tav->trSpecLock) return false;
    tav->trCtx = trMgrGetDefaultContext(tav->trMgr);
    for (const RecordField &record : kRecords) tav->*record.field = trRecordGet(tav->trMgr, record.path);
    if (!setDefaultTraceSpec(tav)) return false;
    tavSetGlobalTraceContext(tav->trCtx);
    return (tav->noticeTraceSpec = trSpecCreate(tav->trMgr, kDefaultTraceSpec)) != nullptr;
}

void initScalars(Tav *tav) noexcept {
    tav->state = STOPPED;
    tav->sslMapMode = NullMapMode;
    tav->maxHttpContextPoolSize = -1;
    tav->maxTargetEndpointsPerRequest = 9999;
    tav->processType = StandaloneProcess;
    tav->unixDomainSocketUid = static_cast<uid_t>(-1);
    tav->maxSecondsToWaitDuringAtomicRollout = 3;
    tav->maxElapsedTimePerRequestInMillis = TAV_NO_VALUE;
    tav->configVersion = -1;
}

bool createContainers(Tav *tav) noexcept {
    const auto destroyGroup = [](void *group) { tavConnectorGroupDelete(static_cast<TavConnectorGroup *>(group)); };
    const auto destroyContext = [](void *ctx) { tavHttpContextDelete(static_cast<TavHttpContext *>(ctx)); };
    const auto destroyPartition = [](void *data) { tsPartitionIDDataDelete(static_cast<PartitionIDData *>(data)); };
    return (tav->connectorGroupList = tavListCreate(destroyGroup)) && (tav->props = tavPropertiesCreate(tavSetProperty, tav)) &&
           (tav->defaultProps = tavHashMapCreate2(tavFree)) && (tav->serverProps = tavHashMapCreate2(tavFree)) &&
           (tav->contextPool = tavListCreate(destroyContext)) && (tav->endPointRefMap = tavHashMapCreate()) &&
           (tav->sappMap = tavHashMapCreate()) && (tav->partitionIDData.map = tavHashMapCreate2(destroyPartition)) &&
           (tav->asyncWorkQueue = tavListCreate(nullptr)) && (tav->trustedProxyList = tavListCreate(tavFree)) &&
           (tav->trustedProxySet = tavHashMapCreate()) && (tav->internedNames = tavListCreate(tavFree));
}

bool createLocks(Tav *tav) noexcept {
    return (tav->contextPoolLock = tavLockCreateRanked(TavLockRank::ContextPool)) &&
           (tav->stopLock = tavLockCreateRanked(TavLockRank::Stop)) &&
           (tav->routingInfoLock = tavLockCreateRanked(TavLockRank::RoutingInfo)) &&
           (tav->partitionIDData.lock = tavLockCreateRanked(TavLockRank::PartitionData)) &&
           (tav->endPointRefLock = tavLockCreateRanked(TavLockRank::EndPointRefs)) &&
           (tav->nameLock = tavLockCreateRanked(TavLockRank::Leaf)) && (tav->asyncWorkCondition = tavConditionCreate());
}

bool createParts(Tav *tav) noexcept {
    if (!createLocks(tav) || !createContainers(tav)) return false;
    tav->routingInfo = tavRoutingInfoCreate(tav);
    if (!tav->routingInfo) return false;
    tavRoutingInfoPublish(tav->routingInfo);
    if (!(tav->httpLanguage = langCreateHttpLanguage(tav->trCtx, tav->processRec))) return false;
    if (!(tav->requestTraceRules = tavRulesCreate(tav->httpLanguage, tav))) return false;
    tavRulesSetType(tav->requestTraceRules, TAVRULESTYPE_SFTRACESPEC);
    tavSetServerName(tav, "tavlib");
    if (!tavGetServerName(tav)) return false;
    if (!(tav->healthMonitor = hmCreate(tav))) return false;
    return tavAsyncStart(tav);
}

// The snapshot holds a reference of its own, so dropping it and then the creator's runs the whole teardown.
void abandon(Tav *tav) noexcept {
    TavRoutingInfo *ri = tav->routingInfo;
    if (ri) {
        tav->routingInfo = nullptr;
        tavRoutingInfoRelease(ri);
    }
    tavReleaseRef(tav, "tavCreate");
}

} // namespace

Tav *tavCreate(EnvCallBacks *env, FILE *fp, char *path) TAV_NOEXCEPT {
    if (!isValidEnv(env)) return nullptr;
    const Boolean opened = fp == nullptr;
    FILE *catalogue = fp ? fp : openCatalogue(path);
    if (!catalogue) return nullptr;
    Tav *tav = tavNewRecord<Tav>();
    if (!tav) {
        if (opened) fclose(catalogue);
        return nullptr;
    }
    tav->refcnt = 1;
    tav->env = *env;
    fillDefaults(tav->env);
    initScalars(tav);
    if (createTrace(tav, catalogue, opened) && createParts(tav)) return tav;
    abandon(tav);
    return nullptr;
}
