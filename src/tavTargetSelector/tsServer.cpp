// Servers: creation, getters, what the configuration's deletion and the last release do. Properties are in tsServerProperties.cpp.
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavTargetSelector/tavConnectorForSelector.h"
#include "tavTargetSelector/tsInternal.h"

static void initCalculators(TargetServer *server) noexcept {
    tavAvgCalcInit(&server->avgResponseTimeCalc, TS_RESPONSE_TIME_INTERVAL);
    tavTimeoutCalcInit(&server->timeoutCalc, TS_TIMEOUT_INTERVAL);
}

static void chain(TargetServer *server) noexcept TS_LOCKED {
    TargetSelector *ts = server->selector;
    server->next = ts->firstServer;
    if (server->next) server->next->prev = server;
    ts->firstServer = server;
}

static void unchain(TargetServer *server) noexcept TS_LOCKED {
    if (server->next) server->next->prev = server->prev;
    (server->prev ? server->prev->next : server->selector->firstServer) = server->next;
}

TargetServer *tsServerCreate(TargetNode *node, const char *name, TavConnector *connector) noexcept {
    return tsServerCreateShared(node, TavSharedText(tavSharedTextCreate(name)).get(), connector);
}

TargetServer *tsServerCreateShared(TargetNode *node, const char *name, TavConnector *connector) noexcept {
    if (!node || !name) return nullptr;
    auto *server = tavNewRecord<TargetServer>();
    if (!server) return nullptr;
    server->refcnt = 1;
    server->node = node;
    server->selector = node->selector;
    server->connector = connector;
    if (connector) tavConnectorObtainRef(connector, "server");
    server->weight = -1;
    server->maxConnections = 99999;
    server->nextRetryInterval = TS_FIRST_RETRY_INTERVAL;
    initCalculators(server);
    server->name = tavSharedTextObtain(name);
    server->state = tsStateCopy("STOPPED");
    for (int i = 0; i < TS_PROTOCOLS; i++) server->endPoints[i] = &server->endPointLists[i];
    server->serverApplications = &server->serverApplicationList;
    TsScope scope(server->selector->lock, "tsServerCreate");
    node->refcnt++;
    chain(server);
    serverRecomputeSelectability(server);
    return server;
}

Boolean tsServerInit(TargetServer *server) noexcept {
    if (!server) return FALSE;
    TsScope scope(server->selector->lock, "tsServerInit");
    if (!server->nodeEle) server->nodeEle = tavListAddTail(server->node->servers, server);
    return server->nodeEle != nullptr;
}

// ---- getters ----

TavServerType tsServerGetType(const TargetServer *server) noexcept { return server ? server->type.load() : TAVSERVERTYPE_UNKNOWN; }
const char *tsServerGetName(const TargetServer *server) noexcept { return server ? server->name : nullptr; }
const char *tsServerGetSessionAffinityCookies(const TargetServer *server) noexcept {
    return server ? server->sessionAffinityCookies : nullptr;
}
Boolean tsServerGetCloneSeparatorChange(const TargetServer *server) noexcept {
    return server ? server->cloneSeparatorChange.load() : FALSE;
}
const char *tsServerGetCloneId(const TargetServer *server) noexcept { return server ? server->cloneId.load() : nullptr; }
Cluster *tsServerGetCluster(const TargetServer *server) noexcept { return server ? server->cluster.load() : nullptr; }
TargetNode *tsServerGetNode(const TargetServer *server) noexcept { return server ? server->node : nullptr; }
TavConnector *tsServerGetConnector(const TargetServer *server) noexcept { return server ? server->connector : nullptr; }

// ---- endpoints per protocol ----

TavTargetEndpoint *endPointFirst(const TavList *list) noexcept {
    for (TavTargetEndpoint *endpoint : TavListRange<TavTargetEndpoint>(list)) {
        if (!endpoint->deleted) return endpoint;
    }
    return nullptr;
}

