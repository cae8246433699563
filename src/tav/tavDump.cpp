// The state dump.
#include <jansson.h>

#include "tavConnector/tavConnector.h"
#include "tavControl.h"
#include "tavRecord.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"

json_t *tavConnectorGroupsToJSON(Tav *tav) noexcept {
    json_t *groups = json_object();
    if (!groups) return nullptr;
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList)) {
        if (json_object_set_new(groups, tavConnectorGroupGetName(cg), tavConnectorGroupToJSON(cg)) == 0) continue;
        json_decref(groups);
        return nullptr;
    }
    return groups;
}

json_t *tavToJSON(Tav *tav) TAV_NOEXCEPT {
    if (!tav) return nullptr;
    TavControlScope control("tavToJSON");
    json_t *json = json_object();
    bool complete = true;
    if (TavRoutingInfo *ri = tavRoutingInfoObtain(tav)) {
        complete = json_object_set_new(json, "applications", rmToJSON(ri->requestMapper)) == 0 &&
                   json_object_set_new(json, "clusters", tsToJSON(ri->targetSelector)) == 0;
        tavRoutingInfoRelease(ri);
    }
    json_t *groups = tav->controlState ? json_incref(tav->controlState) : tavConnectorGroupsToJSON(tav);
    complete = complete && json_object_set_new(json, "version", json_string(tavGetVersion())) == 0;
    // A part that finds no memory is not left out in silence. The object takes `groups` even when it has no room.
    if (json_object_set_new(json, "connectorGroups", groups) == 0 && complete) return json;
    json_decref(json);
    return nullptr;
}

char *tavToJSONString(Tav *tav) TAV_NOEXCEPT {
    json_t *json = tavToJSON(tav);
    if (!json) return nullptr;
    char *dumped = json_dumps(json, JSON_INDENT(3));
    json_decref(json);
    char *text = tavStrdup(dumped);
    json_free_t jsonFree = nullptr;
    json_get_alloc_funcs(nullptr, &jsonFree);
    if (dumped) jsonFree(dumped);
    return text;
}

char *tavGetStateInfo(Tav *tav, const char *) TAV_NOEXCEPT { return tavToJSONString(tav); }
