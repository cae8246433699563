// A small site to select from, a host that tells which endpoint objects it made, and a controller that tells which routes it heard of.
#ifndef MODEL_SELECTORTEST_H
#define MODEL_SELECTORTEST_H

#include <list>

#include "model/ModelTest.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavString.h"

// What the world outside the selector saw.
struct SelectorWorld {
    std::vector<std::string> routes;    // "+path" or "-path", in order
    std::vector<std::string> endpoints; // "create name host:port" and "delete name", in order
    int endpointsAlive = 0;
    bool hostRefuses = false; // the host makes no endpoint objects
    int lockedReports = 0;    // that came while the selector lock was held
    TavLock *selectorLock = nullptr;
};
inline SelectorWorld world;

inline TavTime fakeNow; // what tavGetCurrentTime gives

// A server with one server application "shop" and, once asked for, endpoints.
struct Back {
    TargetServer *server = nullptr;
    TargetServerApplication *sapp = nullptr;
    TavServerApplication handle{};
    TavTargetEndpoint *http = nullptr;
    std::string path;

    bool state(const char *text) { return tsServerApplicationSetPropStr(&handle, "state", text); }
};

// One application with one web module, its virtual cluster in one cluster, one node.
class SelectorTest : public ModelTest {
protected:
    static constexpr const char *moduleName = "/cell/c/application/shop/webModule/shop.war", *clusterName = "/cell/c/cluster/k";
    SelectorTest();
    void SetUp() override;
    void TearDown() override;

    // A started server with weight 1, an http endpoint and a started, linked server application.
    Back &back(const char *name, const char *cloneId = nullptr);
    Back &bareBack(const char *name); // created and initialised only, with the server application, not linked
    TavTargetEndpoint *endpoint(TargetServer *server, const char *name, const char *protocol, const char *host, int port);
    RequestPtr request(const char *cookie = nullptr);
    std::string selectName(TavHttpContext &ctx); // the selected server, or "-"
    std::string selectName();                    // of a request of its own, which lets go again
    std::string selectNames(int n);              // the same n times, one after the other
    void finish(TavHttpContext &ctx, TavTime curTime = 0, TavTime serviceTime = 0, Boolean timeout = FALSE);
    static bool brokeAffinity(const RequestPtr &ctx) { return ctx->envHttpContext->lastSet("$ZVFO") == "true"; }

    RequestMapper *rm = nullptr;
    Application *application = nullptr;
    WebModule *module = nullptr;
    TargetSelector *ts = nullptr;
    VirtualCluster *vc = nullptr;
    Cluster *cluster = nullptr;
    TargetNode *node = nullptr;
    std::list<Back> backs;
};

#endif
