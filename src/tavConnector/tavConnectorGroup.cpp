// Connector groups: their properties, their life and their state.
//
// A group is the instance's; its connectors each hold a reference on it, and deleting the connectors is what breaks that circle. Polling is
// one chain at a time: an init request, then polls, failovers and alarms. The chain carries the group's generation, which every start and
// end of polling moves on, so whatever is left of an older chain finds that it is not wanted.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tavConnector/connectorInternal.h"
#include "tavConnector/tavConnector.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavStringBuffer.h"
#include "tr/tr.h"

namespace {

constexpr char kDefaultURI[] = "/sentinelFabric";
constexpr char kBrindleURI[] = "/kel/api/dynamicRouting";

// ---- properties; a null value changes nothing ----

void setMaxRetries(TavConnectorGroup *cg, const char *value) noexcept {
    cg->maxRetries = tavParseInt(value);
    TR_DEBUG(cg->trCtx, cg->debugCtl, "Setting updated maxRetries value=%d , for connectorGroup name = %s\n", cg->maxRetries.load(),
             cg->name);
}

void setRetryInterval(TavConnectorGroup *cg, const char *value) noexcept { cg->maxRetryInterval = tavParseInt(value); }
void setURI(TavConnectorGroup *cg, const char *value) noexcept { tavConnectorGroupSetURI(cg, value); }
void setMaxWaitOffset(TavConnectorGroup *cg, const char *value) noexcept { cg->maxWaitOffset = tavParseInt(value); }

void setAdminTraffic(TavConnectorGroup *cg, const char *value) noexcept {
    cg->enableAdminTraffic = tavStrCmpIgnoreCase(value, "true") == 0;
}

void setProfileType(TavConnectorGroup *cg, const char *value) noexcept {
    if (tavStrCmpIgnoreCase(value, "Brindle") == 0) tavConnectorGroupSetURI(cg, kBrindleURI);
}

constexpr struct {
    const char *name;
    void (*apply)(TavConnectorGroup *cg, const char *value);
} kProperties[] = {
    {"maxRetries", setMaxRetries},
    {"retryInterval", setRetryInterval},
    {"uri", setURI},
    {"maxWaitOffset", setMaxWaitOffset},
    {"enableRoutingToAdminConsole", setAdminTraffic},
    {"profileType", setProfileType},
};

char *applyProperty(void *passback, char *name, char *value) {
    for (const auto &row : kProperties) {
        if (tavStrCmpIgnoreCase(row.name, name) != 0) continue;
        if (value) row.apply(static_cast<TavConnectorGroup *>(passback), value);
        return const_cast<char *>(row.name);
    }
    return nullptr;
}

// ---- life ----

void freeGroup(TavConnectorGroup *cg) noexcept TAV_NO_ANALYSIS {
    tavListDestroy(cg->connectorList);
    tavPropertiesDelete(cg->props);
    for (char *text : {cg->interestSpec, cg->name, cg->uri, cg->restURI}) tavFree(text);
    tavLockDestroy(cg->uriLock);
    Tav *tav = cg->tav;
    tavDestroyRecord(cg);
    tavReleaseRef(tav, "tavConnectorGroupDelete");
}

constexpr struct {
    TrRecord *TavConnectorGroup::*field;
    const char *path;
} kRecords[] = {
    {&TavConnectorGroup::debugCtl, "control.process"},
    {&TavConnectorGroup::noConnectorERR, "control.error.noConnectorError"},
    {&TavConnectorGroup::jsonSentRec, "control.json.sent"},
    {&TavConnectorGroup::connectorStateChangeRec, "control.connectorStateChange"},
};

void initScalars(TavConnectorGroup *cg) noexcept {
    cg->refcnt = 1;
    cg->state = STOPPED;
    cg->waitTime = 300;
    cg->maxRetryInterval = 60;
    cg->maxRetries = 10;
    cg->maxWaitOffset = 5;
    cg->trCtx = tavGetTrContext(cg->tav);
    for (const auto &record : kRecords) cg->*record.field = trRecordGet(tavGetTrMgr(cg->tav), record.path);
}

TavConnectorGroup *newGroup(Tav *tav, const char *name) noexcept {
    auto *cg = tavNewRecord<TavConnectorGroup>();
    if (!cg) return nullptr;
    tavObtainRef(tav, "tavConnectorGroupCreate");
    cg->tav = tav;
    initScalars(cg);
    if ((cg->name = tavStrdup(name)) && (cg->uri = tavStrdup(kDefaultURI)) && (cg->uriLock = tavLockCreateRanked(TavLockRank::Leaf)) &&
        (cg->props = tavPropertiesCreate(applyProperty, cg)) && (cg->connectorList = tavListCreate(nullptr))) {
        tavConnectorGroupUpdateRestURI(cg);
        TavText uri(connectorGroupCopyRestURI(cg));
        if (uri) return cg;
    }
    freeGroup(cg);
    return nullptr;
}

bool isStoppable(TavConnectorGroup *cg) noexcept { return cg->state == STARTING || cg->state == STARTED; }

// From the head every time: a host that hears of a stop may remove connectors.
void stopConnectors(TavConnectorGroup *cg) noexcept {
    const auto firstRunning = [cg]() -> TavConnector * {
        for (TavConnector *c : TavListRange<TavConnector>(cg->connectorList)) {
            if (c->state != STOPPED) return c;
        }
        return nullptr;
    };
    while (TavConnector *c = firstRunning()) tavConnectorStop(c);
}

} // namespace

