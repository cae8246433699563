// Server applications: an application (edition) on one server, its state, and what the connector is told about it.
#include "tavTargetSelector/tavConnectorForSelector.h"
#include "tavTargetSelector/tsInternal.h"

namespace {
struct StateRow {
    const char *state; // any case
    const char *noLoadBalancing;
    const char *noAffinity;
};
constexpr StateRow stateRows[] = {
    {"STARTED", nullptr, nullptr},
    {"AFFINITY", "in affinity mode", nullptr},
    {"QUIESCING", "in QUIESCING state", "in QUIESCING state"},
    {"QUIESCED", "in QUIESCE state", "in QUIESCE state"},
};
constexpr StateRow nullState = {nullptr, "null state", "null state"};
constexpr StateRow otherState = {nullptr, "not STARTED", "not STARTED"};
constexpr const char *reasonAtCreation = "server application is STOPPED";

const StateRow &rowOfState(const char *state) noexcept {
    if (!state) return nullState;
    for (const StateRow &row : stateRows) {
        if (tavStrCmpIgnoreCase(row.state, state) == 0) return row;
    }
    return otherState;
}
} // namespace

static void sappRecomputeSelectability(TargetServerApplication *sapp) noexcept TS_LOCKED {
    const StateRow &row = rowOfState(sapp->state);
    sapp->reasonForNoLoadBalancing = row.noLoadBalancing;
    sapp->reasonForNoAffinity = row.noAffinity;
}

// ---- a server's applications by name ----

static constexpr int MAPPED_FROM = 8; // fewer are walked

static TargetServerApplication *walkForName(const TargetServer *server, const char *name) noexcept TS_LOCKED {
    for (TargetServerApplication *sapp : TavListRange<TargetServerApplication>(server->serverApplications)) {
        if (!sapp->deleted && tavStrEquals(sapp->name, name)) return sapp;
    }
    return nullptr;
}

TargetServerApplication *serverFindServerApplication(const TargetServer *server, const char *name) noexcept {
    if (!server->serverApplicationMap) return walkForName(server, name);
    return static_cast<TargetServerApplication *>(tavHashGet(server->serverApplicationMap, name));
}

TargetServerApplication *serverFindServerApplication(const TargetServer *server, const char *name, int hash) noexcept {
    if (!server->serverApplicationMap) return walkForName(server, name);
    return static_cast<TargetServerApplication *>(tavHashGet2(server->serverApplicationMap, name, hash));
}

// Of several with one name the first of the list that was not deleted is found.
static void mapRepair(TargetServer *server, const char *name) noexcept TS_LOCKED {
    tavHashPut(server->serverApplicationMap, name, walkForName(server, name));
}

static Boolean mapAdd(TavHashMap *map, TargetServerApplication *sapp) noexcept TS_LOCKED {
    return tavHashGet(map, sapp->name) || tavHashPut(map, sapp->name, sapp) != sapp;
}

// FALSE without memory: there is no map then.
static Boolean mapCreate(TargetServer *server) noexcept TS_LOCKED {
    TavHashMapPtr map(tavHashMapCreate());
    if (!map) return FALSE;
    for (TargetServerApplication *sapp : TavListRange<TargetServerApplication>(server->serverApplications)) {
        if (!sapp->deleted && !mapAdd(map.get(), sapp)) return FALSE;
    }
    server->serverApplicationMap = map.release();
    return TRUE;
}

// FALSE without memory.
static Boolean attach(TargetServerApplication *sapp) noexcept TS_LOCKED {
    TargetServer *server = sapp->server;
    tavListLinkTail(server->serverApplications, &sapp->ele, sapp);
    server->selector->serverApplicationCount++;
    if (server->serverApplicationMap) return mapAdd(server->serverApplicationMap, sapp);
    return tavListGetCount(server->serverApplications) < MAPPED_FROM || mapCreate(server);
}

// ---- life ----

Boolean tsServerApplicationCreate(TargetServer *server, const char *path, TavConnector *connector, TavServerApplication *handle) noexcept {
    return tsServerApplicationCreateShared(server, TavSharedText(tavSharedTextCreate(path)).get(), connector, handle);
}

Boolean tsServerApplicationCreateShared(TargetServer *server, const char *path, TavConnector *connector,
                                        TavServerApplication *handle) noexcept {
    handle->stale = TRUE;
    handle->serverApplication = nullptr;
    handle->lock = nullptr;
    if (!server || !path) return FALSE;
    auto *sapp = tavNewRecord<TargetServerApplication>();
    if (!sapp) return FALSE;
    sapp->refcnt = 1;
    sapp->server = server;
    sapp->path = tavSharedTextObtain(path);
    sapp->name = tavPathToName(sapp->path);
    sapp->state = tsStateCopy("STOPPED");
    sapp->reasonForNoLoadBalancing = reasonAtCreation;
    sapp->reasonForNoAffinity = reasonAtCreation;
    sapp->connector = connector;
    if (connector) tavConnectorObtainRef(connector, "server application");
    TsScope scope(server->selector->lock, "tsServerApplicationCreate");
    if (!attach(sapp)) {
        serverApplicationFree(scope, sapp);
        return FALSE;
    }
    sapp->tavServerApplication = handle;
    handle->serverApplication = sapp;
    handle->lock = server->selector->lock;
    handle->stale = FALSE;
    return TRUE;
}

Boolean tsServerApplicationInit(TavServerApplication *) noexcept { return TRUE; }

TavServerApplication *tsServerGetTavServerApplication(TargetServer *server, const char *name) noexcept {
    if (!server) return nullptr;
    TsScope scope(server->selector->lock, "tsServerGetTavServerApplication");
    const TargetServerApplication *sapp = serverFindServerApplication(server, name);
    return sapp ? sapp->tavServerApplication : nullptr;
}

