// What is reported to the controller: server applications that became routable or stopped being so, and triggered health policies.
//
// While a document is applied the paths are gathered, so that one document of the controller is answered by one of ours.
#include "tavConnector/connectorInternal.h"
#include "tavConnector/tavConnector.h"
#include "tavHealthMonitor/tavConnectorForHealth.h"

namespace {

// In the daemon the workers' reports count; what its own topology says is not news.
bool isDaemonsOwn(TavConnector *c, Boolean fromDaemonSide) noexcept { return fromDaemonSide && tavIsServerProcess(c->tav); }

// FALSE: no document is being applied, so the path is to be sent at once.
bool gatherRoute(TavConnector *c, const char *path, Boolean add) noexcept {
    TavLockGuard guard(c->lock, "tavConnectorPostRoutingChange");
    if (!c->processingJSON) return false;
    json_t **routes = add ? &c->addRoutes : &c->delRoutes;
    if (!*routes) *routes = json_array();
    json_array_append_new(*routes, json_string(path));
    return true;
}

// Takes the routes over. Without memory the controller hears nothing, rather than half of it.
void sendGathered(TavConnector *c, json_t *addRoutes, json_t *delRoutes) noexcept {
    if (!addRoutes && !delRoutes) return;
    json_t *json = json_object();
    const bool hasAdded = !addRoutes || json_object_set_new(json, "addRoutes", addRoutes) == 0;
    const bool hasDeleted = !delRoutes || json_object_set_new(json, "delRoutes", delRoutes) == 0;
    if (hasAdded && hasDeleted) tavConnectorRequestSend(c, RRT_ROUTE_CHANGE, json);
    json_decref(json);
}

} // namespace

void tavConnectorPostRoutingChange(TavConnector *c, const char *path, Boolean add, Boolean fromDaemonSide) noexcept {
    if (tavConnectorIsStopped(c) || !path || c->cg->isBrindle || isDaemonsOwn(c, fromDaemonSide)) return;
    if (gatherRoute(c, path, add)) return;
    json_t *json = json_pack("{s:[s]}", add ? "addRoutes" : "delRoutes", path);
    if (json) tavConnectorRequestSend(c, RRT_ROUTE_CHANGE, json);
    json_decref(json);
}

void tavConnectorSetProcessingJSON(TavConnector *c, Boolean on, Boolean fromDaemonSide) noexcept {
    if (!c) return;
    json_t *addRoutes = nullptr;
    json_t *delRoutes = nullptr;
    {
        TavLockGuard guard(c->lock, "tavConnectorSetProcessingJSON");
        c->processingJSON = on;
        if (!on && !isDaemonsOwn(c, fromDaemonSide)) {
            addRoutes = c->addRoutes;
            delRoutes = c->delRoutes;
            c->addRoutes = c->delRoutes = nullptr;
        }
    }
    sendGathered(c, addRoutes, delRoutes);
}

void tavConnectorRequestSend(TavConnector *c, TavRestRequestType type, json_t *json) noexcept {
    if (tavConnectorIsStopped(c)) return;
    TavRestRequest *req = tavRestRequestCreate(type, c->cg);
    if (!req) return;
    req->c = c;
    req->json = json_incref(json);
    if (tavRestRequestSend(req) != 0 || tavIsClientProcess(c->tav)) tavRestRequestDelete(req);
}

void tavConnectorSendHealthTrigger(TavConnector *connector, json_t *json) noexcept {
    tavConnectorRequestSend(connector, RRT_HEALTH_POLICY_TRIGGER, json);
}
