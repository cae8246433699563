// No memory at any point, and many threads at once.
#include <jansson.h>

#include <thread>

#include "FakesForSelector.h"
#include "base/FailEachAllocation.h"

TEST_F(SelectorTest, AFailedAllocationIsAResultAndLeavesNothingBehind) {
    failEachAllocation([this](auto failed) {
        TargetSelector *own = tsCreate(&ri);
        TargetNode *n = tsNodeCreate(own, "/n");
        Cluster *k = tsClusterCreate(own, "/k");
        TargetServer *server = tsServerCreate(n, "/s", &connector);
        VirtualCluster *v = tsVirtualClusterCreate(own, nullptr, moduleName);
        TavTargetEndpoint *ep = tsEndPointCreate(server, "tp");
        TavServerApplication handle{};
        bool done = own && n && k && server && v && ep && tsServerApplicationCreate(server, "/s/shop", &connector, &handle);
        done = done && tsServerInit(server) && tsServerSetPropStr(server, "id", "c1");
        done = done && tsEndPointSetPropStr(ep, "protocol", "http") && tsEndPointSetPropStr(ep, "host", "h") && tsEndPointInit(ep);
        done = done && tsLinkClusterServer(k, server, TRUE) && tsLinkVirtualClusterToCluster(v, k, TRUE);
        done = done && tsLinkServerToWebModule(server, module, TRUE) && tsServerSetPropStr(server, "state", "STARTED");
        done = done && tsServerApplicationSetPropStr(&handle, "state", "STARTED") && tsVirtualClusterGetAffinityPolicy(v);
        if (done) {
            EXPECT_FALSE(failed() && !ep->ref) << "every failure before this point was told";
            tsEndPointSetPropStr(ep, "host", "h2");
            tsServerApplicationSetPropStr(&handle, "state", "STOPPED"); // needs no memory to tell the connector
            if (json_t *json = tsToJSON(own)) json_decref(json);
        } else {
            EXPECT_TRUE(failed());
        }
        // What was not taken is not there.
        if (server && !tsServerGetCloneId(server)) {
            EXPECT_EQ(tavHashGet(own->serverMapByCloneId, "c1"), nullptr);
        }
        if (const TargetServerApplication *sapp = handle.serverApplication) {
            EXPECT_EQ(sapp->routable, sapp->endNotice != nullptr);
        }
        tsDelete(own);
    });
}

TEST_F(SelectorTest, WithoutMemoryAServerApplicationIsRefusedAndTheOthersAreStillFound) {
    failEachAllocation([this](auto failed) {
        TargetServer *server = tsServerCreate(node, "/s", nullptr);
        TavServerApplication handles[12];
        for (int i = 0; server && i < 12; i++) {
            const std::string path = "/s/" + std::to_string(i);
            const bool created = tsServerApplicationCreate(server, path.c_str(), nullptr, &handles[i]);
            EXPECT_TRUE(created || failed());
            EXPECT_EQ(tsServerGetTavServerApplication(server, path.c_str() + 3), created ? &handles[i] : nullptr);
        }
        tsServerDelete(server);
    });
}

// Reads every argument of a trace line.
static int formatOnly(const TrContext *ctx, va_list args) {
    char text[4096];
    const char *format = trContextGetFormat(ctx);
    return format ? vsnprintf(text, sizeof text, format, args) : 0;
}

TEST_F(SelectorTest, RequestsRunWhileTheTopologyChangesInPlace) {
    constexpr int rounds = 400, threads = 4;
    world.selectorLock = nullptr; // it cannot tell threads apart
    trMgrSetPrintf(tav.mgr, formatOnly);
    Back *all[] = {&back("a", "c0"), &back("b", "c1"), &back("c", "c2")};
    Cluster *other = tsClusterCreate(ts, "/other");
    tsServerSetPropStr(bareBack("learner").server, "state", "STARTED");
    TargetServer *learner = backs.back().server;
    traceAt(":DEBUG");
    std::atomic<bool> stop{false};
    std::atomic<int> chosen{0};
    std::vector<std::thread> requests;
    for (int t = 0; t < threads; t++) {
        requests.emplace_back([&, t] {
            for (int i = 0; !stop || i < rounds; i++) {
                auto ctx = request(("s:c" + std::to_string(i % 3)).c_str());
                TavTargetEndpoint *ep = tsSelect(ts, ctx.get());
                tsServerSetPropStr(learner, "id", t % 2 ? "odd" : "even");
                if (!ep) continue;
                chosen++;
                // What a request was given stays readable while it lasts.
                EXPECT_EQ(std::string(tavTargetEndpointGetHostName(ep)).substr(0, 1), tavTargetEndpointGetName(ep) + 3);
                (void)std::string(tavOrNull(tavTargetEndpointGetClusterName(ep)));
                tavTargetEndpointGetEnvTargetEndpoint(ep);
                if (i % 7 == 0)
                    tsServerConnectFailure(tsEndPointGetServer(ep));
                else
                    tsServerConnectSuccess(tsEndPointGetServer(ep));
                finish(*ctx, fakeNow, 5, i % 5 == 0);
            }
        });
    }
    for (int i = 0; i < rounds; i++) {
        Back &b = *all[i % 3];
        tsServerSetPropInt(b.server, "weight", i % 4);
        tsEndPointSetPropStr(b.http, "host", (std::string(1, "abc"[i % 3]) + std::to_string(i)).c_str());
        tsEndPointSetPropInt(b.http, "port", 1 + i);
        b.state(i % 2 ? "STOPPED" : "STARTED");
        tsServerSetPropStr(b.server, "state", i % 5 ? "STARTED" : "STOPPED");
        tsLinkServerToWebModule(b.server, module, FALSE);
        tsLinkClusterServer(i % 2 ? cluster : other, b.server, TRUE);
        tsLinkServerToWebModule(b.server, module, TRUE);
        tsServerApplicationDelete(&b.handle);
        tsServerApplicationCreate(b.server, b.path.c_str(), &connector, &b.handle);
        b.state("STARTED");
        tsLinkServerToWebModule(b.server, module, TRUE);
        tsNodeSetPropStr(node, "cp.node.maintenancemode", i % 11 ? "false" : "true");
        Cluster *brief = tsClusterCreate(ts, "/brief");
        tsLinkClusterServer(brief, b.server, TRUE);
        tsLinkClusterServer(brief, b.server, FALSE);
        tsClusterDelete(brief);
        if (json_t *json = i % 50 ? nullptr : tsToJSON(ts)) json_decref(json);
    }
    for (Back *b : all) {
        tsLinkClusterServer(cluster, b->server, TRUE);
        tsServerSetPropStr(b->server, "state", "STARTED");
    }
    while (!chosen) std::this_thread::yield();
    stop = true;
    for (std::thread &thread : requests) thread.join();
    for (Back *b : all) {
        EXPECT_EQ(b->server->outstandingRequestCount, 0);
        EXPECT_EQ(b->server->refcnt, 1);
        EXPECT_EQ(b->http->refcnt, 1);
    }
    EXPECT_EQ(ts->selected, 0);
    EXPECT_EQ(ts->formerClusters, nullptr);
    ASSERT_NE(tsServerGetCloneId(learner), nullptr);
    EXPECT_EQ(tavHashGet(ts->serverMapByCloneId, tsServerGetCloneId(learner)), learner);
}
