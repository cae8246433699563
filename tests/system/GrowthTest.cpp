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

// Objects, pairs and rules that come and go, values that change and change back. A rebuild takes away what changed pairs of a virtual-host
// group leave behind.
TEST_F(Growth, DeltasInPlace) {
    const std::vector<shop::Change> &changes = shop::changes();
    expectFlat(DELTAS / static_cast<int>(2 * changes.size()), [&](int &version) {
        for (auto it = changes.begin(); it + 1 != changes.end(); ++it) give(version, it->first);
        for (auto it = changes.rbegin() + 1; it != changes.rend(); ++it) give(version, it->second);
        version++;
    });
}

TEST_F(Growth, DeltasWithRebuildAndCompleteDocuments) {
    using namespace shop;
    expectFlat(REBUILDS, [&](int &version) {
        give(version, objects("set", entry(STORE, "webModule", version % 2 ? "'contextRoot': '/shop'" : "'contextRoot': '/shop2'")));
        give(version, pair("del", "vHostGroup:webModule", GROUP, CONSOLE));
        give(version, pair("add", "vHostGroup:webModule", GROUP, CONSOLE));
        give(version, changes().back().first);
        give(version, changes().back().second);
        ASSERT_EQ(instance.give(shop::document(1, version)), version);
        version++;
    });
}

} // namespace
