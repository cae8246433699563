// Deltas without end that leave the topology as large as it was: the memory in use stays as it was, too.
#include <gtest/gtest.h>
#include <malloc.h>

#include "system/Instance.h"
#include "system/Shop.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

constexpr int DELTAS = TAV_TEST_SANITIZED ? 3000 : 100000;
constexpr int REBUILDS = TAV_TEST_SANITIZED ? 60 : 1000;

class Growth : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(instance.give(shop::document(1)), 1); }

    void give(int version, const std::string &operations) {
        ASSERT_EQ(instance.give(shop::delta(1, version, operations)), version);
        if (version % 16 == 0) shop::serverFor(instance.tav, "/shop/cart");
        systemAnswerReports();
    }
    int blocks() {
        instance.settle();
        trPurgeDeathRow();
        return tavGetMemCount();
    }
    static size_t bytes() { return mallinfo2().uordblks; }

    // Gives `count` deltas in rounds: after the first tenth nothing may grow any more.
    template <typename Next>
    void expectFlat(int count, Next next) {
        int version = 2;
        for (const int end = version + count / 10; version < end;) next(version);
        const int blocksBefore = blocks();
        const size_t bytesBefore = bytes();
        for (const int end = version + count - count / 10; version < end;) next(version);
        EXPECT_LE(blocks(), blocksBefore + 16); // what the instance's own thread has in hand, far less than one a round
        if (!TAV_TEST_SANITIZED) {              // a sanitizer's allocator counts otherwise
            EXPECT_LE(bytes(), bytesBefore + 64 * 1024);
        }
    }

    SystemInstance instance;
};

// Objects, pairs and rules that go and come, values that change and change back.
TEST_F(Growth, DeltasInPlace) {
    using namespace shop;
    const std::string server = NODE + "/server/extra", rule = WORK_CLASS + "/rule/5";
    const std::string rounds[] = {
        objects("add", entry(server, "server", "'state': 'STARTED', 'weight': 1, 'id': 'clone5'")),
        objects("add", entry(server + "/transport/t", "transport", "'protocol': 'http', 'host': 'a', 'port': 1")),
        objects("add", entry(server + "/serverApplication/shop-edition@", "serverApplication", "'state': 'STARTED'")),
        pair("add", "cluster:server", CLUSTER, server),
        pair("add", "server:webModule", server, STORE),
        pair("add", "server:healthPolicy", server, "/cell/c/healthPolicy/slow"),
        objects("set", entry(server + "/transport/t", "transport", "'host': 'b', 'port': 2")),
        objects("set", entry(server, "server", "'state': 'STOPPED'")),
        pair("del", "cluster:server", CLUSTER, server),
        objects("del", entry(server, "server")),
        objects("add", entry(rule, "rule", "'expression': 'port = 7', 'action': 'reject:404'")),
        objects("set", entry(rule, "rule", "'expression': 'port = 8', 'action': 'permit:shop-edition@'")),
        objects("del", entry(rule, "rule")),
        objects("set", entry(S1 + "/transport/http", "transport", "'host': 'other'")),
        objects("set", entry(S1 + "/transport/http", "transport", "'host': 'h1-@'")),
        objects("set", entry(CELL, "cell", "'cp.DefaultRequestTraceSpec': ':INFO', 'cp.TrustedProxyList': '10.0.0.1'")),
        objects("set", entry(CELL, "cell", "'cp.DefaultRequestTraceSpec': null, 'cp.TrustedProxyList': '10.0.0.2'")),
        objects("set", entry(S1 + "/ruleSet/trace/rule/1", "rule", "'action': ':INFO'")),
    };
    constexpr int COUNT = std::size(rounds);
    expectFlat(DELTAS / COUNT, [&](int &version) {
        for (const std::string &operations : rounds) give(version++, operations);
        version -= COUNT - 1;
    });
}

TEST_F(Growth, DeltasWithRebuildAndCompleteDocuments) {
    using namespace shop;
    expectFlat(REBUILDS, [&](int &version) {
        give(version, objects("set", entry(STORE, "webModule", version % 2 ? "'contextRoot': '/shop'" : "'contextRoot': '/shop2'")));
        give(version, pair("del", "vHostGroup:webModule", GROUP, CONSOLE));
        give(version, pair("add", "vHostGroup:webModule", GROUP, CONSOLE));
        ASSERT_EQ(instance.give(shop::document(1, version)), version);
        version++;
    });
}

// Added pairs publish a changed copy of the group's patterns each, until a rebuild takes the copies away.
TEST_F(Growth, PairsInPlace) {
    const std::string beta = "/cell/c/application/shop-editionB@/webModule/beta@";
    expectFlat(REBUILDS, [&](int &version) {
        give(version, shop::pair("add", "vHostGroup:webModule", shop::GROUP, beta));
        give(version, shop::pair("del", "vHostGroup:webModule", shop::GROUP, beta));
        version++;
    });
}

} // namespace