TargetServer *tsServerApplicationGetServer(const TargetServerApplication *sapp) noexcept { return sapp ? sapp->server : nullptr; }

// ---- state ----

static void logRoutability(const TargetServerApplication *sapp, Boolean was) noexcept TS_LOCKED {
    TargetSelector *ts = sapp->server->selector;
    TR_DEBUG(ts->trCtx, ts->controlRec, "serverApplicationSetState: path=%s, state=%s, routable=%d, old routable=%d, outstanding=%d\n",
             sapp->path, tavOrNull(sapp->state), sapp->routable, was, sapp->outstandingRequestCount);
}

void serverApplicationSettleRoute(TsScope &scope, TargetServerApplication *sapp) noexcept {
    if (!sapp->routable || !sapp->reasonForNoAffinity || sapp->outstandingRequestCount > 0) return;
    scope.notifyEnded(sapp->endNotice);
    sapp->endNotice = nullptr;
    sapp->routable = FALSE;
}

Boolean serverApplicationSetState(TsScope &scope, TargetServerApplication *sapp, const char *state) noexcept {
    if (tavStrEquals(sapp->state, state) || (!sapp->state && !state)) return TRUE;
    const Boolean was = sapp->routable;
    const bool becomes = !was && !rowOfState(state).noAffinity;
    char *copy = tsStateCopy(state);
    TsNotice *addNotice = becomes ? tsNoticeCreate(sapp) : nullptr;
    TsNotice *endNotice = becomes ? tsNoticeCreate(sapp) : nullptr;
    if ((state && !copy) || (becomes && (!addNotice || !endNotice))) {
        tsNoticeDelete(addNotice); // never the last reference: the server application has its own
        tsNoticeDelete(endNotice);
        tsStateFree(copy);
        return FALSE;
    }
    tsStateFree(sapp->state);
    sapp->state = copy;
    sappRecomputeSelectability(sapp);
    if (becomes) {
        serverApplicationRetryLinks(sapp);
        scope.notifyBegun(addNotice);
        sapp->endNotice = endNotice;
        sapp->routable = TRUE;
    }
    serverApplicationSettleRoute(scope, sapp);
    logRoutability(sapp, was);
    return TRUE;
}

// ---- handle ----

// The lock of a handle that is not stale, or null. tsDelete leaves no lock behind, so `stale` is looked at before taking it, and, because a
// request may free the record meanwhile, once more after.
static TavLock *handleLock(const TavServerApplication *handle) noexcept { return handle && !handle->stale ? handle->lock : nullptr; }

Boolean tsServerApplicationSetPropStr(TavServerApplication *handle, const char *name, const char *value) noexcept {
    TavLock *lock = handleLock(handle);
    if (!lock || !tavStrEquals(name, "state")) return FALSE;
    TsScope scope(lock, "tsServerApplicationSetPropStr");
    return !handle->stale && serverApplicationSetState(scope, handle->serverApplication, value);
}

Boolean tsServerApplicationSetPropInt(TavServerApplication *, const char *, int) noexcept { return FALSE; }

Boolean tsServerApplicationSetPropBool(TavServerApplication *, const char *, Boolean) noexcept { return FALSE; }

// The link between handle and record ends on both sides. Returns the record, or null when there was no link.
static TargetServerApplication *unlinkHandle(TavServerApplication *handle) noexcept TS_LOCKED {
    if (handle->stale) return nullptr;
    TargetServerApplication *sapp = handle->serverApplication;
    handle->serverApplication = nullptr;
    handle->stale = TRUE;
    sapp->tavServerApplication = nullptr;
    return sapp;
}

void tsServerApplicationForgetHandle(TavServerApplication *handle) noexcept {
    TavLock *lock = handleLock(handle);
    if (!lock) return;
    TsScope scope(lock, "tsServerApplicationForgetHandle");
    unlinkHandle(handle);
}

void tsServerApplicationDelete(TavServerApplication *handle) noexcept {
    TavLock *lock = handleLock(handle);
    if (!lock) return;
    TsScope scope(lock, "tsServerApplicationDelete");
    TargetServerApplication *sapp = unlinkHandle(handle);
    if (!sapp) return;
    serverApplicationForget(sapp);
    serverApplicationDelete(scope, sapp);
}

// ---- deletion ----

void serverApplicationForget(TargetServerApplication *sapp) noexcept {
    sapp->deleted = TRUE;
    sapp->server->selector->affinityGeneration++;
    while (sapp->memberships) virtualClusterRemove(static_cast<VirtualCluster *>(sapp->memberships->container), sapp);
    if (tavHashGet(sapp->server->serverApplicationMap, sapp->name) == sapp) mapRepair(sapp->server, sapp->name);
}

void serverApplicationDelete(TsScope &scope, TargetServerApplication *sapp) noexcept {
    if (--sapp->refcnt < 1) serverApplicationFree(scope, sapp);
}

void serverApplicationFree(TsScope &scope, TargetServerApplication *sapp) noexcept {
    if (sapp->tavServerApplication) unlinkHandle(sapp->tavServerApplication);
    if (sapp->routable) scope.notifyEnded(sapp->endNotice);
    if (sapp->ele.object) {
        serverApplicationForget(sapp);
        tavListUnlink(sapp->server->serverApplications, &sapp->ele);
        sapp->server->selector->serverApplicationCount--;
    }
    tavSharedTextRelease(sapp->path);
    tsStateFree(sapp->state);
    scope.bury(sapp);
}
