// Clusters and their links to servers and virtual clusters. A cluster counts the configuration, each server whose `cluster` it is, and each
// request that was selected while it was.
#include "tavTargetSelector/tsInternal.h"

Cluster *tsClusterCreate(TargetSelector *ts, const char *name) noexcept {
    if (!ts || !name) return nullptr;
    auto *cluster = tavNewRecord<Cluster>();
    if (!cluster) return nullptr;
    cluster->refcnt = 1;
    cluster->selector = ts;
    cluster->name = tavStrdup(name);
    cluster->servers = tavListCreate(nullptr);
    TsScope scope(ts->lock, "tsClusterCreate");
    if (cluster->name && cluster->servers) cluster->ele = tavListAddTail(ts->clusters, cluster);
    if (cluster->ele) return cluster;
    clusterFree(cluster);
    return nullptr;
}

const char *tsClusterGetName(const Cluster *cluster) noexcept { return cluster ? cluster->name : nullptr; }

// ---- properties ----

static void setRollout(Cluster *cluster, Boolean inProgress) noexcept TS_LOCKED {
    if (cluster->editionRolloutInProgress == inProgress) return;
    cluster->editionRolloutInProgress = inProgress;
    TargetSelector *ts = cluster->selector;
    TR_TRACE(ts->trCtx, ts->rolloutRec, 7, "application edition rollout %s for cluster %s\n", inProgress ? "beginning" : "ending",
             cluster->name);
}

// A null value leaves the text as it is.
static Boolean setText(Cluster *cluster, char *Cluster::*field, const char *value, const char *who) noexcept {
    if (!value) return TRUE;
    TsScope scope(cluster->selector->lock, who);
    return tavReplaceStr(&(cluster->*field), value);
}

Boolean tsClusterSetSessionAffinityCookies(Cluster *cluster, const char *cookies) noexcept {
    return setText(cluster, &Cluster::sessionAffinityCookies, cookies, "tsClusterSetSessionAffinityCookies");
}

Boolean tsClusterSetCloneIdSeparator(Cluster *cluster, const char *separator) noexcept {
    return setText(cluster, &Cluster::cloneIdSeparator, separator, "tsClusterSetCloneIdSeparator");
}

void tsClusterSetLearnServerIds(Cluster *cluster, Boolean learn) noexcept {
    TsScope scope(cluster->selector->lock, "tsClusterSetLearnServerIds");
    cluster->learnServerIds = learn;
}

void tsClusterSetIoTimeoutRetry(Cluster *cluster, int count) noexcept {
    TsScope scope(cluster->selector->lock, "tsClusterSetIoTimeoutRetry");
    cluster->ioTimeoutRetry = count;
}

void tsClusterSetServerType(Cluster *cluster, TavServerType type) noexcept {
    TsScope scope(cluster->selector->lock, "tsClusterSetServerType");
    cluster->serverType = type;
}

void tsClusterSetEditionRolloutInProgress(Cluster *cluster, Boolean inProgress) noexcept {
    TsScope scope(cluster->selector->lock, "tsClusterSetEditionRolloutInProgress");
    setRollout(cluster, inProgress);
}

Boolean tsClusterSetPropStr(Cluster *cluster, const char *name, const char *value) noexcept {
    if (!cluster) return FALSE;
    if (tavStrEquals(name, "cloneIdSeparator")) return tsClusterSetCloneIdSeparator(cluster, value);
    if (tavStrEquals(name, "cookieNames")) return tsClusterSetSessionAffinityCookies(cluster, value);
    if (tavStrEquals(name, "serverType")) {
        tsClusterSetServerType(cluster, tsServerTypeFromString(value));
        return TRUE;
    }
    if (tavStrEquals(name, "appEditionRolloutState")) {
        tsClusterSetEditionRolloutInProgress(cluster, tavView(value).substr(0, 5) == "BEGIN");
        return TRUE;
    }
    return FALSE;
}

Boolean tsClusterSetPropInt(Cluster *cluster, const char *name, int value) noexcept {
    if (!cluster || !tavStrEquals(name, "ioTimeoutRetry")) return FALSE;
    tsClusterSetIoTimeoutRetry(cluster, value);
    return TRUE;
}

Boolean tsClusterSetPropBool(Cluster *cluster, const char *name, Boolean value) noexcept {
    if (!cluster || !tavStrEquals(name, "learnCloneIds")) return FALSE;
    tsClusterSetLearnServerIds(cluster, value);
    return TRUE;
}

