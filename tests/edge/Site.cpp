#include "edge/Site.h"

#include "tavURLMatcher/tavURLMatcher.h"

void Site::SetUp() {
    SelectorTest::SetUp();
    tav->maxHttpContextPoolSize = 10;
    host.path = "/shop/cart";
    rmWebModuleSetPropStr(module, "contextRoot", "/shop");
    rmWebModuleInit(module);
    rmWebModuleAddUri(module, "/*");
    VHostMatcher *group = createVHostMatcher(ri, "/cell/c/vHostGroup/default");
    putVHost(group, "localhost", 80);
    rmAddVHostMatcher(rm, group);
    rmLinkVHostAndWebModule(group, module, TRUE);
}

Back &Site::addServer(const char *name, const char *cloneId, const char *type) {
    Back &b = back(name, cloneId);
    tsServerSetPropStr(b.server, "type", type);
    return b;
}

void Site::addRule(const char *name, const char *expression, const char *action) {
    if (!workClass) {
        workClass = rmWebRouteWorkClassCreate(application, "Default_HTTP_WC");
        rmWebRouteWorkClassInit(workClass);
    }
    TavRule *rule = rmEditionRoutingRuleCreate(workClass, name);
    tavRuleSetExpr(rule, expression);
    rmEditionRoutingRuleSetPropStr(rule, "action", action);
    rmEditionRoutingRuleInit(rule);
}

TrSpec *Site::addTraceRule(int order, const char *expression, const char *spec) {
    TavRule *rule = tavRuleCreate(tav->requestTraceRules);
    tavRuleSetType(rule, TAVRULETYPE_REQUESTTRACE);
    tavRuleSetOrder(rule, order);
    tavRuleSetExpr(rule, expression);
    TrSpec *compiled = trSpecCreate(tav->trMgr, spec);
    tavRuleSetObject(rule, compiled);
    tavRulesInsertRule(tav->requestTraceRules, rule);
    return compiled;
}

Obtained Site::route() {
    Obtained ctx = obtain();
    EXPECT_EQ(tavHttpContextShouldHandle(ctx), 1);
    EXPECT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    return ctx;
}
