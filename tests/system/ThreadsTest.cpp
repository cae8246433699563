// Requests on several threads while the configuration changes under them in every way: what a request sees belongs together, everything is
// given back, and (under the sanitizers) no two threads meet where they must not.
#include <gtest/gtest.h>
#include <jansson.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "system/Instance.h"
#include "system/Shop.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

constexpr int REQUEST_THREADS = 4;
constexpr int STEPS = TAV_TEST_SANITIZED ? 1500 : 6000; // of the configuration

// ---- requests ----

struct Visitor {
    Visitor(Tav *instance, unsigned seed) : tav(instance), random(seed) {}
    Tav *tav;
    std::mt19937 random;
    long served = 0;

    unsigned pick(unsigned n) { return static_cast<unsigned>(random() % n); }

    EnvHttpContext makeRequest() {
        static const std::array<const char *, 7> PATHS{"/shop/cart.jsp", "/shop/cart",  "/shop/old/x", "/shop/secret",
                                                       "/shop/traced/a", "/admin/list", "/elsewhere"};
        EnvHttpContext request = shop::request(PATHS[pick(PATHS.size())]);
        if (pick(2)) request.cookies["SHOPSESSION"] = pick(2) ? "id:clone1" : "id:p2:clone2";
        if (pick(4) == 0) request.headers["beta"] = {"yes"};
        if (pick(3) == 0) request.protocol = "https";
        if (pick(4) == 0) {
            request.responseHeaders["$ZVPT"] = {"p1:clone1;p2:clone2"};
            request.responseHeaders["_ZV_HAPRT_WLMVERSION"] = {"3"};
        }
        if (pick(4) == 0) request.responseHeaders["Set-Cookie"] = {"SHOPSESSION=id:clone2; Path=/"};
        return request;
    }

    // Forwards: a failure or two, then the answer.
    void forward(TavHttpContext *ctx) {
        static constexpr std::array<TavHttpContextState, 4> FAILURES{CONNECT_FAILURE, REQUEST_SEND_ERROR, RESPONSE_READ_ERROR,
                                                                     RESPONSE_TIMEOUT};
        for (unsigned failures = pick(5) == 0 ? 1 + pick(2) : 0; failures > 0; failures--) {
            tavHttpContextSetState(ctx, REQUEST_SENDING, 0, nullptr);
            tavHttpContextSetState(ctx, FAILURES[pick(FAILURES.size())], 0, nullptr);
            TavTargetEndpoint *next = tavHttpContextGetTargetEndpoint(ctx);
            if (!next) return;
            EXPECT_NE(tavTargetEndpointGetName(next), nullptr);
        }
        for (const TavHttpContextState state : {CONNECT_SUCCESS, REQUEST_SENDING, REQUEST_SENT, RESPONSE_ARRIVED, RESPONSE_SENT})
            tavHttpContextSetState(ctx, state, 0, nullptr);
    }

    void visit() {
        EnvHttpContext request = makeRequest();
        TavHttpContext *ctx = tavHttpContextObtain(tav, &request);
        if (!ctx) return; // stopped
        const shop::Decision decision = shop::decisionOf(ctx);
        EXPECT_NE(decision.generation(), -2) << decision.text();
        if (!decision.server.empty()) {
            EXPECT_NE(tavHttpContextGetURL(ctx), nullptr);
            forward(ctx);
            served++;
        }
        // A host that gives up in the middle releases without a last word.
        tavHttpContextRelease(ctx);
    }
};

// ---- configuration ----

// One change: mostly a delta in place, now and then a rebuild, another generation, a server that goes and comes.
struct Operator {
    explicit Operator(const SystemInstance &its, unsigned seed) : instance(its), random(seed) {}
    const SystemInstance &instance;
    std::mt19937 random;
    int generation = 1;
    long long version = 1;

    void give(const std::string &operations) {
        version++;
        EXPECT_EQ(instance.give(shop::delta(generation, version, operations)), version);
    }
    void replaceAll() {
        version++;
        generation++;
        EXPECT_EQ(instance.give(shop::document(generation, version)), version);
    }
    void rebuild() { give(shop::objects("set", shop::entry(shop::STORE, "webModule", "'fileServingEnabled': true"))); }
    // It comes back without a clone id: responses teach it one.
    void removeServer() {
        give(shop::objects("del", shop::entry(shop::S1, "server")));
        give(shop::objects("add", shop::entry(shop::S1, "server", "'state': 'STARTED', 'weight': 1")));
        give(shop::objects("add",
                           shop::entry(shop::S1 + "/transport/http", "transport", "'protocol': 'http', 'host': 'again-@', 'port': 1")));
        give(shop::objects("add", shop::entry(shop::S1 + "/serverApplication/shop-edition@", "serverApplication", "'state': 'STARTED'")));
        give(shop::pair("add", "cluster:server", shop::CLUSTER, shop::S1));
    }