char *connectorFormat(const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(nullptr, 0, format, args);
    char *text = length < 0 ? nullptr : static_cast<char *>(tavMalloc(static_cast<size_t>(length) + 1));
    if (text) vsnprintf(text, static_cast<size_t>(length) + 1, format, again);
    va_end(again);
    va_end(args);
    return text;
}

bool connectorIsText(const char *text) noexcept {
    json_t *json = json_string(text);
    json_decref(json);
    return json != nullptr;
}

TavConnectorGroup *tavConnectorGroupCreate(Tav *tav, const char *name) TAV_NOEXCEPT {
    if (!tav || !connectorIsText(name)) return nullptr;
    ConnectorTavRef ref(tav, "tavConnectorGroupCreate");
    ConnectorControlScope control("tavConnectorGroupCreate");
    TavConnectorGroup *cg = newGroup(tav, name);
    if (!cg) return nullptr;
    // The instance deletes a group that it has no room for; whether it did so is seen only while we hold the group too.
    tavConnectorGroupObtainRef(cg, "tavConnectorGroupCreate");
    tavAddConnectorGroup(tav, cg);
    const bool added = cg->state != DELETED;
    tavConnectorGroupReleaseRef(cg, "tavConnectorGroupCreate");
    return added ? cg : nullptr;
}

void tavConnectorGroupObtainRef(TavConnectorGroup *cg, const char *reason) noexcept {
    if (!cg) return;
    const int count = ++cg->refcnt;
    TR_DEBUG(cg->trCtx, cg->debugCtl, "Obtained reference to connector group %s, refcnt: %d, reason: %s\n", cg->name, count, reason);
}

void tavConnectorGroupReleaseRef(TavConnectorGroup *cg, const char *reason) noexcept {
    if (!cg) return;
    TR_DEBUG(cg->trCtx, cg->debugCtl, "Released reference to connector group %s, refcnt: %d, reason: %s\n", cg->name, cg->refcnt - 1,
             reason);
    if (--cg->refcnt < 1) freeGroup(cg);
}

void tavConnectorGroupDelete(TavConnectorGroup *cg) TAV_NOEXCEPT {
    if (!cg) return;
    ConnectorTavRef ref(cg->tav, "tavConnectorGroupDelete");
    ConnectorControlScope control("tavConnectorGroupDelete");
    if (cg->state == DELETED) return;
    const bool serves = tavConnectorGetJSON(cg->curConnector) != nullptr;
    const bool stopped = tavConnectorGroupStop(cg) == 0;
    tavRemoveConnectorGroup(cg->tav, cg);
    ++cg->generation;
    while (TavListEle *head = tavListGetHead(cg->connectorList)) tavConnectorDelete(static_cast<TavConnector *>(tavListEleGetObject(head)));
    // A failed group cannot be stopped, but what it brought is still being routed.
    if (serves && !stopped) tavResetRoutingInfo(cg->tav);
    tavConnectorGroupSetState(cg, DELETED, "connector group deleted");
    tavConnectorGroupReleaseRef(cg, "connector group deleted");
}

// ---- properties ----

