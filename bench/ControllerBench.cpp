// The controller: from an edit of a large file to the last of eight libraries that poll, and what a held poll costs.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <jansson.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Controller.h"
#include "engine/ScenarioHost.h"
#include "benchDocument.h"
#include "tavConnector/tavConnector.h"

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) { return std::chrono::duration<double, std::milli>(Clock::now() - start).count(); }

// A controller of its own over a scratch directory, until the process ends.
class Site {
public:
    explicit Site(const std::string &text) {
        char pattern[] = "/tmp/controllerBenchXXXXXX";
        directory_ = mkdtemp(pattern);
        put(text);
        controller::ControllerOptions options;
        options.directory = directory_;
        options.front.listen = "127.0.0.1:0";
        options.quiet = true;
        controller_ = std::make_unique<controller::Controller>(options);
        thread_ = std::thread([this] { controller_->run(); });
    }
    ~Site() {
        kill(getpid(), SIGTERM); // blocked in every thread: it ends the controller alone
        thread_.join();
        std::filesystem::remove_all(directory_);
    }
    const std::string &url() const { return controller_->url(); }
    // Returns when the file was renamed into place.
    Clock::time_point put(const std::string &text) {
        std::ofstream(directory_ + "/large.new") << text;
        const auto start = Clock::now();
        std::filesystem::rename(directory_ + "/large.new", directory_ + "/large.json");
        return start;
    }

private:
    std::string directory_;
    std::unique_ptr<controller::Controller> controller_;
    std::thread thread_;
};

struct Worker {
    Tav *tav;
    TavConnector *connector;
};

Worker startWorker(const std::string &url) {
    EnvCallBacks env = tavctl::scenarioHostCallBacks();
    static char catalogue[] = TAV_SOURCE_DIR "/share/tav-trace.xml";
    Tav *tav = tavCreate(&env, nullptr, catalogue);
    TavConnectorGroup *group = tavConnectorGroupCreate(tav, "g");
    tavConnectorGroupSetProperty(group, "retryInterval", "1");
    tavConnectorGroupSetProperty(group, "maxWaitOffset", "60");
    const Worker worker = {tav, tavConnectorCreate(group, url.c_str())};
    tavStart(tav, -1);
    return worker;
}

void waitForOther(const std::vector<Worker> &workers, int64_t version) {
    for (const Worker &worker : workers) {
        while (tavConnectorGetVersion(worker.connector) == version) std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
}

void editToLastOfEight(benchmark::State &state) {
    const std::string document = benchDocument(static_cast<int>(state.range(0)));
    Site site(document);
    std::vector<Worker> workers;
    for (int i = 0; i < 8; i++) workers.push_back(startWorker(site.url()));
    for (const Worker &worker : workers) {
        while (tavConnectorGetVersion(worker.connector) <= 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    double editing = 0, parsing = 0;
    const size_t place = document.find("\"weight\":2", document.size() / 2) + 9;
    std::string text = document;
    for (auto _ : state) {
        const auto parseStart = Clock::now();
        json_decref(json_loads(text.c_str(), 0, nullptr));
        parsing += since(parseStart);
        std::this_thread::sleep_for(std::chrono::milliseconds(300)); // every library has asked again
        text[place] = text[place] == '2' ? '3' : '2';
        const int64_t version = tavConnectorGetVersion(workers[0].connector);
        const auto start = site.put(text);
        waitForOther(workers, version);
        const double taken = since(start);
        editing += taken;
        state.SetIterationTime(taken / 1000);
    }
    state.counters["toJsonLoads"] = editing / parsing;
    for (const Worker &worker : workers) tavDestroy(worker.tav);
}
BENCHMARK(editToLastOfEight)->Arg(1000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

double residentBytes() {
    long pages = 0, resident = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    if (file && fscanf(file, "%ld %ld", &pages, &resident) != 2) resident = 0;
    if (file) fclose(file);
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// The other ends of the connections are in this process too, but take none of its memory.
void heldPolls(benchmark::State &state) {
    Site site(benchDocument(100));
    const int count = static_cast<int>(state.range(0));
    sockaddr_in address{AF_INET, htons(static_cast<uint16_t>(std::stoi(site.url().substr(site.url().rfind(':') + 1)))), {}, {}};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto open = [&](const std::string &target) {
        const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
        const std::string request = "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: application/json\r\n\r\n";
        if (connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) std::abort();
        if (send(descriptor, request.data(), request.size(), 0) < 0) std::abort();
        return descriptor;
    };
    const auto ask = [&](const std::string &target) {
        const int descriptor = open(target);
        std::string text(1 << 16, '\0');
        text.resize(static_cast<size_t>(recv(descriptor, text.data(), text.size(), 0)));
        close(descriptor);
        return text;
    };
    while (ask("/large").find(" 200 ") == std::string::npos) std::this_thread::yield();
    const std::string document = ask("/large"), version = document.substr(document.find("\"version\":") + 10, 16);
    for (auto _ : state) {
        std::vector<int> descriptors;
        const double before = residentBytes();
        for (int i = 0; i < count; i++)
            descriptors.push_back(open("/large?name=cell_node_web&server=cell_node_web&vid=" + version + "&wait=600"));
        const std::string held = "\"held\": " + std::to_string(count);
        while (ask("/status").find(held) == std::string::npos) std::this_thread::yield();
        state.counters["bytesEach"] = (residentBytes() - before) / count;
        state.counters["per100MB"] = 100e6 * count / (residentBytes() - before);
        for (const int descriptor : descriptors) close(descriptor);
    }
}
BENCHMARK(heldPolls)->Arg(5000)->Iterations(1);

} // namespace
