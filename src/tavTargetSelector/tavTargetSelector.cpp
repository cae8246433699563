// The target selector: life, lock scope and membership.
//
// Idea: the configuration keeps a topology of nodes, clusters, servers, server applications and endpoints; each web module has a virtual
// cluster that lists the server applications able to serve it. A request keeps its session's server when it can and is otherwise balanced
// over its module's virtual cluster.
//
// Invariants (under the lock):
//  - A record deleted by the configuration is found by no selection; it stays for the requests that hold it and is freed at count zero.
//  - `routable` is what the connector was told; a routable server application has the notice of its end in stock.
//  - Whoever is in a list that is not its owner's has a TsMember for that place, so it can leave without a search.
//  - A virtual cluster's array has room for its whole list: filling it never fails.
//
// Ownership: the selector owns all records. Servers count their node, cluster and connector, server applications their connector, and
// each selected request counts its server application, endpoint, server, node and cluster (TsTargetInfo).
//
// Lock: one per selector, rank TargetSelector. Host callbacks run under it only where selection reads cookies or the path and where host
// endpoints are made or dropped. Connectors are told after it (TsScope).
#include "tavTargetSelector/tavTargetSelector.h"

#include <algorithm>
#include <iterator>

#include "tavRequestMapper/tavHttpAffinityPolicy.h"
#include "tavTargetSelector/tavConnectorForSelector.h"
#include "tavTargetSelector/tsAffinityTable.h"

TsLockToken tsSelectorLock;

// ---- scope ----

TsScope::TsScope(TavLock *lock, const char *who) noexcept TAV_NO_ANALYSIS : lock_(lock) { tavLockObtain(lock_, who); }

TsScope::~TsScope() noexcept TAV_NO_ANALYSIS {
    tavLockRelease(lock_);
    if (begun_.first || ended_.first || deadServerApplications_ || deadServers_) settle();
}

void TsScope::send(Notices &notices, Boolean begun) const noexcept {
    while (TsNotice *notice = notices.first) {
        notices.first = notice->next;
        if (!muted_) tavConnectorPostRoutingChange(notice->connector, notice->path, begun, TRUE);
        tsNoticeDelete(notice);
    }
}

void TsScope::settle() noexcept {
    send(begun_, TRUE);
    send(ended_, FALSE);
    while (TargetServerApplication *sapp = deadServerApplications_) {
        deadServerApplications_ = sapp->nextDead;
        if (sapp->connector) tavConnectorReleaseRef(sapp->connector, "server application");
        tavDestroyRecord(sapp);
    }
    while (TargetServer *server = deadServers_) {
        deadServers_ = server->next;
        if (server->connector) tavConnectorReleaseRef(server->connector, "server");
        tavDestroyRecord(server);
    }
}

void TsScope::Notices::add(TsNotice *notice) noexcept {
    if (!notice) return;
    notice->next = nullptr;
    *last = notice;
    last = &notice->next;
}

void TsScope::bury(TargetServerApplication *sapp) noexcept {
    sapp->nextDead = deadServerApplications_;
    deadServerApplications_ = sapp;
}

void TsScope::bury(TargetServer *server) noexcept {
    server->next = deadServers_;
    deadServers_ = server;
}

// ---- notices ----

TsNotice *tsNoticeCreate(const TargetServerApplication *sapp) noexcept {
    auto *notice = tavNewRecord<TsNotice>(nullptr, sapp->connector, nullptr);
    if (!notice) return nullptr;
    notice->path = tavSharedTextObtain(sapp->path);
    if (notice->connector) tavConnectorObtainRef(notice->connector, "routing change");
    return notice;
}

void tsNoticeDelete(TsNotice *notice) noexcept {
    if (!notice) return;
    if (notice->connector) tavConnectorReleaseRef(notice->connector, "routing change");
    tavSharedTextRelease(notice->path);
    tavDestroyRecord(notice);
}

// ---- membership ----

Boolean tsMemberAdd(TsMember **chain, TavList *list, void *container, void *object) noexcept {
    auto *member = tavNewRecord<TsMember>();
    if (!member) return FALSE;
    tavListLinkTail(list, &member->ele, object);
    member->list = list;
    member->container = container;
    member->next = *chain;
    *chain = member;
    return TRUE;
}

TsMember *tsMemberFindOldest(TsMember *chain, const void *container) noexcept {
    TsMember *found = nullptr;
    for (; chain; chain = chain->next) {
        if (chain->container == container) found = chain;
    }
    return found;
}

void tsMemberDrop(TsMember **chain, TsMember *member) noexcept {
    while (*chain != member) chain = &(*chain)->next;
    *chain = member->next;
    tavListUnlink(member->list, &member->ele);
    tavDestroyRecord(member);
}

// ---- states ----

namespace {
constexpr const char *usualStates[] = {"STARTED", "STOPPED", "AFFINITY", "QUIESCING", "QUIESCED"};
} // namespace

char *tsStateCopy(const char *state) noexcept {
    for (const char *usual : usualStates) {
        if (tavStrEquals(usual, state)) return const_cast<char *>(usual);
    }
    return tavStrdup(state);
}

