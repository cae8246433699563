// Instances that come and go with the built-in transport, alarms and polls under way: in any order, from any thread, and nothing stays.
#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <random>

#include "system/HeldController.h"
#include "system/Instance.h"
#include "system/Shop.h"
#include "tavConnector/tavConnector.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

constexpr int CYCLES = TAV_TEST_SANITIZED ? 120 : 1000;
constexpr int ROUNDS = TAV_TEST_SANITIZED ? 12 : 40;
constexpr int THREADS = 4;

class Life : public testing::Test, protected SystemParts {
protected:
    // The host's own transport and alarms are missing: the library's are used.
    Life() {
        env.http.connector = {};
        env.alarm = nullptr;
        create("http://127.0.0.1:1");
        tavDestroy(tav); // what a process has once for all
    }
    ~Life() override { unlink(path.c_str()); }

    void create(const std::string &url) {
        static_cast<SystemParts &>(*this) = systemCreate(env, url);
        tavConnectorGroupSetProperty(group, "retryInterval", "1");
    }
    bool isRouted() const { return !shop::serverFor(tav, "/shop/cart").empty(); }

    // What the process has when no instance and no connection is there.
    struct Holdings {
        int threads, descriptors, blocks;
        size_t bytes;
    };
    Holdings holdings(int atMostThreads) {
        controller.shut();
        EXPECT_TRUE(systemThreadsBackTo(atMostThreads));
        trDestroy();
        using std::filesystem::directory_iterator;
        const auto open = std::distance(directory_iterator("/proc/self/fd"), directory_iterator{});
        const Holdings held{systemThreads(), static_cast<int>(open), tavGetMemCount(), mallinfo2().uordblks};
        controller.open();
        return held;
    }

    EnvCallBacks env = systemCallBacks();
    const int threads = systemThreads();
    HeldController controller{shop::document(1, 1)};
    std::string path = "/tmp/tav-life-test-" + std::to_string(getpid());
};

TEST_F(Life, CyclesLeaveNothing) {
    const auto cycle = [this](int kind) {
        const bool unreachable = kind == 3;
        create(unreachable ? "http://127.0.0.1:1" : controller.url());
        if (kind == 0) return tavDestroy(tav);
        if (kind == 4) tavMarkAsServerProcess(tav, path.data(), getuid());
        EXPECT_EQ(tavStart(tav, -1), 0);
        if (kind == 1) return tavDestroy(tav); // the interest is on its way
        if (unreachable) {
            while (tavConnectorGroupGetState(group) != FAILED) std::this_thread::yield();
            return tavDestroy(tav); // the alarm is set
        }
        while (!isRouted()) std::this_thread::yield();
        if (kind == 4) tavServerProcessTerminate(tav); // the group goes on polling
        if (kind == 5) {
            EXPECT_EQ(tavConnectorGroupStop(group), 0);
            EXPECT_EQ(tavConnectorGroupStart(group), 0);
            EXPECT_EQ(tavStop(tav), 0);
            EXPECT_EQ(tavStart(tav, -1), 0);
        }
        // A request that outlives the instance.
        EnvHttpContext request = shop::request("/shop/cart");
        TavHttpContext *ctx = kind == 2 ? tavHttpContextObtain(tav, &request) : nullptr;
        if (kind == 2) tavStop(tav);
        tavDestroy(tav);
        if (ctx) tavHttpContextRelease(ctx);
    };
    constexpr int KINDS = 6;
    for (int i = 0; i < KINDS; i++) cycle(i);
    const Holdings before = holdings(threads);
    for (int i = 0; i < CYCLES; i++) cycle(i % KINDS);
    const Holdings after = holdings(before.threads);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.blocks, before.blocks);
    const size_t slack = TAV_TEST_SANITIZED ? SIZE_MAX / 2 : 256 * 1024; // a sanitizer's allocator counts otherwise
    EXPECT_LE(after.bytes, before.bytes + slack);
}

// Everyone holds a reference of its own; the destroy comes in the middle of it all.
TEST_F(Life, StopsStartsAndDestroysFromAllSides) {
    const std::function<void(int step)> deeds[] = {
        [this](int) { tavStop(tav); },
        [this](int) { tavStart(tav, -1); },
        [this](int) { tavStart(tav, -1); },
        [this](int) { tavConnectorGroupStop(group); },
        [this](int) { tavConnectorGroupStart(group); },
        [this](int step) { tavHandleJsonFromRestService(shop::document(step, step).c_str(), connector); },
        [this](int) { tavMemFree(tav, tavToJSONString(tav)); },
        [this](int step) { tavConnectorPostRoutingChange(connector, "/a", step % 2, FALSE); },
        [this](int) { isRouted(); },
    };
    const Holdings before = holdings(threads);
    for (int round = 0; round < ROUNDS; round++) {
        SCOPED_TRACE(round);
        create(round % 4 ? controller.url() : "http://127.0.0.1:1");
        if (round % 3 == 0) tavMarkAsServerProcess(tav, path.data(), getuid());
        tavStart(tav, -1);
        std::atomic<int> busy = 0;
        std::array<std::thread, THREADS> hosts;
        for (int i = 0; i < THREADS; i++) {
            tavObtainRef(tav, "test");
            tavConnectorObtainRef(connector, "test"); // keeps its group, too
            hosts[i] = std::thread([&, this, seed = round * THREADS + i] {
                std::mt19937 random(static_cast<unsigned>(seed));
                for (int step = 0; step < 40 || tavGetState(tav) != DELETED; step++) {
                    if (step == 20) busy++;
                    deeds[random() % std::size(deeds)](step);
                }
                tavConnectorReleaseRef(connector, "test");
                tavReleaseRef(tav, "test");
            });
        }
        while (busy < THREADS / 2) std::this_thread::yield();
        tavDestroy(tav);
        for (std::thread &host : hosts) host.join();
    }
    const Holdings after = holdings(before.threads);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.blocks, before.blocks);
}

} // namespace
