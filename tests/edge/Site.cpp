#include "edge/Site.h"

static constexpr const char *MODULE = "/cell/c/application/shop/webModule/store";

void Site::SetUp() {
    CoreFixture::SetUp();
    tav->maxHttpContextPoolSize = 10;
    host.path = "/shop/cart";
    ri = tav->routingInfo;
    ri->published = FALSE;

    application = rmApplicationCreate(ri->requestMapper, "/cell/c/application/shop");
    module = rmWebModuleCreate(application, MODULE, -1);
    rmWebModuleSetPropStr(module, "contextRoot", "/shop");
    rmWebModuleInit(module);
    VHostMatcher *group = createVHostMatcher(ri, "/cell/c/vHostGroup/default");
    putVHost(group, "localhost", 80);
    rmAddVHostMatcher(ri->requestMapper, group);
    rmLinkVHostAndWebModule(group, module, TRUE);

    node = tsNodeCreate(ri->targetSelector, "/cell/c/node/n");
    cluster = tsClusterCreate(ri->targetSelector, "C1");
    VirtualCluster *vc = tsVirtualClusterCreate(ri->targetSelector, module, MODULE);
    tsLinkVirtualClusterToCluster(vc, cluster, TRUE);
}

SiteServer &Site::addServer(const char *name, const char *cloneId, const char *type) {
    SiteServer &s = servers.emplace_back();
    s.server = tsServerCreate(node, name, connector);
    if (cloneId) tsServerSetPropStr(s.server, "id", cloneId);
    tsServerSetPropStr(s.server, "type", type);
    tsServerSetPropInt(s.server, "weight", 1);
    tsServerInit(s.server);
    s.endpoint = tsEndPointCreate(s.server, (std::string(name) + "/http").c_str());
    tsEndPointSetPropStr(s.endpoint, "protocol", "http");
    tsEndPointSetPropStr(s.endpoint, "host", "backend");
    tsEndPointSetPropInt(s.endpoint, "port", 9080);
    tsEndPointInit(s.endpoint);
    tsServerApplicationCreate(s.server, (std::string(name) + "/serverApplication/shop").c_str(), connector, &s.sapp);
    tsServerApplicationSetPropStr(&s.sapp, "state", "STARTED");
    tsServerSetPropStr(s.server, "state", "STARTED");
    tsLinkClusterServer(cluster, s.server, TRUE);
    tsLinkServerToWebModule(s.server, module, TRUE);
    return s;
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

TavHttpContext *Site::route() {
    TavHttpContext *ctx = obtain();
    EXPECT_EQ(tavHttpContextShouldHandle(ctx), 1);
    EXPECT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    return ctx;
}
