#include "DecisionJson.h"

#include <iterator>

#include "RequestMembers.h"

namespace tavhost {

namespace {

json_t *endpointJson(TavTargetEndpoint *endpoint) {
    if (!endpoint) return json_null();
    json_t *json = json_object();
    json_object_set_new(json, "name", textJson(tavTargetEndpointGetName(endpoint)));
    json_object_set_new(json, "protocol", textJson(tavTargetEndpointGetProtocol(endpoint)));
    json_object_set_new(json, "host", textJson(tavTargetEndpointGetHostName(endpoint)));
    json_object_set_new(json, "port", json_integer(tavTargetEndpointGetPort(endpoint)));
    json_object_set_new(json, "server", textJson(tavTargetEndpointGetServerName(endpoint)));
    json_object_set_new(json, "cluster", textJson(tavTargetEndpointGetClusterName(endpoint)));
    json_object_set_new(json, "cloneId", textJson(tavTargetEndpointGetCloneId(endpoint)));
    return json;
}

} // namespace

const char *actionName(TavAction action) {
    static const char *const names[] = {"NONE", "SUSPEND", "REJECT", "REDIRECT", "PERMIT"};
    return static_cast<unsigned>(action) < std::size(names) ? names[action] : "NONE";
}

json_t *decisionJson(const char *id, const Decided &decided, json_t *headers) {
    TavHttpContext *ctx = decided.ctx;
    json_t *json = json_object();
    const auto set = [json](const char *name, json_t *value) { json_object_set_new(json, name, value); };
    // The edition's getter turns an unhandled request into a rejection of its own: it is asked for handled requests only.
    const char *edition = decided.handled == 1 ? tavHttpContextGetApplicationEditionName(ctx) : nullptr;
    const char *message = tavHttpContextGetErrorMessage(ctx);
    if (id) set("id", textJson(id));
    set("handled", json_integer(decided.handled));
    set("action", textJson(actionName(ctx ? tavHttpContextGetAction(ctx) : NONE)));
    set("errorCode", json_integer(ctx ? tavHttpContextGetErrorCode(ctx) : 0));
    if (message) set("errorMsg", textJson(message));
    set("redirectURL", textJson(tavHttpContextGetRedirectURL(ctx)));
    set("vhostGroup", textJson(tavHttpContextGetMatchedVHostName(ctx)));
    set("application", textJson(tavHttpContextGetApplicationName(ctx)));
    set("edition", textJson(edition));
    set("module", textJson(tavHttpContextGetModuleName(ctx)));
    set("contextRoot", textJson(tavHttpContextGetContextRoot(ctx)));
    set("endpoint", endpointJson(decided.endpoint));
    set("loadBalanced", json_boolean(tavHttpContextGetPerformedLoadBalancing(ctx)));
    set("affinityBroken", json_boolean(decided.affinityBroken));
    set("headers", headers);
    return json;
}

void addReasons(json_t *object, TavHttpContext *ctx) {
    json_t *rule = json_null();
    if (const char *expression = tavHttpContextGetRuleExpression(ctx)) {
        rule = json_object();
        json_object_set_new(rule, "order", json_integer(tavHttpContextGetRuleOrder(ctx)));
        json_object_set_new(rule, "expression", textJson(expression));
    }
    json_object_set_new(object, "rule", rule);
    json_object_set_new(object, "affinityBreakReason", textJson(tavHttpContextGetAffinityBreakReason(ctx)));
    json_object_set_new(object, "version", json_integer(tavHttpContextGetConfigVersion(ctx)));
}

} // namespace tavhost
