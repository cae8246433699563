#include "FakesForSelector.h"

#include <mutex>

#include "tavHealthMonitor/tavConnectorForHealth.h"
#include "tavTargetSelector/tavConnectorForSelector.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

SelectorWorld world;
static std::mutex worldMutex;

// ---- connectors ----

static void noteLock() {
    if (world.selectorLock && world.selectorLock->heldBy.load()) world.lockedConnectorCalls++;
}

void tavConnectorObtainRef(TavConnector *connector, const char *) noexcept { connector->refs++; }
void tavConnectorReleaseRef(TavConnector *connector, const char *) noexcept { connector->refs--; }
void tavConnectorPostRoutingChange(TavConnector *, const char *path, Boolean add, Boolean fromDaemonSide) noexcept {
    const std::lock_guard guard(worldMutex);
    noteLock();
    EXPECT_TRUE(fromDaemonSide);
    world.routes.push_back((add ? "+" : "-") + std::string(path));
}

// ---- shared host endpoints ----

struct EnvTargetEndpoint {
    std::string name;
};
struct _EndPointRef {
    EnvTargetEndpoint host;
    int holders;
};

EndPointRef *tavEndPointRefObtain(Tav *, TavTargetEndpoint *endpoint) noexcept {
    const std::lock_guard guard(worldMutex);
    if (world.hostRefuses) return nullptr;
    EndPointRef *&ref = world.endpointByName[tavTargetEndpointGetName(endpoint)];
    if (!ref) {
        ref = new EndPointRef{{tavTargetEndpointGetName(endpoint)}, 0};
        const char *host = tavTargetEndpointGetHostName(endpoint);
        world.endpoints.push_back("create " + ref->host.name + " " + (host ? host : "-") + ":" +
                                  std::to_string(tavTargetEndpointGetPort(endpoint)));
        world.endpointsAlive++;
    }
    ref->holders++;
    return ref;
}

static void forget(EndPointRef *ref) {
    auto found = world.endpointByName.find(ref->host.name);
    if (found != world.endpointByName.end() && found->second == ref) world.endpointByName.erase(found);
}

void tavEndPointRefRelease(Tav *, EndPointRef *ref) noexcept {
    const std::lock_guard guard(worldMutex);
    if (--ref->holders > 0) return;
    forget(ref);
    world.endpoints.push_back("delete " + ref->host.name);
    world.endpointsAlive--;
    delete ref;
}

void tavEndPointRefDetach(Tav *, EndPointRef *ref) noexcept {
    const std::lock_guard guard(worldMutex);
    forget(ref);
}

EnvTargetEndpoint *tavEndPointRefGet(const EndPointRef *ref) noexcept { return const_cast<EnvTargetEndpoint *>(&ref->host); }

// ---- instance ----

Boolean tavIsOwnServerPath(Tav *, const char *) noexcept { return FALSE; }
Boolean tavSetServerCustomProperty(Tav *, const char *, const char *) noexcept { return FALSE; }

// ---- what the health monitor asks for ----

HealthMonitor *tavGetHealthMonitor(Tav *) noexcept { return world.healthMonitor; }
Boolean tavIsClientProcess(Tav *) noexcept { return FALSE; }
void tavControlLock(const char *) noexcept {}
void tavControlUnlock() noexcept {}
int tavClientProcessSendHealthTrigger(Tav *, void *, int) noexcept { return -1; }
TavConnectorGroup *tavConnectorGetGroup(TavConnector *) noexcept { return nullptr; }
const char *tavConnectorGroupGetName(TavConnectorGroup *) noexcept { return "group"; }
const char *tavConnectorGetURL(TavConnector *) noexcept { return "http://controller"; }
void tavProcessAsync(Tav *, void *obj, AsyncCallbackFcn, void (*discard)(void *)) noexcept { discard(obj); }
TavConnectorGroup *tavFindConnectorGroup(Tav *, const char *) noexcept { return nullptr; }
TavConnector *tavConnectorGroupGetCurConnector(TavConnectorGroup *) noexcept { return nullptr; }
void tavConnectorSendHealthTrigger(TavConnector *, json_t *) noexcept {}

// ---- fixture ----

SelectorTest::SelectorTest() {
    world = {};
    fakeNow = 1000000;
    tavSetClock([] { return fakeNow; });
    rm = rmCreate(&ri);
    ri.mapper = rm;
    application = rmApplicationCreate(rm, "/cell/c/application/shop");
    module = rmWebModuleCreate(application, moduleName, 1);
    ts = tsCreate(&ri);
    ri.selector = ts;
    world.selectorLock = ts->lock;
    node = tsNodeCreate(ts, "/cell/c/node/n");
    cluster = tsClusterCreate(ts, "/cell/c/cluster/k");
    vc = tsVirtualClusterCreate(ts, module, moduleName);
    tsLinkVirtualClusterToCluster(vc, cluster, TRUE);
}

SelectorTest::~SelectorTest() {
    world.selectorLock = nullptr;
    rmDelete(rm); // a snapshot's mapper dies before its selector
    const size_t routes = world.routes.size();
    tsDelete(ts);
    EXPECT_EQ(world.routes.size(), routes) << "a dying snapshot is silent";
    for (Back &b : backs) EXPECT_TRUE(b.handle.stale) << b.path;
    EXPECT_EQ(connector.refs, 1);
    EXPECT_EQ(world.endpointsAlive, 0);
    EXPECT_EQ(world.lockedConnectorCalls, 0);
    tavSetClock(nullptr);
}

Back &SelectorTest::bareBack(const char *name) {
    Back &b = backs.emplace_back();
    b.server = tsServerCreate(node, (std::string("/cell/c/node/n/server/") + name).c_str(), &connector);
    tsServerInit(b.server);
    b.path = std::string("/cell/c/node/n/server/") + name + "/serverApplication/shop";
    tsServerApplicationCreate(b.server, b.path.c_str(), &connector, &b.handle);
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

std::unique_ptr<TavHttpContext> SelectorTest::request(const char *cookie) {
    auto ctx = std::make_unique<TavHttpContext>();
    ctx->tav = &tav;
    ctx->trContext = trMgrGetDefaultContext(tav.mgr);
    ctx->moduleName = moduleName;
    ctx->moduleHint = &module->hint;
    ctx->applicationName = "shop";
    if (cookie) ctx->request.cookies["JSESSIONID"] = cookie;
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
    if (ctx.sapp) tsServerApplicationDecrementOutstandingRequestCount(&ctx, ctx.sapp, curTime, serviceTime, timeout);
    tsTargetInfoDecrementRefCnt(&ctx);
}
