// Selection with its accounting and release: an affinity hit, and load balancing over a module's servers.
//
// The reference is three rounds of an uncontended lock, which select, end of request and release take at least. Goals: an affinity hit in
// 200 ns; 10 ns for each server that load balancing looks at (counter "ns/server"; every server is busy, so it looks at all of them).
#include <benchmark/benchmark.h>

#include <ctime>
#include <string>
#include <vector>

#include "selectorFakes.h"

namespace {

class Site {
public:
    explicit Site(int servers) {
        tav.mgr = trMgrCreate(fopen(TAV_SOURCE_DIR "/share/tav-trace.xml", "r"), TRUE);
        trContextSetSpec(trMgrGetDefaultContext(tav.mgr), trSpecCreate(tav.mgr, ":NOTICE"));
        tav.env.http.request.getCookieValue = [](EnvHttpContext *env, char *) {
            return const_cast<char *>(reinterpret_cast<TavHttpContext *>(env)->cookie);
        };
        tav.env.http.request.getPath = [](EnvHttpContext *) { return const_cast<char *>("/shop/cart/items"); };
        module.name = moduleName;
        ts = tsCreate(&ri);
        cluster = tsClusterCreate(ts, "/cell/main/cluster/web");
        node = tsNodeCreate(ts, "/cell/main/node/alpha");
        tsLinkVirtualClusterToCluster(tsVirtualClusterCreate(ts, nullptr, module.name), cluster, TRUE);
        handles = std::vector<TavServerApplication>(static_cast<size_t>(servers));
        for (int i = 0; i < servers; i++) addServer(i);
    }
    ~Site() {
        tsDelete(ts);
        trMgrDelete(tav.mgr);
    }
    Site(const Site &) = delete;
    Site &operator=(const Site &) = delete;

    TavHttpContext request(const char *cookie) {
        TavHttpContext ctx;
        ctx.tav = &tav;
        ctx.moduleName = module.name;
        ctx.applicationName = benchApplication;
        ctx.cookie = cookie;
        return ctx;
    }
    void makeBusy() {
        for (TavServerApplication &handle : handles) handle.serverApplication->server->outstandingRequestCount = 1000;
    }

    Tav tav{};
    TavRoutingInfo ri{&tav};
    char moduleName[64] = "/cell/main/application/shop-edition1.0/webModule/shop.war";
    WebModule module{};
    TargetSelector *ts;
    Cluster *cluster;
    TargetNode *node;
    std::vector<TavServerApplication> handles;

private:
    void addServer(int i) {
        const std::string name = "/cell/main/node/alpha/server/web" + std::to_string(i);
        TargetServer *server = tsServerCreate(node, name.c_str(), nullptr);
        TavTargetEndpoint *endpoint = tsEndPointCreate(server, (name + "/transport/http").c_str());
        tsEndPointSetPropStr(endpoint, "protocol", "http");
        tsEndPointSetPropStr(endpoint, "host", "10.0.0.1");
        tsEndPointSetPropInt(endpoint, "port", 9080);
        tsEndPointInit(endpoint);
        tsServerSetPropStr(server, "id", ("clone" + std::to_string(i)).c_str());
        tsServerSetPropInt(server, "weight", 1 + i % 20);
        tsServerInit(server);
        tsServerSetPropStr(server, "state", "STARTED");
        tsLinkClusterServer(cluster, server, TRUE);
        TavServerApplication *handle = &handles[static_cast<size_t>(i)];
        tsServerApplicationCreate(server, (name + "/serverApplication/" + benchApplication).c_str(), nullptr, handle);
        tsServerApplicationSetPropStr(handle, "state", "STARTED");
        tsLinkServerToWebModule(server, &module, TRUE);
    }
};

void oneRequest(Site &site, TavHttpContext &ctx) {
    benchmark::DoNotOptimize(tsSelect(site.ts, &ctx));
    tsServerApplicationDecrementOutstandingRequestCount(&ctx, ctx.sapp, 0, 0, FALSE);
    tsTargetInfoDecrementRefCnt(&ctx);
}

double cpuNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

void threeLocks(benchmark::State &state) {
    TavLock *lock = tavLockCreateRanked(TavLockRank::TargetSelector);
    for (auto _ : state) {
        for (int i = 0; i < 3; i++) {
            tavLockObtain(lock, "bench");
            benchmark::ClobberMemory();
            tavLockRelease(lock);
        }
    }
    tavLockDestroy(lock);
}
BENCHMARK(threeLocks);

// The whole round: select, end of request, release.
void affinityHit(benchmark::State &state) {
    Site site(static_cast<int>(state.range(0)));
    const std::string cookie = "0000AbCdEfGhIjKlMnOpQrStUvW:clone" + std::to_string(state.range(0) / 2);
    TavHttpContext ctx = site.request(cookie.c_str());
    for (auto _ : state) oneRequest(site, ctx);
    if (ctx.loadBalanced) state.SkipWithError("not an affinity hit");
}
BENCHMARK(affinityHit)->Arg(10)->Arg(1000);

void balanceIdle(benchmark::State &state) {
    Site site(static_cast<int>(state.range(0)));
    TavHttpContext ctx = site.request(nullptr);
    for (auto _ : state) oneRequest(site, ctx);
}
BENCHMARK(balanceIdle)->Arg(10)->Arg(1000);

void balanceBusy(benchmark::State &state) {
    Site site(static_cast<int>(state.range(0)));
    site.makeBusy();
    TavHttpContext ctx = site.request(nullptr);
    const double start = cpuNanoseconds();
    for (auto _ : state) oneRequest(site, ctx);
    state.counters["ns/server"] = (cpuNanoseconds() - start) / static_cast<double>(state.iterations() * state.range(0));
}
BENCHMARK(balanceBusy)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);

} // namespace