// ---- links ----

static void logSize(const Cluster *cluster) noexcept TS_LOCKED {
    TargetSelector *ts = cluster->selector;
    TR_DEBUG(ts->trCtx, ts->controlRec, "tsLinkClusterServer: cluster %s has %d servers\n", cluster->name,
             tavListGetCount(cluster->servers));
}

// The server's one counted cluster. The new one is counted first: both may be the same.
static void moveServer(TargetServer *server, Cluster *cluster) noexcept TS_LOCKED {
    Cluster *old = server->cluster;
    if (cluster) cluster->refcnt++;
    server->cluster = cluster;
    if (old) clusterDelete(old);
}

void tsServerSetCluster(TargetServer *server, Cluster *cluster) noexcept {
    TsScope scope(server->selector->lock, "tsServerSetCluster");
    moveServer(server, cluster);
}

static Boolean addServer(Cluster *cluster, TargetServer *server) noexcept TS_LOCKED {
    TargetSelector *ts = cluster->selector;
    if (!tsMemberAdd(&server->memberships, cluster->servers, cluster, server)) return FALSE;
    Cluster *old = server->cluster;
    if (old == cluster) {
        TR_DEBUG(ts->trCtx, ts->controlRec, "tsLinkClusterServer: Linking cluster %s to server %s again\n", cluster->name, server->name);
    } else {
        if (old) {
            TR_DEBUG(ts->trCtx, ts->controlRec,
                     "tsLinkClusterServer: Linking cluster %s to server %s that is already linked to cluster %s\n", cluster->name,
                     server->name, old->name);
        }
        moveServer(server, cluster);
    }
    logSize(cluster);
    return TRUE;
}

static Boolean removeServer(Cluster *cluster, TargetServer *server) noexcept TS_LOCKED {
    if (server->cluster != cluster) return FALSE;
    TsMember *member = tsMemberFindOldest(server->memberships, cluster);
    if (member) tsMemberDrop(&server->memberships, member);
    logSize(cluster);
    moveServer(server, nullptr);
    return TRUE;
}

Boolean tsLinkClusterServer(Cluster *cluster, TargetServer *server, Boolean add) noexcept {
    if (!cluster || !server) return FALSE;
    TsScope scope(cluster->selector->lock, "tsLinkClusterServer");
    return add ? addServer(cluster, server) : removeServer(cluster, server);
}

// ---- deletion ----

// Out of every virtual cluster.
static void leaveVirtualClusters(Cluster *cluster) noexcept TS_LOCKED {
    while (cluster->memberships) virtualClusterDropCluster(static_cast<VirtualCluster *>(cluster->memberships->container), cluster);
}

static void dropServers(Cluster *cluster) noexcept TS_LOCKED {
    while (TavListEle *ele = tavListGetHead(cluster->servers)) {
        auto *server = static_cast<TargetServer *>(tavListEleGetObject(ele));
        tsMemberDrop(&server->memberships, tsMemberFindOldest(server->memberships, cluster));
    }
}

static void freeRest(Cluster *cluster) noexcept {
    tavFree(cluster->name);
    tavDestroyRecord(cluster);
}

void clusterFree(Cluster *cluster) noexcept {
    TargetSelector *ts = cluster->selector;
    if (cluster->ele) tavListRemove(ts->clusters, cluster->ele);
    leaveVirtualClusters(cluster);
    if (cluster->servers) dropServers(cluster);
    tavListDestroy(cluster->servers);
    tavFree(cluster->sessionAffinityCookies);
    tavFree(cluster->cloneIdSeparator);
    // A request selected before a relink may have just read this cluster from its server, without a count of its own.
    if (ts->selected == 0) return freeRest(cluster);
    cluster->next = ts->formerClusters;
    ts->formerClusters = cluster;
}

void tsFreeFormerClusters(TargetSelector *ts) noexcept {
    if (ts->selected != 0) return;
    while (Cluster *cluster = ts->formerClusters) {
        ts->formerClusters = cluster->next;
        freeRest(cluster);
    }
}

void clusterDelete(Cluster *cluster) noexcept {
    if (--cluster->refcnt < 1) clusterFree(cluster);
}

void tsClusterDelete(Cluster *cluster) noexcept {
    if (!cluster) return;
    TsScope scope(cluster->selector->lock, "tsClusterDelete");
    if (cluster->deleted) return;
    cluster->deleted = TRUE;
    leaveVirtualClusters(cluster);
    clusterDelete(cluster);
}
