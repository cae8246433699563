// Creation, the group's states, properties, names, proxies and the instance's own thread.
#include <gmock/gmock.h>

#include <unistd.h>

#include <atomic>

#include "core/CoreFixture.h"
#include "tav/tavInternal.h"
#include "tavHttpContext/tavInstanceForContext.h"
#include "tavMultiProcess/tavMultiProcess.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

TEST(Create, RefusesWhatItCannotWorkWith) {
    char missing[] = "/nonexistent/trace.xml";
    const auto slot = [](const std::string &message) {
        return "ERROR: TAV library initialization failure: EnvCallBacks." + message + " in call to tavCreate";
    };
    const struct {
        void (*spoil)(EnvCallBacks &);
        char *catalogue;
        std::string message;
    } cases[] = {
        {[](EnvCallBacks &e) { e.version = 19357; }, systemCatalogue, slot("version is invalid") + ": 19357 != 19358"},
        // The first missing slot in the order of the checks is named, not the first in the table.
        {[](EnvCallBacks &e) { e.http.request.getClientIpAddr = e.http.request.getPath = nullptr; }, systemCatalogue,
         slot("http.request.getPath is invalid")},
        {[](EnvCallBacks &e) { e.http.request.getCookieValue = nullptr; }, systemCatalogue, slot("http.request.getCookieValue is invalid")},
        {[](EnvCallBacks &) {}, nullptr, "ERROR: both 2nd and 3rd arguments to tavCreate may not be NULL"},
        {[](EnvCallBacks &) {}, missing, "ERROR: failed to open /nonexistent/trace.xml in tavCreate: No such file or directory"},
    };
    for (const auto &c : cases) {
        EnvCallBacks env = fakeHostCallBacks();
        c.spoil(env);
        testing::internal::CaptureStderr();
        EXPECT_EQ(tavCreate(&env, nullptr, c.catalogue), nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message + "\n");
    }
    EXPECT_EQ(tavCreate(nullptr, nullptr, systemCatalogue), nullptr);
}

class Instance : public CoreFixture {};

TEST_F(Instance, ServerNameGivesPaths) {
    const struct {
        const char *name, *cell, *server;
    } rows[] = {
        {"c1_a2_s9", "/cell/c1", "/cell/c1/node/a2/server/s9"},
        {"abc", "/cell/abc", "/cell/abc"},
        {"c1_a2_s9_more", "/cell/c1", "/cell/c1/node/a2/server/s9"},
        {nullptr, "/cell/c1", ""}, // the cell's path stays
    };
    for (const auto &row : rows) {
        tavSetServerName(tav, row.name);
        EXPECT_STREQ(tav->cellPath, row.cell);
        EXPECT_STREQ(tavGetServerPath(tav), row.server);
    }
}

TEST_F(Instance, PropertiesTakeEffect) {
    TavProperties *props = tavGetProperties(tav);
    const auto set = [&](const char *name, const char *value) { return tavPropertySet(props, name, value, TRUE); };
    EXPECT_EQ(set("maxhttpcontextpoolsize", "7"), 0) << "any case";
    EXPECT_STREQ(tavPropertyGet(props, "MaxHttpContextPoolSize"), "7") << "under the table's own spelling";
    EXPECT_EQ(tav->maxHttpContextPoolSize, 7);
    EXPECT_EQ(set("MaxHttpContextPoolSize", nullptr), 0);
    EXPECT_EQ(tav->maxHttpContextPoolSize, -1);
    EXPECT_EQ(set("NoSuchProperty", "1"), -1);

    set("MaxElapsedTimePerRequestInSeconds", "0");
    EXPECT_EQ(tavGetMaxElapsedTimePerRequest(tav), TAV_NO_VALUE);
    set("MaxElapsedTimePerRequestInSeconds", "4294968");
    EXPECT_EQ(tavGetMaxElapsedTimePerRequest(tav), 704u) << "wraps in 32 bits";
    set("MaxElapsedTimePerRequestInSeconds", "2");
    EXPECT_EQ(tavGetMaxElapsedTimePerRequest(tav), 2000u);

    set("disablePrivateHeaders", "TRUE");
    EXPECT_TRUE(tavPrivateHeadersDisabled(tav));
    set("disablePrivateHeaders", "yes");
    EXPECT_FALSE(tavPrivateHeadersDisabled(tav));
    set("MaxSecondsToWaitDuringAtomicRollout", "abc");
    EXPECT_EQ(tavGetMaxSecondsToWaitDuringAtomicRollout(tav), 0) << "no number reads as 0";

    testing::internal::CaptureStdout();
    EXPECT_EQ(set("DefaultRequestTraceSpec", "x:VERBOSE"), -1);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::HasSubstr("INVALID trace spec level name: 'VERBOSE'"));
    EXPECT_EQ(set("DefaultRequestTraceSpec", ":DEBUG"), 0);
    EXPECT_NE(tav->customPropDefaultRequestTraceSpec, nullptr);
    EXPECT_EQ(set("DefaultRequestTraceSpec", ""), 0);
    EXPECT_EQ(tav->customPropDefaultRequestTraceSpec, nullptr);
}

