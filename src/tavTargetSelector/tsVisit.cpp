// Walking the topology for those who tell why a server is not chosen.
#include <new>
#include <unordered_set>

#include "tavTargetSelector/tsInternal.h"

// A server's applications that no virtual cluster lists, and the server itself when it has none.
static void visitRest(const TargetServer *server, TsVisitFcn fn, void *passback) noexcept TS_LOCKED {
    if (tavListIsEmpty(server->serverApplications)) {
        const TsVisit visit = {nullptr, nullptr, server};
        fn(&visit, passback);
    }
    for (const TargetServerApplication *sapp : TavListRange<TargetServerApplication>(server->serverApplications)) {
        const TsVisit visit = {nullptr, sapp, server};
        if (!sapp->memberships) fn(&visit, passback);
    }
}

void tsForEachServerApplication(TargetSelector *ts, TsVisitFcn fn, void *passback) noexcept {
    if (!ts || !fn) return;
    TsScope scope(ts->lock, "tsForEachServerApplication");
    for (auto [name, vc] : TavHashRange<VirtualCluster>(ts->virtualClusterMap)) {
        for (const TargetServerApplication *sapp : TavListRange<TargetServerApplication>(vc->sappList)) {
            const TsVisit visit = {vc, sapp, sapp->server};
            fn(&visit, passback);
        }
    }
    for (const TargetNode *node : TavListRange<TargetNode>(ts->nodes)) {
        for (const TargetServer *server : TavListRange<TargetServer>(node->servers)) visitRest(server, fn, passback);
    }
}

// ---- clusters ----

namespace {
// A server that is linked twice stands twice in the list. Without memory it is then visited twice.
class Visited {
public:
    bool isNew(const TargetServer *server) noexcept {
        try {
            return servers_.insert(server).second;
        } catch (const std::bad_alloc &) {
            return true;
        }
    }

private:
    std::unordered_set<const TargetServer *> servers_;
};
} // namespace

void tsForEachCluster(TargetSelector *ts, TsClusterFcn fn, void *passback) noexcept {
    if (!ts || !fn) return;
    TsScope scope(ts->lock, "tsForEachCluster");
    for (const Cluster *cluster : TavListRange<Cluster>(ts->clusters)) {
        if (cluster->deleted) continue;
        fn(cluster, nullptr, passback);
        Visited visited;
        for (const TargetServer *server : TavListRange<TargetServer>(cluster->servers)) {
            if (!server->deleted && visited.isNew(server)) fn(cluster, server, passback);
        }
    }
}

// ---- why nothing comes ----

static const char *transportReason(const TargetServer *server) noexcept TS_LOCKED {
    const char *http = tsServerTransportReason(server, 0);
    return http ? tsServerTransportReason(server, 1) : nullptr;
}

const char *tsServerApplicationIdleReason(const TargetServerApplication *sapp, TavTime now, char *buffer,
                                          size_t size) noexcept TAV_NO_ANALYSIS {
    if (const char *reason = tsServerApplicationReason(sapp, now, FALSE)) return reason;
    if (!sapp->memberships) return "no web module is served by the server application";
    if (checkIfMaxConnectionsExceeded(sapp->server)) return serverFullReason(sapp->server, buffer, size);
    return transportReason(sapp->server);
}

const char *tsServerIdleReason(const TargetServer *server, TavTime now, char *buffer, size_t size) noexcept TAV_NO_ANALYSIS {
    if (server->reasonForNoLoadBalancing) return server->reasonForNoLoadBalancing;
    const TargetServerApplication *first = nullptr;
    for (const TargetServerApplication *sapp : TavListRange<TargetServerApplication>(server->serverApplications)) {
        if (sapp->deleted) continue;
        if (!tsServerApplicationIdleReason(sapp, now, buffer, size)) return nullptr;
        if (!first) first = sapp;
    }
    return first ? tsServerApplicationIdleReason(first, now, buffer, size) : "the server has no server application";
}

const char *tsEndPointIdleReason(const TavTargetEndpoint *endpoint, TavTime now) noexcept {
    if (endpoint->port == -1) return "transport is not valid";
    const TavTime retryTime = endpoint->server->nextRetryTime;
    return retryTime != 0 && tavTimeIsBefore(now, retryTime) ? "connect failure" : nullptr;
}
