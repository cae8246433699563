// The choice of the virtual-host group among 10 to 10,000 groups, sealed. Each group serves two hosts on one port; a tenth of the requests
// match no group. Goal: no growth beyond 1.5 times from 10 to 10,000 groups; the counter "growth" of a row is its time over the first's.
//
// The "same" rows ask ten groups over and over, so that the rows differ only in the number of groups. The "spread" rows ask every group in
// turn, in random order: there the processor's caches weigh in too, as the data of 10,000 groups does not fit where that of ten does.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "matchingFakes.h"
#include "tavURLMatcher/tavURLMatcher.h"

namespace {

struct Groups {
    Groups(int count, size_t asked) : matcher(tavURLMatcherCreate(nullptr)) {
        const char *pattern = "/shop/*";
        for (int i = 0; i < count; ++i) {
            const std::string name = "www" + std::to_string(i) + ".example.com";
            VHostMatcher *group = createVHostMatcher(nullptr, name.c_str());
            putVHost(group, name.c_str(), 443);
            putVHost(group, ("alias." + name).c_str(), 443);
            vhostMatcherPutPatterns(group, &pattern, 1, &webModule);
            addVHostMatcher(matcher, group);
        }
        for (size_t i = 0; i < asked; ++i) {
            const std::string number = std::to_string(i * static_cast<size_t>(count) / asked);
            hosts.push_back(std::string(i % 2 ? "alias." : "") + (i % 10 == 7 ? "unknown" : "WWW") + number + ".example.com");
        }
        std::shuffle(hosts.begin(), hosts.end(), std::mt19937(1));
    }
    ~Groups() { tavURLMatcherDestroy(matcher); }
    Groups(const Groups &) = delete;
    Groups &operator=(const Groups &) = delete;

    WebModule webModule{"/cell/main/webModule/bench", "/shop"};
    URLMatcher *matcher;
    std::vector<std::string> hosts;
};

// Seconds per request.
double ask(const Groups &groups, size_t requests) {
    const auto start = std::chrono::steady_clock::now();
    for (size_t i = 0, next = 0; i < requests; ++i) {
        benchmark::DoNotOptimize(matchLongestURI(groups.matcher, nullptr, groups.hosts[next].c_str(), 443, "/shop/cart"));
        if (++next == groups.hosts.size()) next = 0;
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / static_cast<double>(requests);
}

// The row's groups and ten reference groups take turns, so that both see the same machine.
void chooseAmong(benchmark::State &state, bool sealed, bool spread) {
    const auto count = static_cast<size_t>(state.range(0));
    const Groups reference(10, 10), groups(static_cast<int>(count), spread ? count : 10);
    tavURLMatcherSeal(reference.matcher);
    if (sealed) tavURLMatcherSeal(groups.matcher);
    double few = 0, many = 0;
    for (auto _ : state) {
        few += ask(reference, 10000);
        const double pass = ask(groups, sealed ? 10000 : 100);
        many += pass;
        state.SetIterationTime(pass);
    }
    state.counters["growth"] = many / few;
}
BENCHMARK_CAPTURE(chooseAmong, same, true, false)->RangeMultiplier(10)->Range(10, 10000)->UseManualTime()->Iterations(200);
BENCHMARK_CAPTURE(chooseAmong, spread, true, true)->RangeMultiplier(10)->Range(10, 10000)->UseManualTime()->Iterations(200);
BENCHMARK_CAPTURE(chooseAmong, unsealed, false, false)->RangeMultiplier(10)->Range(10, 1000)->UseManualTime()->Iterations(200);

} // namespace
