// Clusters and their servers: copied under the selector lock, told after it.
#include <new>
#include <string>
#include <vector>

#include "tavStatus/tavStatus.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavJson.h"
#include "tavUtil/tavString.h"

namespace {

struct EndPointCopy {
    const char *protocol;
    std::string host;
    int port;
    const char *reason; // constant; null: available
};

struct ServerCopy {
    std::string name, node, state, reason; // no reason: selectable
    const char *maintenance;
    int weight, outstanding;
    TavTime responseTime; // TAV_NO_VALUE: none yet
    std::vector<EndPointCopy> endpoints;
};

struct ClusterCopy {
    std::string name;
    std::vector<ServerCopy> servers;
};

struct Clusters {
    std::vector<ClusterCopy> list;
    TavTime now = tavGetCurrentTime();
    bool complete = true;
};

std::string textOf(const char *text) { return text ? text : ""; }

// The following read records that the selector lock, which the visit holds, guards.

void copyEndPoints(const TargetServer *server, TavTime now, std::vector<EndPointCopy> &copies) {
    for (const TavList *list : server->endPoints) {
        for (const TavTargetEndpoint *endpoint : TavListRange<TavTargetEndpoint>(list)) {
            if (endpoint->deleted) continue;
            copies.push_back(
                {tsIndexToProtocol(endpoint->protoIndex), textOf(endpoint->host), endpoint->port, tsEndPointIdleReason(endpoint, now)});
        }
    }
}

ServerCopy copyServer(const TargetServer *server, TavTime now) {
    char buffer[512];
    ServerCopy copy;
    copy.name = server->name;
    copy.node = textOf(tsNodeGetName(server->node));
    copy.state = textOf(server->state);
    copy.reason = textOf(tsServerIdleReason(server, now, buffer, sizeof buffer));
    copy.maintenance = tsMaintenanceModeToProperty(server->maintenanceMode);
    copy.weight = server->weight;
    copy.outstanding = server->outstandingRequestCount;
    // The first response after a start gives a mean; until then the one of before the start stands there.
    copy.responseTime = server->avgResponseTimeCalc.intervalEnd != 0 ? server->avgResponseTime : TAV_NO_VALUE;
    copyEndPoints(server, now, copy.endpoints);
    return copy;
}

void copy(const Cluster *cluster, const TargetServer *server, void *passback) noexcept {
    auto &clusters = *static_cast<Clusters *>(passback);
    if (!clusters.complete) return;
    try {
        if (!server)
            clusters.list.push_back({textOf(cluster->name), {}});
        else
            clusters.list.back().servers.push_back(copyServer(server, clusters.now));
    } catch (const std::bad_alloc &) {
        clusters.complete = false;
    }
}

// ---- after the lock ----

json_t *endPointStatus(const EndPointCopy &copy) noexcept {
    JsonObject endpoint;
    endpoint.text("protocol", copy.protocol);
    endpoint.text("host", copy.host.c_str());
    endpoint.number("port", copy.port);
    endpoint.flag("available", !copy.reason);
    endpoint.textIfAny("reason", copy.reason);
    return endpoint.release();
}

json_t *serverStatus(const ServerCopy &copy) noexcept {
    JsonArray endpoints;
    for (const EndPointCopy &endpoint : copy.endpoints) endpoints.add(endPointStatus(endpoint));
    JsonObject server;
    server.text("name", copy.name.c_str());
    server.textIfAny("node", tavPathToName(copy.node.c_str()));
    server.text("state", copy.state.c_str());
    server.text("maintenance", copy.maintenance);
    server.number("weight", copy.weight);
    server.number("outstanding", copy.outstanding);
    if (copy.responseTime != TAV_NO_VALUE) server.set("responseTime", json_real(copy.responseTime));
    server.flag("selectable", copy.reason.empty());
    server.textIfAny("reason", copy.reason.c_str());
    server.set("endpoints", endpoints.release());
    return server.release();
}

json_t *clusterStatus(const ClusterCopy &copy) noexcept {
    JsonArray servers;
    for (const ServerCopy &server : copy.servers) servers.add(serverStatus(server));
    JsonObject cluster;
    cluster.text("name", copy.name.c_str());
    cluster.set("servers", servers.release());
    return cluster.release();
}

} // namespace

json_t *statusOfClusters(TargetSelector *ts) noexcept {
    Clusters clusters;
    tsForEachCluster(ts, copy, &clusters);
    if (!clusters.complete) return nullptr;
    JsonArray array;
    for (const ClusterCopy &cluster : clusters.list) array.add(clusterStatus(cluster));
    return array.release();
}
