// The topology as JSON. Names and ids may be any bytes; what is not UTF-8 becomes "?".
#include "tavTargetSelector/tsInternal.h"
#include "tavUtil/tavJson.h"

static json_t *serverApplicationsToJSON(const TargetServer *server, bool full) noexcept TS_LOCKED {
    JsonObject applications;
    for (const TargetServerApplication *sapp : TavListRange<TargetServerApplication>(server->serverApplications)) {
        JsonObject json;
        json.textUnlessNull("state", sapp->state);
        if (full) json.number("outstandingRequests", sapp->outstandingRequestCount);
        applications.setNamed(sapp->name, json.release());
    }
    return applications.release();
}

static json_t *serverToJSON(const TargetServer *server, bool full) noexcept TS_LOCKED {
    JsonObject json;
    json.textUnlessNull("state", server->state);
    json.number("weight", server->weight);
    json.textUnlessNull("maintenanceMode", tsMaintenanceModeToString(server->maintenanceMode));
    json.textUnlessNull("noAffinity", server->reasonForNoAffinity);
    json.textUnlessNull("noLoadBalancing", server->reasonForNoLoadBalancing);
    if (full) {
        json.textUnlessNull("cloneID", server->cloneId);
        json.number("averageResponseTimeInMillis", server->avgResponseTime);
        json.textUnlessNull("sessionAffinityCookies", server->sessionAffinityCookies);
        json.number("outstandingRequests", server->outstandingRequestCount);
    }
    json.set("applications", serverApplicationsToJSON(server, full));
    return json.release();
}

json_t *clusterToJSON(const Cluster *cluster, bool full) noexcept {
    JsonObject servers;
    for (const TargetServer *server : TavListRange<TargetServer>(cluster->servers))
        servers.setNamed(server->name, serverToJSON(server, full));
    JsonObject json;
    json.set("servers", servers.release());
    return json.release();
}

json_t *tsToJSON(TargetSelector *ts) noexcept {
    if (!ts) return nullptr;
    TsScope scope(ts->lock, "tsToJSON");
    JsonObject json;
    for (const Cluster *cluster : TavListRange<Cluster>(ts->clusters)) json.setNamed(cluster->name, clusterToJSON(cluster, true));
    return json.release();
}