void tsStateFree(char *state) noexcept {
    if (std::find(std::begin(usualStates), std::end(usualStates), state) == std::end(usualStates)) tavFree(state);
}

// ---- names of values ----

namespace {
// Index: the value.
constexpr const char *protocolNames[TS_PROTOCOLS] = {"http", "https"};
constexpr const char *maintenanceModeNames[] = {"normal", "affinity", "break"};
constexpr const char *serverTypeNames[] = {nullptr,      "NODE_AGENT",         "DEPLOYMENT_MANAGER",
                                           "WEB_SERVER", "APPLICATION_SERVER", "BRINDLE_SERVER"};

struct RecordName {
    TrRecord *TargetSelector::*record;
    const char *path;
};
constexpr RecordName recordNames[] = {
    {&TargetSelector::selectRec, "http.request.select.process"},
    {&TargetSelector::rolloutRec, "http.request.select.editionRollout"},
    {&TargetSelector::affinityRec, "http.request.select.affinity.process"},
    {&TargetSelector::keepAffinityRec, "http.request.select.affinity.keep"},
    {&TargetSelector::breakAffinityRec, "http.request.select.affinity.break"},
    {&TargetSelector::balanceRec, "http.request.select.balance"},
    {&TargetSelector::error503Rec, "http.response.error.503"},
    {&TargetSelector::controlRec, "control.selector"},
    {&TargetSelector::serverStateRec, "control.serverStateChange"},
};
} // namespace

TavServerType tsServerTypeFromString(const char *name) noexcept {
    for (size_t i = 1; i < std::size(serverTypeNames); i++) {
        if (tavStrEquals(name, serverTypeNames[i])) return static_cast<TavServerType>(i);
    }
    return TAVSERVERTYPE_UNKNOWN;
}

const char *tsMaintenanceModeToString(int mode) noexcept {
    const auto i = static_cast<size_t>(mode);
    return i < std::size(maintenanceModeNames) ? maintenanceModeNames[i] : "unknown server maintenance mode";
}

int tsProtocolToIndex(const char *protocol) noexcept {
    for (int i = 0; i < TS_PROTOCOLS; i++) {
        if (tavStrEquals(protocol, protocolNames[i])) return i;
    }
    return -1;
}

const char *tsIndexToProtocol(int index) noexcept { return index >= 0 && index < TS_PROTOCOLS ? protocolNames[index] : "invalidProtocol"; }

// ---- life ----

TargetSelector *tsCreate(TavRoutingInfo *ri) noexcept {
    auto *ts = tavNewRecord<TargetSelector>();
    if (!ts) return nullptr;
    ts->ri = ri;
    ts->virtualClusterGeneration = 1; // a new hint has 0
    ts->affinityGeneration = 1;
    ts->tav = tavRoutingInfoGetTav(ri);
    ts->lock = tavLockCreateRanked(TavLockRank::TargetSelector);
    ts->virtualClusterMap = tavHashMapCreate();
    ts->serverMapByCloneId = tavHashMapCreate();
    ts->nodes = tavListCreate(nullptr);
    ts->clusters = tavListCreate(nullptr);
    if (!ts->lock || !ts->virtualClusterMap || !ts->serverMapByCloneId || !ts->nodes || !ts->clusters) {
        tsDelete(ts);
        return nullptr;
    }
    TrMgr *mgr = getTavTrMgr(ts->tav);
    ts->trCtx = trMgrGetDefaultContext(mgr);
    for (const RecordName &name : recordNames) ts->*name.record = trRecordGet(mgr, name.path);
    TR_DEBUG(ts->trCtx, ts->controlRec, "TargetSelector created\n");
    return ts;
}

TavRoutingInfo *tsGetRoutingInfo(const TargetSelector *ts) noexcept { return ts ? ts->ri : nullptr; }

// Frees every record, whatever its count: no request is left.
static void freeTopology(TsScope &scope, TargetSelector *ts) noexcept TS_LOCKED {
    scope.mute();
    while (ts->firstServer) serverFree(scope, ts->firstServer);
    for (TargetNode *node : TavListRange<TargetNode>(ts->nodes)) nodeFree(node);
    for (Cluster *cluster : TavListRange<Cluster>(ts->clusters)) clusterFree(cluster);
    ts->selected = 0;
    tsFreeFormerClusters(ts);
    for (auto [name, vc] : TavHashRange<VirtualCluster>(ts->virtualClusterMap)) virtualClusterFree(vc);
    affinityTableFree(ts);
    while (HttpAffinityPolicy *policy = ts->ownedPolicies) {
        ts->ownedPolicies = policy->nextRetired;
        hapDelete(policy);
    }
}

void tsDelete(TargetSelector *ts) noexcept {
    if (!ts) return;
    if (ts->lock) {
        TsScope scope(ts->lock, "tsDelete");
        freeTopology(scope, ts);
    }
    tavListDestroy(ts->nodes);
    tavListDestroy(ts->clusters);
    tavHashMapDestroy(ts->virtualClusterMap);
    tavHashMapDestroy(ts->serverMapByCloneId);
    tavLockDestroy(ts->lock);
    tavDestroyRecord(ts);
}
