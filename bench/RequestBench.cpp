// A whole request against an uncontended mutex pair (lock and unlock) measured in the same run: the counter "mutexPairs" is its price.
//
// 1,000 applications with five rules each (the last permits), 1,000 servers in clusters of ten, trace at ":NOTICE". A request is obtain,
// should-handle, endpoint, private headers, five state reports, release. Affinity: a cookie names the server. Balanced: no cookie; the
// counter "ns/server" tells what each server of the module adds. Goals: 120 pairs; 10 ns a server; two threads reach 1.7 times one.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "benchSite.h"

namespace {

using Clock = std::chrono::steady_clock;

double nsSince(Clock::time_point start) {
    return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start).count());
}

constexpr int kApplications = 1000, kServers = 1000;

BenchSite &site(int serversPerCluster) {
    static std::unique_ptr<BenchSite> current;
    static int currentSize = 0;
    if (currentSize != serversPerCluster) {
        current.reset();
        current = std::make_unique<BenchSite>(siteDocument({kApplications, kServers / serversPerCluster, serversPerCluster}));
        currentSize = serversPerCluster;
    }
    return *current;
}

// Requests for random applications, each with a cookie of one of its servers.
struct Load {
    std::vector<std::string> paths, cookies;
    std::vector<EnvHttpContext> requests;

    Load(int serversPerCluster, bool affinity, unsigned seed) {
        constexpr size_t kCount = 4096;
        std::mt19937 random(seed);
        for (size_t i = 0; i < kCount; ++i) {
            const int app = static_cast<int>(random() % kApplications), server = static_cast<int>(random() % serversPerCluster);
            paths.push_back("/app" + std::to_string(app) + "/page" + std::to_string(i % 16));
            cookies.push_back("0000a1b2c3d4:c" + std::to_string(app % (kServers / serversPerCluster)) + "x" + std::to_string(server));
        }
        for (size_t i = 0; i < kCount; ++i) requests.push_back({paths[i].data(), affinity ? cookies[i].data() : nullptr});
    }

    double nsPerRequest(Tav *tav) {
        const auto start = Clock::now();
        for (EnvHttpContext &request : requests) {
            if (!driveRequest(tav, &request)) abort();
        }
        return nsSince(start) / static_cast<double>(requests.size());
    }
};

double nsPerMutexPair() {
    constexpr int kPairs = 20000;
    static std::mutex mutex;
    const auto start = Clock::now();
    for (int i = 0; i < kPairs; ++i) {
        mutex.lock();
        benchmark::ClobberMemory();
        mutex.unlock();
    }
    return nsSince(start) / kPairs;
}

void request(benchmark::State &state, bool affinity) {
    const int servers = static_cast<int>(state.range(0));
    BenchSite &tested = site(servers);
    Load load(servers, affinity, 1), kept(servers, true, 1);
    load.nsPerRequest(tested.tav);
    double requests = 0, pairs = 0, affinityOnly = 0;
    for (auto unused : state) {
        pairs += nsPerMutexPair();
        const double ns = load.nsPerRequest(tested.tav);
        if (!affinity) affinityOnly += kept.nsPerRequest(tested.tav);
        requests += ns;
        state.SetIterationTime(ns * 1e-9);
    }
    const auto rounds = static_cast<double>(state.iterations());
    state.counters["ns/request"] = requests / rounds;
    state.counters["ns/pair"] = pairs / rounds;
    state.counters["mutexPairs"] = requests / pairs;
    if (!affinity) state.counters["ns/server"] = (requests - affinityOnly) / rounds / servers;
}
BENCHMARK_CAPTURE(request, affinity, true)->Arg(10)->Arg(100)->UseManualTime()->Iterations(100);
BENCHMARK_CAPTURE(request, balanced, false)->Arg(10)->Arg(100)->UseManualTime()->Iterations(50);

// The mean time of a request when two threads, started together, drive one load each.
double nsOfTwo(Load &first, Tav *firstTav, Load &second, Tav *secondTav) {
    std::atomic<int> ready{0};
    const auto drive = [&ready](Load &load, Tav *tav) {
        for (++ready; ready < 2;) continue;
        return load.nsPerRequest(tav);
    };
    double otherNs = 0;
    std::thread other([&] { otherNs = drive(second, secondTav); });
    const double ns = drive(first, firstTav);
    other.join();
    return (ns + otherNs) / 2;
}

// Requests a second of two threads against one, in alternation. "machine" is the same with an instance for each thread: what is left of
// twice the speed when the threads share nothing but the processor, its caches and its memory. "ofMachine" is the one over the other.
void twoThreads(benchmark::State &state) {
    BenchSite &tested = site(10);
    BenchSite apart(siteDocument({kApplications, kServers / 10, 10}));
    Load first(10, true, 1), second(10, true, 2);
    second.nsPerRequest(apart.tav);
    double one = 0, two = 0, twoApart = 0;
    for (auto unused : state) {
        one += first.nsPerRequest(tested.tav);
        const double ns = nsOfTwo(first, tested.tav, second, tested.tav);
        two += ns;
        twoApart += nsOfTwo(first, tested.tav, second, apart.tav);
        state.SetIterationTime(ns * 1e-9);
    }
    state.counters["speedup"] = 2 * one / two;
    state.counters["machine"] = 2 * one / twoApart;
    state.counters["ofMachine"] = twoApart / two;
}
BENCHMARK(twoThreads)->UseManualTime()->Iterations(100);

} // namespace
