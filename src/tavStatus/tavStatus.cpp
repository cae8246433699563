// What an operator sees of a running instance; docs/status-format.md says it member by member.
//
// Requests must not wait for it. What they lock too, the selector, is copied in one short pass without making JSON; the JSON is made from
// the copies. Applications, web modules and their texts do not change once a snapshot is published, so the count that is held on it is
// enough; names of linked clusters and groups are under the mapper lock, and rules are pinned as requests pin them. No two locks are held
// together. The connectors are the configuration's: their part waits for the control lock, before any of the others and without them.
//
// Parts of one document may be of different moments. Whatever lacks memory makes the whole NULL.
#include "tavStatus/tavStatus.h"

#include <unistd.h>

#include "tav/tavControl.h"
#include "tav/tavRecord.h"
#include "tavConnector/tavConnector.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavUtil/tavJson.h"
#include "tavUtil/tavString.h"

namespace {

// A worker's groups do not run: their states are the daemon's, as it told them.
const char *told(const json_t *daemons, TavComponentState own) noexcept {
    const char *state = json_string_value(json_object_get(daemons, "state"));
    return state ? state : tavState2String(own);
}

json_t *connectorStatus(TavConnector *c, const json_t *daemons) noexcept {
    JsonObject connector;
    const bool hasDocument = tavConnectorGetJSON(c) || tavConnectorGetVersion(c) != 0;
    connector.text("url", tavConnectorGetURL(c));
    connector.text("state", told(json_object_get(daemons, tavConnectorGetURL(c)), tavConnectorGetState(c)));
    connector.number("version", hasDocument ? tavConnectorGetVersion(c) : -1);
    connector.textIfAny("error", tavConnectorGetLastError(c));
    return connector.release();
}

json_t *groupStatus(TavConnectorGroup *cg, const json_t *daemons) noexcept {
    const json_t *connectorsOfDaemon = json_object_get(daemons, "connectors");
    JsonArray connectors;
    for (TavConnector *c : TavListRange<TavConnector>(cg->connectorList)) connectors.add(connectorStatus(c, connectorsOfDaemon));
    JsonObject group;
    group.text("name", tavConnectorGroupGetName(cg));
    group.text("state", told(daemons, tavConnectorGroupGetState(cg)));
    group.set("connectors", connectors.release());
    return group.release();
}

} // namespace

json_t *statusOfGroups(Tav *tav) noexcept {
    TavControlScope control("tavStatusToJSON");
    JsonArray groups;
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList))
        groups.add(groupStatus(cg, json_object_get(tav->controlState, tavConnectorGroupGetName(cg))));
    return groups.release();
}

json_t *tavStatusToJSON(Tav *tav) TAV_NOEXCEPT {
    if (!tav) return nullptr;
    JsonObject status;
    status.text("library", tavStrSuffix(tavGetVersion(), ' ')); // the number without the name
    status.text("process", tavGetProcessTypeName(tav));
    status.number("pid", getpid());
    status.textIfAny("server", tavGetServerName(tav));
    status.text("state", tavState2String(tavGetState(tav)));
    json_t *groups = statusOfGroups(tav); // first: what it waits for is in what follows
    TavRoutingInfo *ri = tavRoutingInfoObtain(tav);
    status.number("version", tavRoutingInfoGetVersion(ri));
    status.set("groups", groups);
    status.set("clusters", statusOfClusters(tavRoutingInfoGetTargetSelector(ri)));
    status.set("applications", statusOfApplications(tavRoutingInfoGetRequestMapper(ri), tavRoutingInfoGetTargetSelector(ri)));
    status.set("rules", statusOfRules(tavRoutingInfoGetRequestMapper(ri), tavGetRequestTraceRules(tav)));
    tavRoutingInfoRelease(ri);
    return status.release();
}
