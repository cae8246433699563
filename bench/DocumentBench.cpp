// Documents: a complete one against the parser alone, a one-property delta on a small and a large document, and what a snapshot costs.
#include <benchmark/benchmark.h>
#include <jansson.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include <tav/tav.h>

#include "benchDocument.h"
#include "tav/tavRecord.h"
#include "tavConnector/tavConnector.h"
#include "tavSnapshot/tavRoutingInfo.h"

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) { return std::chrono::duration<double, std::milli>(Clock::now() - start).count(); }

char *noText(EnvHttpContext *) { return nullptr; }
char *noNamed(EnvHttpContext *, char *) { return nullptr; }
int noPort(EnvHttpContext *) { return 80; }

Tav *createInstance() {
    EnvCallBacks env{};
    env.version = TAV_ENV_VERSION;
    auto &request = env.http.request;
    request.getClientIpAddr = request.getProtocolVersion = request.getVirtualHost = request.getProtocol = request.getPath = noText;
    request.getAuthType = request.getUserName = request.getClientCertificate = request.getSSLCipherSuite = request.getSSLSessionId = noText;
    request.getListeningPort = request.getVirtualPort = noPort;
    request.getCookieValue = noNamed;
    request.setHeaderValue = [](EnvHttpContext *, char *, char *) { return 0; };
    static char catalogue[] = TAV_SOURCE_DIR "/share/tav-trace.xml";
    return tavCreate(&env, nullptr, catalogue);
}

std::string oneProperty(int version, int server) {
    const std::string node = "/cell/main/node/node" + std::to_string(server / 10);
    return R"({"version":)" + std::to_string(version) + R"(,"restVersion":1,"delta":true,"set":{"objects":[{"name":")" + node +
           "/server/server" + std::to_string(server) + R"(","type":"server","props":{"weight":)" + std::to_string(version % 9 + 1) +
           "}}]}}";
}

double parse(const std::string &text) {
    const auto start = Clock::now();
    json_t *json = json_loads(text.c_str(), 0, nullptr);
    const double taken = since(start);
    json_decref(json);
    return taken;
}

// The instance's own thread takes replaced documents apart.
void waitUntilIdle(Tav *tav) {
    std::atomic<bool> idle{false};
    tavProcessAsync(
        tav, &idle, [](Tav *, void *obj) { *static_cast<std::atomic<bool> *>(obj) = true; }, nullptr);
    while (!idle) std::this_thread::yield();
}

double give(const std::string &text, TavConnector *c) {
    waitUntilIdle(c->tav);
    const auto start = Clock::now();
    if (tavHandleJsonFromRestService(text.c_str(), c) < 0) std::abort();
    return since(start);
}

// The heap that one more snapshot of the document in place takes, in bytes.
size_t snapshotBytes(Tav *tav) {
    static std::atomic<bool> idle{false}; // the instance's thread takes the replaced documents apart
    tavProcessAsync(
        tav, &idle, [](Tav *, void *) { idle = true; }, nullptr);
    while (!idle) std::this_thread::yield();
    const size_t before = mallinfo2().uordblks;
    tavControlLock("bench");
    TavRoutingInfo *ri = tavCreateAndPopulateNewRoutingInfo(tav);
    tavControlUnlock();
    const size_t bytes = mallinfo2().uordblks - before;
    tavRoutingInfoRelease(ri);
    return bytes;
}

// One instance for all: its connector is given other documents.
struct Site {
    Tav *tav = createInstance();
    TavConnector *c = tavConnectorCreate(tavConnectorGroupCreate(tav, "g"), "http://127.0.0.1:1");
};

Site &site() {
    static Site *only = new Site;
    return *only;
}

// A complete document in place of another: the call against the parser's share of it.
void completeDocument(benchmark::State &state) {
    const std::string text = benchDocument(static_cast<int>(state.range(0)));
    give(text, site().c);
    double parsing = 0, giving = 0;
    for (auto _ : state) {
        parsing += parse(text);
        const double taken = give(text, site().c);
        giving += taken;
        state.SetIterationTime(taken / 1000);
    }
    state.counters["MB"] = static_cast<double>(text.size()) / 1e6;
    state.counters["toJsonLoads"] = giving / parsing;
}
BENCHMARK(completeDocument)->Arg(1000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond);

// One property of one of ten servers that lie far apart.
void onePropertyDelta(benchmark::State &state) {
    const int objects = static_cast<int>(state.range(0));
    give(benchDocument(objects), site().c);
    int version = 2;
    for (auto _ : state) {
        const std::string delta = oneProperty(version, version % 10 * (objects / 100));
        version++;
        state.SetIterationTime(give(delta, site().c) / 1000);
    }
}
BENCHMARK(onePropertyDelta)->Arg(1000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMicrosecond);

void snapshotMemory(benchmark::State &state) {
    const std::string text = benchDocument(static_cast<int>(state.range(0)));
    give(text, site().c);
    for (auto _ : state) state.counters["toText"] = static_cast<double>(snapshotBytes(site().tav)) / static_cast<double>(text.size());
}
BENCHMARK(snapshotMemory)->Arg(100000)->Iterations(1);

} // namespace