void serverChooseEndPoints(TargetServer *server) noexcept {
    TavTargetEndpoint *first[TS_PROTOCOLS] = {endPointFirst(server->endPoints[0]), endPointFirst(server->endPoints[1])};
    for (int i = 0; i < TS_PROTOCOLS; i++) server->usualEndPoint[i] = first[i] ? first[i] : first[1 - i];
}

// ---- health policies ----

Boolean tsLinkServerToHealthPolicy(TargetServer *server, HealthPolicy *policy, Boolean add) noexcept {
    if (!server || !policy) return FALSE;
    TsScope scope(server->selector->lock, "tsLinkServerToHealthPolicy");
    if (!server->healthPolicies) server->healthPolicies = tavListCreate(hmHealthPolicyLinkDelete);
    if (!server->healthPolicies) return !add;
    hmLinkServerToHealthPolicy(server->selector->tav, server, server->healthPolicies, policy, add);
    return TRUE;
}

// ---- deletion ----

// Another server may have come with the same clone id since: its entry stays.
void serverClearCloneId(TargetServer *server) noexcept {
    TavHashMap *map = server->selector->serverMapByCloneId;
    const char *cloneId = server->cloneId;
    if (!cloneId || tavHashGet(map, cloneId) != server) return;
    tavHashPut(map, cloneId, nullptr);
    server->selector->affinityGeneration++;
}

void serverForget(TargetServer *server) noexcept {
    server->deleted = TRUE;
    serverClearCloneId(server);
    for (TargetServerApplication *sapp : TavListRange<TargetServerApplication>(server->serverApplications)) {
        while (sapp->memberships) virtualClusterRemove(static_cast<VirtualCluster *>(sapp->memberships->container), sapp);
    }
}

static void freeServerApplications(TsScope &scope, TargetServer *server) noexcept TS_LOCKED {
    tavHashMapDestroy(server->serverApplicationMap);
    server->serverApplicationMap = nullptr; // so that no server application looks for its successor
    for (TargetServerApplication *sapp : TavListRange<TargetServerApplication>(server->serverApplications))
        serverApplicationFree(scope, sapp);
}

static void freeEndPoints(TargetServer *server) noexcept TS_LOCKED {
    while (TavTargetEndpoint *endpoint = server->firstEndPoint) {
        server->firstEndPoint = endpoint->next;
        endPointFree(endpoint);
    }
    for (TavList *list : server->endPoints) tavListClean(list);
}

static void freeTexts(TargetServer *server) noexcept TS_LOCKED {
    tavSharedTextRelease(server->name);
    tsStateFree(server->state);
    tavFree(server->cloneId);
    tavFree(server->sessionAffinityCookies);
}

void serverFree(TsScope &scope, TargetServer *server) noexcept {
    tavListDestroy(server->linkRequests);
    freeServerApplications(scope, server);
    tavListDestroy(server->healthPolicies);
    freeEndPoints(server);
    serverClearCloneId(server);
    while (server->memberships) tsMemberDrop(&server->memberships, server->memberships);
    if (Cluster *cluster = server->cluster) clusterDelete(cluster);
    if (server->nodeEle) tavListRemove(server->node->servers, server->nodeEle);
    nodeDelete(server->node);
    unchain(server);
    freeTexts(server);
    scope.bury(server);
}

void serverDelete(TsScope &scope, TargetServer *server) noexcept {
    if (--server->refcnt < 1) return serverFree(scope, server);
    TargetSelector *ts = server->selector;
    TR_DEBUG(ts->trCtx, ts->controlRec, "serverDelete: release %s (refcnt=%d)\n", server->name, server->refcnt);
}

void tsServerDelete(TargetServer *server) noexcept {
    if (!server) return;
    TsScope scope(server->selector->lock, "tsServerDelete");
    if (server->deleted) return; // its node took it along
    serverForget(server);
    serverDelete(scope, server);
}