TEST_F(Instance, TrustedProxies) {
    tavPropertySet(tavGetProperties(tav), "TrustedProxyList", "10.0.0.1::10.0.0.2:10.0.0.1", TRUE);
    EXPECT_EQ(tavListGetCount(tav->trustedProxyList), 2);
    EXPECT_TRUE(tavIsTrustedProxy(tav, "10.0.0.2")) << "whatever TrustedProxyEnable says";
    EXPECT_FALSE(tavIsTrustedProxy(tav, "10.0.0.20"));
    EXPECT_FALSE(tavIsTrustedProxy(tav, nullptr));
    tavSetTrustedProxies(tav, "10.9.9.9");
    EXPECT_FALSE(tavIsTrustedProxy(tav, "10.9.9.9"));
    tavPropertySet(tavGetProperties(tav), "TrustedProxyList", nullptr, TRUE);
    EXPECT_TRUE(tavIsTrustedProxy(tav, "10.0.0.1")) << "a missing value changes nothing";
}

// A start that waits without limit gives the control lock up. What overtakes it ends it, and a daemon that was stopped stays stopped.
TEST_F(Instance, AStartIsOvertaken) {
    char path[] = "/tmp/tav-instance-test-XXXXXX";
    close(mkstemp(path));
    tavStop(tav);
    traceOn();
    EXPECT_EQ(tavStart(tav, 1), 0);
    EXPECT_EQ(traced("Waiting for TAV"), 0) << "N waits N - 1 seconds";
    tavStop(tav);
    ASSERT_EQ(tavMarkAsServerProcess(tav, path, getuid()), 0);
    for (const bool destroys : {false, true}) {
        SCOPED_TRACE(destroys ? "by destroy" : "by stop");
        traceOn();
        int result = -2;
        std::thread starter([&] { result = tavStart(tav, 0); });
        for (std::string trace; trace.find("Waiting for TAV initialization to complete ...") == std::string::npos; trace += takeTrace())
            std::this_thread::yield();
        tavObtainRef(tav, "test");
        if (destroys) {
            tavDestroy(tav);
        } else {
            EXPECT_EQ(tavStop(tav), 0);
        }
        starter.join();
        EXPECT_EQ(result, 0);
        EXPECT_EQ(tavGetState(tav), destroys ? DELETED : STOPPED);
        EXPECT_EQ(tavGetServerProcess(tav)->process.state, PS_NOT_RUNNING);
        tavReleaseRef(tav, "test");
    }
    tav = nullptr;
    unlink(path);
}

TEST_F(Instance, CheckStateFollowsTheGroups) {
    TavConnectorGroup *second = tavConnectorGroupCreate(tav, "second");
    struct Row {
        TavComponentState first, second, expected;
    };
    const Row rows[] = {
        {STARTED, STARTED, STARTED}, {STARTED, FAILED, PARTIAL_START},  {STARTING, STARTED, STARTING}, {STOPPING, FAILED, STOPPING},
        {STOPPED, STOPPED, STOPPED}, {STOPPED, FAILED, STOPPED},        {FAILED, FAILED, FAILED},      {FAILED, INVALID, FAILED},
        {INVALID, DELETED, STOPPED}, {STARTED, DELETED, PARTIAL_START},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.first << ' ' << row.second);
        tav->state = INVALID;
        group->state = row.first;
        second->state = row.second;
        tavCheckState(tav);
        EXPECT_EQ(tavGetState(tav), row.expected);
    }
    group->state = second->state = STOPPED;
}

TEST_F(Instance, AsyncWorkRunsInOrderAndIsDiscardedAtTheEnd) {
    static std::atomic<int> ran, discarded;
    ran = discarded = 0;
    int order[3] = {}, late = 0;
    const auto work = [](Tav *, void *obj) { *static_cast<int *>(obj) = ran + 1, ++ran; };
    const auto discard = [](void *) { ++discarded; };
    for (int &slot : order) tavProcessAsync(tav, &slot, work, discard);
    for (int seen = ran.load(); seen < 3; seen = ran.load()) std::this_thread::yield();
    EXPECT_THAT(order, testing::ElementsAre(1, 2, 3));
    tavObtainRef(tav, "test");
    tavDestroy(tav);
    tavProcessAsync(tav, &late, work, discard);
    EXPECT_EQ(late, 0);
    EXPECT_EQ(discarded, 1);
    tavReleaseRef(tav, "test");
    tav = nullptr;
}

TEST_F(Instance, AnIdleContextHoldsNoReplacedSnapshot) {
    const TavComponentState restore = tav->state;
    tav->state = STARTED;
    EnvHttpContext request;
    const auto obtain = [&] { return tavHttpContextObtain(tav, &request); };
    const auto snapshotCount = [&] { return tav->routingInfo.load()->refCount; };
    TavHttpContext *first = obtain(), *second = obtain();
    tavHttpContextRelease(first);
    tavHttpContextRelease(second);
    EXPECT_EQ(tavHttpContextGetState(second), CACHED);
    EXPECT_EQ(snapshotCount(), 2) << "the second context's; the first went to the pool";
    EXPECT_EQ(tavListGetCount(tav->contextPool), 1);
    EXPECT_EQ(obtain(), second) << "last in, first out";
    EXPECT_EQ(tavHttpContextGetState(second), INITIAL);
    EXPECT_EQ(obtain(), first);
    tavHttpContextRelease(first);
    EXPECT_EQ(snapshotCount(), 3);
    tavControlLock("test");
    EXPECT_TRUE(tavResetRoutingInfo(tav));
    tavControlUnlock();
    EXPECT_EQ(snapshotCount(), 1) << "the new one's";
    EXPECT_EQ(tavListGetCount(tav->contextPool), 1);
    tavHttpContextRelease(second); // with the old snapshot, its last holder
    EXPECT_EQ(snapshotCount(), 1);
    EXPECT_EQ(tavListGetCount(tav->contextPool), 2);
    tav->state = restore;
}

} // namespace
