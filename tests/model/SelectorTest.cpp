#include "model/SelectorTest.h"

#include <jansson.h>

#include "tavUtil/tavMemory.h"

struct EnvTargetEndpoint {
    std::string name;
};

static EnvTargetEndpoint *createEndpoint(TavTargetEndpoint *endpoint) {
    if (world.hostRefuses) return nullptr;
    const std::string name = tavTargetEndpointGetName(endpoint), host = tavOrNull(tavTargetEndpointGetHostName(endpoint));
    world.endpoints.push_back("create " + name + " " + host + ":" + std::to_string(tavTargetEndpointGetPort(endpoint)));
    world.endpointsAlive++;
    return new EnvTargetEndpoint{name};
}

static int deleteEndpoint(EnvTargetEndpoint *endpoint) {
    world.endpoints.push_back("delete " + endpoint->name);
    world.endpointsAlive--;
    delete endpoint;
    return 0;
}

static void noteRoutes(const char *body) {
    json_t *json = body ? json_loads(body, 0, nullptr) : nullptr;
    for (const char *key : {"addRoutes", "delRoutes"}) {
        const json_t *routes = json_object_get(json, key);
        for (size_t i = 0; i < json_array_size(routes); i++)
            world.routes.push_back((*key == 'a' ? "+" : "-") + std::string(json_string_value(json_array_get(routes, i))));
    }
    json_decref(json);
}

SelectorTest::SelectorTest() {
    world = {};
    env.targetEndpoint.create = createEndpoint;
    env.targetEndpoint.delete_ = deleteEndpoint;
    static const auto keep = env.http.connector.sendRequest;
    env.http.connector.sendRequest = [](EnvConnectorClient *client, const char *method, const char *uri, const char *body, int timeout,
                                        TavHttpResponseCallBack callback, TavHttpResponseContext *passback) {
        world.lockedReports += world.selectorLock && world.selectorLock->heldBy.load();
        noteRoutes(body);
        return keep(client, method, uri, body, timeout, callback, passback);
    };
}

void SelectorTest::SetUp() {
    ModelTest::SetUp();
    fakeNow = 1000000;
    tavSetClock([] { return fakeNow; });
    rm = ri->requestMapper;
    application = rmApplicationCreate(rm, "/cell/c/application/shop");
    module = rmWebModuleCreate(application, moduleName, 1);
    ts = ri->targetSelector;
    world.selectorLock = ts->lock;
    node = tsNodeCreate(ts, "/cell/c/node/n");
    cluster = tsClusterCreate(ts, clusterName);
    vc = tsVirtualClusterCreate(ts, module, moduleName);
    tsLinkVirtualClusterToCluster(vc, cluster, TRUE);
}

void SelectorTest::TearDown() {
    const size_t routes = world.routes.size();
    world.selectorLock = nullptr;
    tavControlLock("test");
    tavResetRoutingInfo(tav);
    tavControlUnlock();
    EXPECT_EQ(world.routes.size(), routes) << "a dying snapshot is silent";
    for (Back &b : backs) EXPECT_TRUE(b.handle.stale) << b.path;
    EXPECT_EQ(world.endpointsAlive, 0);
    EXPECT_EQ(world.lockedReports, 0);
    ModelTest::TearDown();
    tavSetClock(nullptr);
}

Back &SelectorTest::bareBack(const char *name) {
    Back &b = backs.emplace_back();
    b.server = tsServerCreate(node, (std::string("/cell/c/node/n/server/") + name).c_str(), connector);
    tsServerInit(b.server);
    b.path = std::string("/cell/c/node/n/server/") + name + "/serverApplication/shop";
    tsServerApplicationCreate(b.server, b.path.c_str(), connector, &b.handle);
    b.sapp = b.handle.serverApplication;
    return b;
}

TavTargetEndpoint *SelectorTest::endpoint(TargetServer *server, const char *name, const char *protocol, const char *host, int port) {
    TavTargetEndpoint *ep = tsEndPointCreate(server, name);
    tsEndPointSetPropStr(ep, "protocol", protocol);
    tsEndPointSetPropStr(ep, "host", host);
    tsEndPointSetPropInt(ep, "port", port);
    tsEndPointInit(ep);
    return ep;
}

Back &SelectorTest::back(const char *name, const char *cloneId) {
    Back &b = bareBack(name);
    b.http = endpoint(b.server, (std::string("tp-") + name).c_str(), "http", (std::string(name) + ".example").c_str(), 9080);
    if (cloneId) tsServerSetPropStr(b.server, "id", cloneId);
    tsServerSetPropInt(b.server, "weight", 1);
    tsLinkClusterServer(cluster, b.server, TRUE);
    tsServerSetPropStr(b.server, "state", "STARTED");
    tsLinkServerToWebModule(b.server, module, TRUE);
    b.state("STARTED");
    return b;
}

RequestPtr SelectorTest::request(const char *cookie) {
    RequestPtr ctx = ModelTest::request("/");
    tavHttpContextSetModuleName(ctx.get(), moduleName);
    tavHttpContextSetModuleHint(ctx.get(), &module->hint);
    tavHttpContextSetApplicationName(ctx.get(), "shop");
    if (cookie) hosts.back().cookies["JSESSIONID"] = cookie;
    return ctx;
}

std::string SelectorTest::selectName(TavHttpContext &ctx) {
    TavTargetEndpoint *ep = tsSelect(ts, &ctx);
    return ep ? tavPathToName(tavTargetEndpointGetServerName(ep)) : "-";
}

std::string SelectorTest::selectName() {
    auto ctx = request();
    std::string name = selectName(*ctx);
    finish(*ctx);
    return name;
}

std::string SelectorTest::selectNames(int n) {
    std::string names;
    while (n-- > 0) names += selectName();
    return names;
}

void SelectorTest::finish(TavHttpContext &ctx, TavTime curTime, TavTime serviceTime, Boolean timeout) {
    if (ctx.targetServerApplication)
        tsServerApplicationDecrementOutstandingRequestCount(&ctx, ctx.targetServerApplication, curTime, serviceTime, timeout);
    tsTargetInfoDecrementRefCnt(&ctx);
}
