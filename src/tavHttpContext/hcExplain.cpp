// How a request was mapped, as JSON: for those who tell its story from its trace.
//
// The rules are those of the work class that the request's own mapping asked. They are looked up again, because a request that a rule
// turned away has no module of its own; the snapshot that it pins gives the same answer.
#include <cstdio>

#include "tavHttpContext/tavHttpContext.h"
#include "tavLanguage/tavExpression.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavURLMatcher/tavURLMatcher.h"
#include "tavUtil/tavJson.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

void setText(JsonObject &json, const char *name, const char *text) noexcept { json.set(name, text ? tavJsonText(text) : json_null()); }

// ---- rules ----

// Operators tell one line each, and so do the operands that depend on chance or time.
void countStep(const ExpressionNode *node, void *passback) noexcept {
    const bool tells = node->kind == NODE_OPERATOR ||
                       (node->kind == NODE_OPERAND &&
                        (tavStrEquals(node->name, "percentage") || tavStrEquals(node->name, "time") || tavStrEquals(node->name, "rampup")));
    if (tells) ++*static_cast<json_int_t *>(passback);
}

void addRule(const TavRuleEntry *rule, const char *, void *passback) noexcept {
    json_int_t steps = 0;
    const bool counted = !rule->expr || expressionWalk(rule->expr, countStep, &steps);
    const TavText action(actionDescribe(rule->action));
    JsonObject json;
    json.number("order", rule->order);
    json.text("expression", rule->expressionString);
    json.set("action", action ? tavJsonText(action.get()) : nullptr);
    json.flag("parses", rule->expr != nullptr);
    json.number("steps", steps);
    static_cast<JsonArray *>(passback)->add(counted ? json.release() : nullptr);
}

json_t *rulesToJSON(TavRules *rules) noexcept {
    JsonArray array;
    tavRulesForEach(rules, addRule, &array);
    return array.release();
}

// ---- the module whose path matched ----

// FALSE: no memory.
bool findModule(TavHttpContext *ctx, WebModule **module) noexcept {
    const RequestMapper *rm = tavRoutingInfoGetRequestMapper(ctx->routingInfo);
    const char *host = tavHttpContextGetVirtualHost(ctx);
    const TavText hostCopy(tavStrdup(host)); // the host may reuse its buffer for the path
    const char *path = tavHttpContextGetPath(ctx);
    const TavText matched(pathOnly(path));
    if ((host && !hostCopy) || (path && !matched)) return false;
    if (rm && host && path)
        *module = matchLongestURI(rmGetURLMatcher(rm), nullptr, hostCopy.get(), tavHttpContextGetVirtualPort(ctx), matched.get());
    return true;
}

// ---- servers ----

struct Names {
    const VirtualCluster *virtualCluster; // whose server applications the trace can tell of
    JsonObject json;
};

void addServer(const TsVisit *visit, void *passback) noexcept {
    auto *names = static_cast<Names *>(passback);
    if (!visit->sapp || !visit->virtualCluster || visit->virtualCluster != names->virtualCluster) return;
    char address[32];
    snprintf(address, sizeof address, "%p", static_cast<const void *>(visit->sapp));
    setText(names->json, address, tsServerGetName(visit->server));
}

json_t *serversToJSON(TavHttpContext *ctx) noexcept {
    TargetSelector *ts = tavRoutingInfoGetTargetSelector(ctx->routingInfo);
    Names names{ts && ctx->moduleName ? tsFindVirtualCluster(ts, ctx->moduleName) : nullptr, {}};
    if (names.virtualCluster) tsForEachServerApplication(ts, addServer, &names);
    return names.json.release();
}

} // namespace

json_t *tavHttpContextMappingToJSON(TavHttpContext *ctx) noexcept {
    WebModule *module = nullptr;
    if (!ctx || !ctx->routingInfo || !findModule(ctx, &module)) return nullptr;
    const Application *application = module ? wmGetApplication(module) : nullptr;
    const WebRouteWorkClass *workClass = application ? application->defaultWebRouteWorkClass : nullptr;
    JsonObject json;
    setText(json, "module", module ? module->name : nullptr);
    setText(json, "application", application ? application->name : nullptr);
    setText(json, "workClass", workClass ? workClass->name : nullptr);
    json.set("rules", rulesToJSON(workClass ? workClass->rules : nullptr));
    json.set("servers", serversToJSON(ctx));
    return json.release();
}
