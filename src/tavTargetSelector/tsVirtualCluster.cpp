// Virtual clusters: the server applications that can serve one web module, and the links that put them there.
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tsInternal.h"

VirtualCluster *virtualClusterFind(TargetSelector *ts, const char *name) noexcept {
    return static_cast<VirtualCluster *>(tavHashGet(ts->virtualClusterMap, name));
}

// A record that is in no map yet, or null without memory.
static VirtualCluster *newVirtualCluster(TargetSelector *ts, const char *name) noexcept TS_LOCKED {
    auto *vc = tavNewRecord<VirtualCluster>();
    if (!vc) return nullptr;
    vc->selector = ts;
    vc->name = tavStrdup(name);
    vc->sappList = tavListCreate(nullptr);
    vc->sappArray = static_cast<TargetServerApplication **>(tavMalloc(sizeof(*vc->sappArray)));
    vc->clusterList = tavListCreate(nullptr);
    if (vc->name && vc->sappList && vc->sappArray && vc->clusterList) return vc;
    virtualClusterFree(vc);
    return nullptr;
}

VirtualCluster *virtualClusterFindOrCreate(TargetSelector *ts, const char *name) noexcept {
    VirtualCluster *vc = virtualClusterFind(ts, name);
    if (vc) return vc;
    vc = newVirtualCluster(ts, name);
    if (!vc || tavHashPut(ts->virtualClusterMap, name, vc) != vc) return vc;
    virtualClusterFree(vc);
    return nullptr;
}

VirtualCluster *tsVirtualClusterCreate(TargetSelector *ts, WebModule *webModule, const char *name) noexcept {
    if (!ts || !name) return nullptr;
    TsScope scope(ts->lock, "tsVirtualClusterCreate");
    VirtualCluster *vc = virtualClusterFindOrCreate(ts, name);
    if (!vc) return nullptr;
    vc->webModule = webModule;
    vc->affinityPolicy = nullptr;
    return vc;
}

VirtualCluster *tsFindVirtualCluster(TargetSelector *ts, const char *moduleName) noexcept {
    if (!ts) return nullptr;
    TsScope scope(ts->lock, "tsFindVirtualCluster");
    return virtualClusterFind(ts, moduleName);
}

// ---- members ----

// Doubles the room when the list has outgrown it. FALSE without memory.
static Boolean reserve(VirtualCluster *vc, int count) noexcept TS_LOCKED {
    if (count <= vc->sappCapacity) return TRUE;
    const int capacity = count < 8 ? 8 : count * 2;
    const size_t slots = static_cast<size_t>(capacity) + 1;
    auto **array = static_cast<TargetServerApplication **>(tavMalloc(slots * (sizeof(TargetServerApplication *) + sizeof(TargetServer *))));
    if (!array) return FALSE;
    tavFree(vc->sappArray);
    vc->sappArray = array;
    vc->serverArray = reinterpret_cast<TargetServer **>(array + slots);
    vc->sappCapacity = capacity;
    vc->arrayStale = TRUE;
    return TRUE;
}

int virtualClusterArray(VirtualCluster *vc) noexcept {
    if (vc->arrayStale) {
        int count = 0;
        for (TargetServerApplication *sapp : TavListRange<TargetServerApplication>(vc->sappList)) {
            vc->serverArray[count] = sapp->server;
            vc->sappArray[count++] = sapp;
        }
        vc->sappArray[count] = nullptr;
        vc->arrayStale = FALSE;
    }
    return tavListGetCount(vc->sappList);
}

Boolean virtualClusterAdd(VirtualCluster *vc, TargetServerApplication *sapp) noexcept {
    if (sapp->deleted || sapp->server->deleted || tsMemberFindOldest(sapp->memberships, vc)) return TRUE;
    if (!reserve(vc, tavListGetCount(vc->sappList) + 1)) return FALSE;
    if (!tsMemberAdd(&sapp->memberships, vc->sappList, vc, sapp)) return FALSE;
    vc->arrayStale = TRUE;
    return TRUE;
}

void virtualClusterRemove(VirtualCluster *vc, TargetServerApplication *sapp) noexcept {
    TsMember *member = tsMemberFindOldest(sapp->memberships, vc);
    if (!member) return;
    tsMemberDrop(&sapp->memberships, member);
    vc->arrayStale = TRUE;
    vc->loadBalanceIndex = 0;
}

// ---- clusters ----

static void chooseHead(VirtualCluster *vc) noexcept TS_LOCKED {
    TavListEle *head = tavListGetHead(vc->clusterList);
    vc->cluster = head ? static_cast<Cluster *>(tavListEleGetObject(head)) : nullptr;
}

void virtualClusterDropCluster(VirtualCluster *vc, Cluster *cluster) noexcept {
    TsMember *member = tsMemberFindOldest(cluster->memberships, vc);
    if (member) tsMemberDrop(&cluster->memberships, member);
    chooseHead(vc);
}

Boolean tsLinkVirtualClusterToCluster(VirtualCluster *vc, Cluster *cluster, Boolean add) noexcept {
    if (!vc || !cluster) return FALSE;
    TsScope scope(vc->selector->lock, "tsLinkVirtualClusterToCluster");
    Boolean done = TRUE;
    if (!add)
        virtualClusterDropCluster(vc, cluster);
    else if (!tavListFind(vc->clusterList, cluster))
        done = tsMemberAdd(&cluster->memberships, vc->clusterList, vc, cluster);
    chooseHead(vc);
    return done;
}

