// A daemon and eight workers, each a process of its own, on a document of 100,000 objects: how long a delta takes to the last worker, how
// many deltas a second get through, and what they cost the requests that run meanwhile.
//
// The workers are forked before the daemon's instance is made. A worker notes each delta in shared memory when its trace hook hears of the
// changed state of a server, which is the delta's last work but for clean-up.
#include <benchmark/benchmark.h>
#include <jansson.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "benchSite.h"
#include "tav/tavRecord.h"
#include "tavMultiProcess/tavMultiProcess.h"
#include "tr/tr.h"

namespace {

constexpr SiteSize SIZE = {800, 80, 95}; // 99,000 objects
constexpr int WORKERS = 8;
constexpr int DELTAS_PER_SECOND = 100;
constexpr int WINDOW = 1000; // ms of requests at a time

// What the processes share.
struct Board {
    std::atomic<long long> changes[WORKERS]; // server states that were seen to change
    std::atomic<long long> at[WORKERS];      // when the last one did, ns
    std::atomic<bool> measuring;             // worker 0 runs requests
    std::atomic<int> measured;               // rounds of that which are over
    std::atomic<long long> p99, requests;    // of the last one
};

Board *board;
int worker; // the number of this process

long long now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string socketPath() {
    static const std::string path = "/tmp/tav-bench-" + std::to_string(getpid());
    return path;
}

int noteChange(const TrContext *, va_list) {
    board->at[worker] = now();
    ++board->changes[worker];
    return 0;
}

// ---- workers ----

// Requests of one application, one after the other with a pause, until the window is over.
void measureRequests(Tav *tav) {
    char path[] = "/app7/index.html";
    std::vector<long long> times;
    for (const long long end = now() + WINDOW * 1000000LL; now() < end; usleep(50)) {
        EnvHttpContext request = {path, nullptr};
        const long long start = now();
        if (!driveRequest(tav, &request)) abort();
        times.push_back(now() - start);
    }
    const auto place = times.begin() + static_cast<long>(times.size() * 99 / 100);
    std::nth_element(times.begin(), place, times.end());
    board->p99 = *place;
    board->requests = static_cast<long long>(times.size());
    board->measuring = false;
    ++board->measured;
}

[[noreturn]] void runWorker(int number, std::string path) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    worker = number;
    static std::string daemonPath = path;
    BenchSite site("", [](Tav *tav) {
        tavGetTrMgr(tav)->printf = noteChange;
        tavMarkAsClientProcess(tav, daemonPath.data());
    });
    for (;; usleep(5000)) {
        if (number == 0 && board->measuring) measureRequests(site.tav);
    }
}

// ---- the daemon ----

void waitUntil(const auto &condition) {
    while (!condition()) usleep(100);
}

class Fleet {
public:
    static Fleet &get() {
        static Fleet *only = new Fleet;
        return *only;
    }

    // One delta; returns the ms until the last worker had it.
    double send() {
        long long before[WORKERS];
        for (int i = 0; i < WORKERS; i++) before[i] = board->changes[i];
        const long long start = now();
        give();
        long long last = 0;
        for (int i = 0; i < WORKERS; i++) {
            waitUntil([&] { return board->changes[i] > before[i]; });
            last = std::max(last, board->at[i].load());
        }
        return static_cast<double>(last - start) / 1e6;
    }

    // The state of one of eighty servers that lie far apart, which it has not yet.
    void give() {
        const int cluster = version_ % SIZE.clusters;
        const char *state = version_ / SIZE.clusters % 2 ? "STARTED" : "AFFINITY";
        version_++;
        const std::string delta = R"({"version":)" + std::to_string(version_) +
                                  R"(,"restVersion":1,"delta":true,"set":{"objects":[{"type":"server","name":"/cell/c/node/n/server/s)" +
                                  std::to_string(cluster) + "x94\",\"props\":{\"state\":\"" + state + "\"}}]}}";
        if (site_->give(delta) < 0) abort();
    }

    double parse() const {
        const long long start = now();
        json_t *json = json_loads(document_.c_str(), 0, nullptr);
        const double taken = static_cast<double>(now() - start) / 1e6;
        json_decref(json);
        return taken;
    }

private:
    Fleet() : document_(siteDocument(SIZE)) {
        board = static_cast<Board *>(mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        const std::string path = socketPath();
        for (int i = 0; i < WORKERS; i++) {
            if (fork() == 0) runWorker(i, path);
        }
        site_ = new BenchSite(document_, [](Tav *tav) { tavMarkAsServerProcess(tav, socketPath().data(), getuid()); });
        waitUntil([&] { return tavServerProcessGetClientCount(site_->tav->serverProcess) == WORKERS; });
        send(); // every worker has the document when it has a delta on it
        unlink(path.c_str());
    }

    std::string document_;
    BenchSite *site_;
    int version_ = 0;
};

// The time of one delta to the last of the workers, and its ratio to the parser's on the whole document.
void deltaToTheLastWorker(benchmark::State &state) {
    Fleet &fleet = Fleet::get();
    std::vector<double> times, parsing;
    for (auto _ : state) {
        times.push_back(fleet.send());
        state.SetIterationTime(times.back() / 1000);
    }
    for (int i = 0; i < 5; i++) parsing.push_back(fleet.parse());
    std::sort(times.begin(), times.end());
    std::sort(parsing.begin(), parsing.end());
    state.counters["medianMs"] = times[times.size() / 2];
    state.counters["toJsonLoads"] = times[times.size() / 2] / parsing[2];
}
BENCHMARK(deltaToTheLastWorker)->Iterations(200)->UseManualTime()->Unit(benchmark::kMillisecond);

// As many deltas as get through one after the other, each waiting for the last worker before the next.
void deltasASecond(benchmark::State &state) {
    Fleet &fleet = Fleet::get();
    for (auto _ : state) fleet.send();
    state.counters["deltas"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(deltasASecond)->Iterations(300)->UseRealTime()->Unit(benchmark::kMillisecond);

// The slowest of a hundred requests in a worker, with and without deltas, in turns.
void requestsDuringDeltas(benchmark::State &state) {
    Fleet &fleet = Fleet::get();
    std::vector<double> idle, loaded;
    const auto window = [&](bool deltas) {
        const int before = board->measured;
        board->measuring = true;
        while (board->measured == before) {
            if (deltas) fleet.give();
            usleep(1000000 / DELTAS_PER_SECOND);
        }
        (deltas ? loaded : idle).push_back(static_cast<double>(board->p99) / 1000);
    };
    for (auto _ : state) {
        window(false);
        window(true);
    }
    for (std::vector<double> *each : {&idle, &loaded}) std::sort(each->begin(), each->end());
    state.counters["idleP99us"] = idle[idle.size() / 2];
    state.counters["loadedP99us"] = loaded[loaded.size() / 2];
    state.counters["loadedToIdle"] = loaded[loaded.size() / 2] / idle[idle.size() / 2];
}
BENCHMARK(requestsDuringDeltas)->Iterations(9)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