Boolean tavConnectorGroupSetProperty(TavConnectorGroup *cg, const char *name, const char *value) TAV_NOEXCEPT {
    if (!cg || !name) return FALSE;
    ConnectorControlScope control("tavConnectorGroupSetProperty");
    return tavPropertySet(cg->props, name, value, TRUE) != -1;
}

void tavConnectorGroupSetURI(TavConnectorGroup *cg, const char *uri) TAV_NOEXCEPT {
    if (!cg || !uri) return;
    ConnectorControlScope control("tavConnectorGroupSetURI");
    if (!tavReplaceStr(&cg->uri, uri)) return;
    tavConnectorGroupUpdateRestURI(cg);
    if (strstr(uri, kBrindleURI)) cg->isBrindle = TRUE; // stays on, whatever the URI becomes
}

void tavConnectorGroupSetInterestSpec(TavConnectorGroup *cg, const char *text) TAV_NOEXCEPT {
    if (!cg) return;
    ConnectorControlScope control("tavConnectorGroupSetInterestSpec");
    tavReplaceStr(&cg->interestSpec, text);
}

const char *tavConnectorGroupGetName(TavConnectorGroup *cg) TAV_NOEXCEPT { return cg ? cg->name : nullptr; }
TavComponentState tavConnectorGroupGetState(TavConnectorGroup *cg) TAV_NOEXCEPT { return cg ? cg->state.load() : INVALID; }
int tavConnectorGroupGetWaitTime(TavConnectorGroup *cg) TAV_NOEXCEPT { return cg->waitTime; }
void tavConnectorGroupSetWaitTime(TavConnectorGroup *cg, int seconds) TAV_NOEXCEPT { cg->waitTime = seconds; }
int tavConnectorGroupGetMaxRetries(TavConnectorGroup *cg) TAV_NOEXCEPT { return cg->maxRetries; }
void tavConnectorGroupSetMaxRetries(TavConnectorGroup *cg, int count) TAV_NOEXCEPT { cg->maxRetries = count; }
int tavConnectorGroupGetMaxRetryInterval(TavConnectorGroup *cg) TAV_NOEXCEPT { return cg->maxRetryInterval; }
void tavConnectorGroupSetMaxRetryInterval(TavConnectorGroup *cg, int seconds) TAV_NOEXCEPT { cg->maxRetryInterval = seconds; }
int tavConnectorGroupGetMaxWaitOffset(TavConnectorGroup *cg) TAV_NOEXCEPT { return cg->maxWaitOffset; }
void tavConnectorGroupSetMaxWaitOffset(TavConnectorGroup *cg, int seconds) TAV_NOEXCEPT { cg->maxWaitOffset = seconds; }
Boolean tavConnectorGroupIsBrindle(TavConnectorGroup *cg) TAV_NOEXCEPT { return cg->isBrindle; }
void tavConnectorGroupSetBrindle(TavConnectorGroup *cg, Boolean isBrindle) TAV_NOEXCEPT { cg->isBrindle = isBrindle; }
Boolean tavConnectorGroupGetEnableAdminTraffic(TavConnectorGroup *cg) TAV_NOEXCEPT { return cg->enableAdminTraffic; }
void tavConnectorGroupSetEnableAdminTraffic(TavConnectorGroup *cg, Boolean enable) TAV_NOEXCEPT { cg->enableAdminTraffic = enable; }
Boolean tavConnectorGroupIsInitialized(TavConnectorGroup *cg) noexcept { return cg->initialized; }

void tavConnectorGroupUpdateRestURI(TavConnectorGroup *cg) noexcept {
    TavStringBufferPtr sb(sbCreate(256));
    sbAdd(sb.get(), cg->uri);
    if (const char *server = tavGetServerName(cg->tav)) {
        for (const char *text : {"?name=", server, "&server=", server, tavGetPPID(cg->tav)}) sbAdd(sb.get(), text);
    }
    TavText uri(sb && !sb->failed ? tavStrdup(sbStr(sb.get())) : nullptr);
    if (!uri) return;
    TavLockGuard guard(cg->uriLock, "tavConnectorGroupUpdateRestURI");
    TavText old(cg->restURI);
    cg->restURI = uri.release();
}

char *connectorGroupCopyRestURI(TavConnectorGroup *cg) noexcept {
    TavLockGuard guard(cg->uriLock, "connectorGroupCopyRestURI");
    return tavStrdup(cg->restURI);
}

// ---- connectors of the group ----

TavConnector *tavConnectorGroupFindConnector(TavConnectorGroup *cg, const char *url) TAV_NOEXCEPT {
    if (!cg) return nullptr;
    ConnectorControlScope control("tavConnectorGroupFindConnector");
    for (TavConnector *c : TavListRange<TavConnector>(cg->connectorList)) {
        if (tavStrEquals(c->URL, url)) return c;
    }
    return nullptr;
}

void connectorGroupForget(TavConnectorGroup *cg, TavConnector *c) noexcept {
    if (c->listEle) tavListRemove(cg->connectorList, c->listEle);
    c->listEle = nullptr;
    if (cg->curConnector == c) cg->curConnector = nullptr;
}

void tavConnectorGroupRemoveConnector(TavConnectorGroup *cg, TavConnector *c) TAV_NOEXCEPT {
    if (!cg || !c || c->cg != cg) return;
    ConnectorTavRef ref(cg->tav, "tavConnectorGroupRemoveConnector");
    ConnectorControlScope control("tavConnectorGroupRemoveConnector");
    const bool polling = cg->curConnector == c && isStoppable(cg);
    tavConnectorDelete(c);
    if (!polling) return;
    // The chain went with its connector: another one carries on.
    ++cg->generation;
    tavConnectorGroupRun(cg);
}

TavConnector *tavConnectorGroupGetCurConnector(TavConnectorGroup *cg) noexcept { return cg ? cg->curConnector : nullptr; }

// ---- state ----

Boolean tavConnectorGroupIsStopped(TavConnectorGroup *cg) noexcept { return cg->state == STOPPED || cg->state == DELETED; }

void tavConnectorGroupSetState(TavConnectorGroup *cg, TavComponentState state, const char *reason) noexcept {
    const TavComponentState old = cg->state;
    if (old == state) return;
    TR_DEBUG(cg->trCtx, cg->debugCtl, "TAV connector group %s state change from %s to %s, reason: %s\n", cg->name, tavState2String(old),
             tavState2String(state), reason);
    cg->state = state;
    const auto report = tavGetEnvCallBacks(cg->tav)->stateChange.tavConnectorGroup;
    if (report) report(cg, state, const_cast<char *>(reason));
    tavCheckState(cg->tav);
    tavUpdateControlState(cg->tav, -1);
}

int tavConnectorGroupStart(TavConnectorGroup *cg) TAV_NOEXCEPT {
    if (!cg) return -1;
    ConnectorTavRef ref(cg->tav, "tavConnectorGroupStart");
    ConnectorControlScope control("tavConnectorGroupStart");
    // A worker is fed by its daemon.
    const bool hasController = !tavIsClientProcess(cg->tav) && tavGetState(cg->tav) != DELETED;
    if (!hasController || (cg->state != STOPPED && cg->state != FAILED)) {
        TR_DEBUG(cg->trCtx, cg->debugCtl, "TAV connector group %s is not startable; state is %s\n", cg->name, tavState2String(cg->state));
        return -1;
    }
    ++cg->generation;
    cg->consecutiveFailures = 0;
    for (TavConnector *c : TavListRange<TavConnector>(cg->connectorList)) c->failures = 0;
    tavConnectorGroupSetState(cg, STARTING, "starting");
    tavConnectorGroupRun(cg);
    return 0;
}

int tavConnectorGroupStop(TavConnectorGroup *cg) TAV_NOEXCEPT {
    if (!cg) return -1;
    ConnectorTavRef ref(cg->tav, "tavConnectorGroupStop");
    ConnectorControlScope control("tavConnectorGroupStop");
    if (!isStoppable(cg)) return -1;
    ++cg->generation;
    tavConnectorGroupSetState(cg, STOPPING, "stopping");
    stopConnectors(cg);
    cg->curConnector = nullptr;
    tavResetRoutingInfo(cg->tav);
    tavConnectorGroupSetState(cg, STOPPED, "stopped");
    return 0;
}

void tavConnectorGroupQuiesce(TavConnectorGroup *cg) noexcept {
    if (!isStoppable(cg)) ++cg->generation;
}

json_t *tavConnectorGroupToJSON(TavConnectorGroup *cg) noexcept {
    return json_pack("{s:s, s:o}", "state", tavState2String(cg->state), "connectors", tavConnectorsToJSON(cg));
}