    void step(int number) {
        if (number % 40 == 39) return replaceAll();
        if (number % 25 == 24) return rebuild();
        if (number % 30 == 29) return removeServer();
        // Many do nothing because another was there first.
        const shop::Change &change = shop::changes()[random() % shop::changes().size()];
        give(random() % 2 ? change.first : change.second);
        if (number % 10 == 9) systemAnswerReports();
    }
};

// What a host does besides: it looks, sets properties, changes the trace.
void administer(const SystemInstance &instance, const std::atomic<bool> &ended) {
    Tav *tav = instance.tav;
    for (int i = 0; !ended; i++) {
        char *dump = tavToJSONString(tav);
        EXPECT_NE(dump, nullptr);
        tavMemFree(tav, dump);
        json_decref(tavStatusToJSON(tav));
        TavProperties *props = tavGetProperties(tav);
        tavPropertySet(props, "TrustedProxyList", i % 2 ? "127.0.0.1" : "10.0.0.1:10.0.0.2", TRUE);
        tavPropertySet(props, "enableEndpointSelectionBasedOnMatchedVHost", i % 2 ? "true" : "false", TRUE);
        tavPropertySet(props, "MaxElapsedTimePerRequestInSeconds", i % 3 ? "100" : nullptr, TRUE);
        tavSetTraceSpec(tav, i % 2 ? ":NOTICE" : ":NOTICE,http.request:INFO,control.selector:INFO");
        tavSetServerName(tav, i % 2 ? "c_n1_web" : "c_n1_other");
        tavSetSSLMapMode(tav, i % 2 ? NullMapMode : MapInboundToOutbound);
        EXPECT_NE(tavGetServerName(tav), nullptr);
        EXPECT_NE(tavConnectorGroupGetName(instance.group), nullptr);
        tavConnectorGroupSetWaitTime(instance.group, i);
        systemAnswerReports();
    }
}

class Threads : public testing::Test {
protected:
    void SetUp() override {
        trPurgeDeathRow();
        threads = systemThreads();
        blocks = tavGetMemCount();
        endpoints = systemHostEndpoints();
        tavHttpContextSetRolloutSleep([](int) {});
    }
    void TearDown() override {
        tavHttpContextSetRolloutSleep(nullptr);
        EXPECT_TRUE(systemThreadsBackTo(threads));
        trPurgeDeathRow();
        EXPECT_EQ(tavGetMemCount(), blocks);
        EXPECT_EQ(systemHostEndpoints(), endpoints);
    }

    // Visitors come until `during` is over.
    template <typename During>
    long visitWhile(Tav *tav, During during) {
        std::atomic<bool> ended = false;
        std::array<long, REQUEST_THREADS> served{};
        std::vector<std::thread> visitors;
        for (unsigned i = 0; i < REQUEST_THREADS; i++)
            visitors.emplace_back([&, i] {
                Visitor visitor(tav, i + 1);
                while (!ended) visitor.visit();
                served[i] = visitor.served;
            });
        during();
        ended = true;
        for (std::thread &visitor : visitors) visitor.join();
        long total = 0;
        for (const long each : served) total += each;
        return total;
    }

    int threads = 0, blocks = 0, endpoints = 0;
};

TEST_F(Threads, EveryChangeUnderRequests) {
    SystemInstance instance;
    ASSERT_EQ(instance.give(shop::document(1)), 1);
    const long served = visitWhile(instance.tav, [&] {
        std::atomic<bool> ended = false;
        std::thread administrator([&] { administer(instance, ended); });
        Operator operator_(instance, 7);
        for (int i = 0; i < STEPS; i++) operator_.step(i);
        ended = true;
        administrator.join();
    });
    EXPECT_GT(served, 0);
    // Nobody is under way: every count has come back.
    const std::string dump = instance.dump();
    for (size_t at = 0; (at = dump.find("\"outstandingRequests\": ", at)) != std::string::npos; at++) EXPECT_EQ(dump[at + 23], '0') << dump;
}

// The same in a worker that a daemon feeds.
TEST_F(Threads, EveryChangeUnderRequestsOfAWorker) {
    static std::string path;
    path = "/tmp/tav-threads-test-" + std::to_string(getpid());
    SystemInstance daemon(systemCallBacks(), [](Tav *tav) { ASSERT_EQ(tavMarkAsServerProcess(tav, path.data(), getuid()), 0); });
    ASSERT_EQ(daemon.give(shop::document(1)), 1);
    SystemInstance worker(systemCallBacks(), [](Tav *tav) { ASSERT_EQ(tavMarkAsClientProcess(tav, path.data()), 0); });
    ASSERT_TRUE(eventually([&] { return !shop::serverFor(worker.tav, "/shop/cart").empty(); }));
    visitWhile(worker.tav, [&] {
        Operator operator_(daemon, 11);
        for (int i = 0; i < STEPS / 4; i++) operator_.step(i);
        // What the daemon sent last arrives last.
        daemon.give(shop::document(9999, 100000));
        EXPECT_TRUE(eventually([&] { return shop::serverFor(worker.tav, "/shop/cart").ends_with("-9999"); }));
    });
    unlink(path.c_str());
}

} // namespace