// ---- deletion ----

void virtualClusterFree(VirtualCluster *vc) noexcept {
    for (TargetServerApplication *sapp : TavListRange<TargetServerApplication>(vc->sappList)) virtualClusterRemove(vc, sapp);
    for (Cluster *cluster : TavListRange<Cluster>(vc->clusterList)) virtualClusterDropCluster(vc, cluster);
    tavListDestroy(vc->sappList);
    tavListDestroy(vc->clusterList);
    tavFree(vc->sappArray);
    tavFree(vc->name);
    tavDestroyRecord(vc);
}

void tsVirtualClusterDelete(VirtualCluster *vc) noexcept {
    if (!vc) return;
    TsScope scope(vc->selector->lock, "tsVirtualClusterDelete");
    tavHashPut(vc->selector->virtualClusterMap, vc->name, nullptr);
    vc->selector->virtualClusterGeneration++;
    virtualClusterFree(vc);
}

// ---- servers' links to web modules ----

void linkRequestDelete(void *object) noexcept {
    auto *request = static_cast<LinkServerToWebModuleRequest *>(object);
    if (!request) return;
    tavFree(request->appName);
    tavFree(request->moduleName);
    tavDestroyRecord(request);
}

static LinkServerToWebModuleRequest *linkRequestCreate(const char *appName, const char *moduleName) noexcept {
    auto *request = tavNewRecord<LinkServerToWebModuleRequest>();
    if (!request) return nullptr;
    request->appName = tavStrdup(appName);
    request->moduleName = tavStrdup(moduleName);
    if (request->appName && request->moduleName) return request;
    linkRequestDelete(request);
    return nullptr;
}

namespace {
enum class LinkResult { Linked, NoServerApplication, NoMemory };
} // namespace

static LinkResult tryLink(TargetServer *server, const LinkServerToWebModuleRequest *request) noexcept TS_LOCKED {
    TargetSelector *ts = server->selector;
    TargetServerApplication *sapp = serverFindServerApplication(server, request->appName);
    if (!sapp) return LinkResult::NoServerApplication;
    VirtualCluster *vc = virtualClusterFindOrCreate(ts, request->moduleName);
    if (!vc || !virtualClusterAdd(vc, sapp)) return LinkResult::NoMemory;
    TR_DEBUG(ts->trCtx, ts->controlRec, "virtualClusterAdd: module='%s', appName='%s'\n", request->moduleName, request->appName);
    return LinkResult::Linked;
}

// Keeps the request until its server application comes. FALSE without memory: it is gone.
static Boolean deferLink(TargetServer *server, LinkServerToWebModuleRequest *request) noexcept TS_LOCKED {
    if (!server->linkRequests) server->linkRequests = tavListCreate(linkRequestDelete);
    if (server->linkRequests) return tavListAddTail(server->linkRequests, request) != nullptr; // a failing add frees the request
    linkRequestDelete(request);
    return FALSE;
}

static Boolean addLink(TargetServer *server, LinkServerToWebModuleRequest *request) noexcept TS_LOCKED {
    TargetSelector *ts = server->selector;
    const LinkResult result = tryLink(server, request);
    if (result == LinkResult::NoServerApplication) {
        TR_DEBUG(ts->trCtx, ts->controlRec, "virtualClusterAdd: defer because sapp '%s' was not found for server '%s'\n", request->appName,
                 server->name);
        return deferLink(server, request);
    }
    linkRequestDelete(request);
    return result == LinkResult::Linked;
}

static void removeLink(TargetServer *server, const char *appName, const char *moduleName) noexcept TS_LOCKED {
    VirtualCluster *vc = virtualClusterFind(server->selector, moduleName);
    TargetServerApplication *sapp = serverFindServerApplication(server, appName);
    if (vc && sapp) virtualClusterRemove(vc, sapp);
}

Boolean tsLinkServerToWebModule(TargetServer *server, WebModule *webModule, Boolean add) noexcept {
    if (!server || !webModule) return FALSE;
    TargetSelector *ts = server->selector;
    const char *moduleName = rmWebModuleGetName(webModule);
    const char *appName = rmWebModuleGetAppSimpleName(webModule);
    if (!moduleName || !appName) return FALSE;
    TR_TRACE(ts->trCtx, ts->controlRec, 8, "tsLinkServerToWebModule: server='%s', module='%s', app='%s', add=%d\n", server->name,
             moduleName, appName, add);
    LinkServerToWebModuleRequest *request = add ? linkRequestCreate(appName, moduleName) : nullptr;
    if (add && !request) return FALSE;
    TsScope scope(ts->lock, "tsLinkServerToWebModule");
    if (add) return addLink(server, request);
    removeLink(server, appName, moduleName);
    return TRUE;
}

void serverApplicationRetryLinks(TargetServerApplication *sapp) noexcept {
    TavList *requests = sapp->server->linkRequests;
    for (TavListEle *ele = tavListGetHead(requests); ele;) {
        TavListEle *next = tavListGetNext(ele);
        auto *request = static_cast<LinkServerToWebModuleRequest *>(tavListEleGetObject(ele));
        if (tavStrEquals(request->appName, sapp->name) && tryLink(sapp->server, request) == LinkResult::Linked)
            tavListDelete(requests, ele);
        ele = next;
    }
}
