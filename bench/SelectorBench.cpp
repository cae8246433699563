// Selection with its accounting and release: an affinity hit, and load balancing over a module's servers.
//
// The reference is three rounds of an uncontended lock, which select, end of request and release take at least. Goals: an affinity hit in
// 200 ns; 10 ns for each server that load balancing looks at (counter "ns/server"; every server is busy, so it looks at all of them).
#include <benchmark/benchmark.h>

#include <ctime>
#include <string>

#include "benchSite.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavInstance/tavInstance.h"
#include "tavLock/tavLock.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavTargetSelector/tsTypes.h"

namespace {

char kPath[] = "/app0/cart/items";

// One application on so many servers, and a request of it that is mapped already.
class Selection {
public:
    Selection(int64_t servers, const char *cloneId)
        : site_(siteDocument({1, 1, static_cast<int>(servers)})),
          cookie_(std::string("0000AbCdEfGhIjKlMnOpQrStUvW:") + (cloneId ? cloneId : "")),
          request_{kPath, cloneId ? cookie_.data() : nullptr},
          ctx(tavHttpContextObtain(site_.tav, &request_)) {
        if (tavHttpContextShouldHandle(ctx) != 1) abort();
    }
    ~Selection() { tavHttpContextRelease(ctx); }
    Selection(const Selection &) = delete;
    Selection &operator=(const Selection &) = delete;

    TargetSelector *selector() const { return tavRoutingInfoGetTargetSelector(ctx->routingInfo); }
    void makeBusy() const {
        const auto busy = [](const TsVisit *visit, void *) { const_cast<TargetServer *>(visit->server)->outstandingRequestCount = 1000; };
        tsForEachServerApplication(selector(), busy, nullptr);
    }
    void select() const {
        benchmark::DoNotOptimize(tsSelect(selector(), ctx));
        tsServerApplicationDecrementOutstandingRequestCount(ctx, ctx->targetServerApplication, 0, 0, FALSE);
        tsTargetInfoDecrementRefCnt(ctx);
    }

private:
    BenchSite site_;
    std::string cookie_;
    EnvHttpContext request_;

public:
    TavHttpContext *ctx;
};

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
    const Selection selection(state.range(0), ("c0x" + std::to_string(state.range(0) / 2)).c_str());
    for (auto _ : state) selection.select();
    if (selection.ctx->performedLoadBalancing) state.SkipWithError("not an affinity hit");
}
BENCHMARK(affinityHit)->Arg(10)->Arg(1000);

void balanceIdle(benchmark::State &state) {
    const Selection selection(state.range(0), nullptr);
    for (auto _ : state) selection.select();
}
BENCHMARK(balanceIdle)->Arg(10)->Arg(1000);

void balanceBusy(benchmark::State &state) {
    const Selection selection(state.range(0), nullptr);
    selection.makeBusy();
    const double start = cpuNanoseconds();
    for (auto _ : state) selection.select();
    state.counters["ns/server"] = (cpuNanoseconds() - start) / static_cast<double>(state.iterations() * state.range(0));
}
BENCHMARK(balanceBusy)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);

} // namespace
