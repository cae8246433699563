// One path among many patterns, against one look-up of the same path in a hash map of the exact paths.
//
// Context roots have 7 exact, 2 prefix and 1 suffix pattern each; a tenth of the paths match nothing. Goals: at most 3 look-ups among
// 10,000 patterns, 5 among 100,000; at most 250 bytes a pattern. The counters "lookups" and "bytes/pattern" show them.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "URIMatcher/URIMatcher.h"
#include "matchingFakes.h"

namespace {

class Workload {
public:
    explicit Workload(size_t roots) {
        for (size_t i = 0; i < roots; ++i) addRoot("/" + word(4, 12));
        build();
        makePaths(20000);
    }
    ~Workload() { URIMatcherDelete(matcher); }
    Workload(const Workload &) = delete;
    Workload &operator=(const Workload &) = delete;

    std::vector<std::string> patterns, paths;
    std::unordered_map<std::string, const WebModule *> map;
    URIMatcher *matcher = nullptr;
    size_t bytes = 0; // what the sealed matcher took from the C library's heap

private:
    std::string word(size_t shortest, size_t longest) {
        std::string text(shortest + random() % (longest - shortest + 1), ' ');
        for (char &c : text) c = static_cast<char>('a' + random() % 26);
        return text;
    }

    void addRoot(const std::string &root) {
        rootNames.push_back(root);
        for (int i = 0; i < 7; ++i) {
            exact.push_back(root + "/" + word(3, 10) + (i % 2 ? "/" + word(3, 10) : ""));
            patterns.push_back(exact.back());
        }
        for (int i = 0; i < 2; ++i) {
            prefixes.push_back(root + "/" + word(3, 10) + "/");
            patterns.push_back(prefixes.back() + "*");
        }
        patterns.push_back(root + "/*.jsp");
    }

    void build() {
        const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
        matcher = URIMatcherCreate(nullptr, "bench");
        for (const std::string &pattern : patterns) URIMatcherPut(matcher, pattern.c_str(), &webModule, TRUE);
        URIMatcherSeal(matcher);
        bytes = mallinfo2().uordblks + mallinfo2().hblkhd - before;
        for (const std::string &path : exact) map.emplace(path, &webModule);
    }

    // Exact, prefix and suffix paths as often as their patterns, and a tenth of misses.
    void makePaths(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            const size_t kind = random() % 100;
            if (kind < 10) {
                paths.push_back(rootNames[random() % rootNames.size()] + word(1, 3) + "/" + word(3, 10));
            } else if (kind < 73) {
                paths.push_back(exact[random() % exact.size()]);
            } else if (kind < 91) {
                paths.push_back(prefixes[random() % prefixes.size()] + word(3, 10));
            } else {
                paths.push_back(rootNames[random() % rootNames.size()] + "/" + word(3, 10) + ".jsp");
            }
        }
    }

    std::mt19937 random{20240501};
    std::vector<std::string> exact, prefixes, rootNames;
    WebModule webModule{"/cell/main/webModule/bench", "/"};
};

typedef std::chrono::steady_clock Clock;

template <typename LookUp>
double nanoseconds(const std::vector<std::string> &paths, LookUp lookUp) {
    const auto start = Clock::now();
    for (const std::string &path : paths) benchmark::DoNotOptimize(lookUp(path));
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

void matchAmong(benchmark::State &state) {
    const Workload load(static_cast<size_t>(state.range(0)) / 10);
    double matching = 0, lookingUp = 0;
    for (auto _ : state) {
        lookingUp += nanoseconds(load.paths, [&](const std::string &path) { return load.map.find(path); });
        const double pass =
            nanoseconds(load.paths, [&](const std::string &path) { return URIMatcherMatch(load.matcher, path.c_str(), nullptr); });
        matching += pass;
        state.SetIterationTime(pass / 1e9);
    }
    const double calls = static_cast<double>(state.iterations()) * static_cast<double>(load.paths.size());
    state.counters["ns/match"] = matching / calls;
    state.counters["ns/lookup"] = lookingUp / calls;
    state.counters["lookups"] = matching / lookingUp;
    state.counters["bytes/pattern"] = static_cast<double>(load.bytes) / static_cast<double>(load.patterns.size());
}
BENCHMARK(matchAmong)->Arg(100)->Arg(10000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond);

// Building and sealing: the time per pattern must not grow with the number of context roots under one node.
void buildAmong(benchmark::State &state) {
    const Workload load(static_cast<size_t>(state.range(0)) / 10);
    WebModule webModule{"/cell/main/webModule/bench", "/"};
    for (auto _ : state) {
        URIMatcher *matcher = URIMatcherCreate(nullptr, "bench");
        for (const std::string &pattern : load.patterns) URIMatcherPut(matcher, pattern.c_str(), &webModule, TRUE);
        URIMatcherSeal(matcher);
        URIMatcherDelete(matcher);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(load.patterns.size()));
}
BENCHMARK(buildAmong)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace
