// How a request was mapped, as JSON: for those who tell its story from its trace.
//
// The rules are those of the work class that the request's own mapping asked. They are looked up again, because a request that a rule
// turned away has no module of its own; the snapshot that it pins gives the same answer.
#include <jansson.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "tavHttpContext/tavHttpContext.h"
#include "tavLanguage/tavExpression.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavURLMatcher/tavURLMatcher.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "vHost/vHost.h"

namespace {

struct JsonReleaser {
    void operator()(json_t *json) const noexcept { json_decref(json); }
};
using JsonPtr = std::unique_ptr<json_t, JsonReleaser>;

// Collects members; without memory for one of them there is no object.
class JsonObject {
public:
    void set(const char *name, json_t *value) noexcept { good_ = json_object_set_new(json_.get(), name, value) == 0 && good_; }
    void setText(const char *name, const char *text) noexcept { set(name, text ? vhostJsonText(text) : json_null()); }
    json_t *take() noexcept { return good_ ? json_.release() : nullptr; }

private:
    JsonPtr json_{json_object()};
    bool good_ = true;
};

// ---- rules ----

json_t *actionText(const Action *action) noexcept {
    const TavText words(actionDescribe(action));
    return words ? vhostJsonText(words.get()) : nullptr;
}

// Operators tell one line each, and so do the operands that depend on chance or time.
void countStep(const ExpressionNode *node, void *passback) noexcept {
    const bool tells = node->kind == NODE_OPERATOR ||
                       (node->kind == NODE_OPERAND &&
                        (tavStrEquals(node->name, "percentage") || tavStrEquals(node->name, "time") || tavStrEquals(node->name, "rampup")));
    if (tells) ++*static_cast<json_int_t *>(passback);
}

json_t *ruleToJSON(const TavRule *rule) noexcept {
    const Expression *expression = tavRuleGetExpr(rule);
    json_int_t steps = 0;
    if (expression && !expressionWalk(expression, countStep, &steps)) return nullptr;
    JsonObject json;
    json.set("order", json_integer(tavRuleGetOrder(rule)));
    json.set("expression", vhostJsonText(rule->expressionString));
    json.set("action", actionText(static_cast<const Action *>(tavRuleGetObject(rule))));
    json.set("parses", json_boolean(expression != nullptr));
    json.set("steps", json_integer(steps));
    return json.take();
}

json_t *rulesToJSON(TavRules *rules) noexcept {
    JsonPtr array(json_array());
    if (!rules) return array.release();
    bool good = true;
    tavRulesLockObtain(rules, "tavHttpContextMappingToJSON");
    for (const TavRule *rule : TavListRange<TavRule>(rules->rules))
        good = good && json_array_append_new(array.get(), ruleToJSON(rule)) == 0;
    tavRulesLockRelease(rules);
    return good ? array.release() : nullptr;
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
    names->json.setText(address, tsServerGetName(visit->server));
}

json_t *serversToJSON(TavHttpContext *ctx) noexcept {
    TargetSelector *ts = tavRoutingInfoGetTargetSelector(ctx->routingInfo);
    Names names{ts && ctx->moduleName ? tsFindVirtualCluster(ts, ctx->moduleName) : nullptr, {}};
    if (names.virtualCluster) tsForEachServerApplication(ts, addServer, &names);
    return names.json.take();
}

} // namespace

json_t *tavHttpContextMappingToJSON(TavHttpContext *ctx) noexcept {
    WebModule *module = nullptr;
    if (!ctx || !ctx->routingInfo || !findModule(ctx, &module)) return nullptr;
    const Application *application = module ? wmGetApplication(module) : nullptr;
    const WebRouteWorkClass *workClass = application ? application->defaultWebRouteWorkClass : nullptr;
    JsonObject json;
    json.setText("module", module ? module->name : nullptr);
    json.setText("application", application ? application->name : nullptr);
    json.setText("workClass", workClass ? workClass->name : nullptr);
    json.set("rules", rulesToJSON(workClass ? workClass->rules : nullptr));
    json.set("servers", serversToJSON(ctx));
    return json.take();
}
