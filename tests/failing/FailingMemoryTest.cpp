// Memory fails at every point of the library's work: each allocation in turn, alone and with the ones that follow it. What fails says so,
// nothing is lost, and requests go on as if the failed step had not been tried.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "failing/FailingAllocations.h"
#include "system/Instance.h"
#include "system/Shop.h"
#include "tavUtil/tavTime.h"
#include "tr/tr.h"

namespace {

constexpr long MOST_RUNS = TAV_TEST_SANITIZED ? 100 : 500; // of one step and one length of failure

// 1: that allocation only. The longer ones catch what falls back on memory again.
constexpr long LENGTHS[] = {1, 2, 12, 1000000};

long blocksAtRest() {
    systemAnswerReports();
    trPurgeDeathRow();
    return failing::blocks();
}

// Requests of all kinds, each with one possible outcome.
std::vector<std::string> decisions(Tav *tav) {
    struct Row {
        const char *path, *cookie, *header;
    };
    static const Row ROWS[] = {{"/shop/cart.jsp", "id:clone1", nullptr}, {"/shop/cart", "id:clone2", nullptr}, {"/shop/old/x", nullptr, nullptr},
                               {"/shop/secret", nullptr, nullptr},       {"/shop/new", nullptr, "yes"},        {"/admin/", nullptr, nullptr},
                               {"/elsewhere", nullptr, nullptr}};
    std::vector<std::string> texts;
    for (const Row &row : ROWS) {
        EnvHttpContext request = shop::request(row.path);
        if (row.cookie) request.cookies["SHOPSESSION"] = request.cookies["JSESSIONID"] = row.cookie;
        if (row.header) request.headers["beta"] = {row.header};
        texts.push_back(shop::decide(tav, request).text());
    }
    return texts;
}

class FailingMemory : public testing::Test {
protected:
    void SetUp() override { reset(); }

    void reset() { ASSERT_EQ(instance.give(shop::document(1)), 1); }

    // `step` returns whether it succeeded.
    using Step = std::function<bool()>;
    void failEverywhere(const Step &step) {
        const std::vector<std::string> before = decisions(instance.tav);
        failing::arm(-1, 0);
        ASSERT_TRUE(step());
        const long total = failing::disarm();
        ASSERT_GT(total, 0);
        const std::vector<std::string> after = decisions(instance.tav);
        reset();
        decisions(instance.tav); // fills the pool
        const long atRest = blocksAtRest();
        for (const long length : LENGTHS) {
            for (long first = 0, stride = total / MOST_RUNS + 1; first < total; first += stride) {
                SCOPED_TRACE(testing::Message() << "allocation " << first << " of " << total << ", " << length << " failing");
                failing::arm(first, length);
                const bool done = step();
                failing::disarm();
                const std::vector<std::string> now = decisions(instance.tav);
                for (size_t i = 0; i < now.size(); i++) ASSERT_EQ(now[i], done ? after[i] : before[i]);
                ASSERT_NO_FATAL_FAILURE(reset());
                ASSERT_EQ(decisions(instance.tav), before);
                ASSERT_EQ(blocksAtRest(), atRest);
            }
        }
    }
    bool give(const std::string &document) const { return instance.give(document) >= 0; }

    SystemInstance instance;
};

TEST(FailingCreation, GivesNothingAndKeepsNothing) {
    failing::arm(-1, 0);
    EnvCallBacks env = systemCallBacks();
    static char catalogue[] = TAV_SOURCE_DIR "/share/tav-trace.xml";
    Tav *whole = tavCreate(&env, nullptr, catalogue);
    const long total = failing::disarm();
    tavDestroy(whole);
    const int threads = systemThreads();
    const long atRest = blocksAtRest();
    int created = 0;
    for (const long length : LENGTHS) {
        for (long first = 0, stride = total / MOST_RUNS + 1; first < total; first += stride) {
            SCOPED_TRACE(testing::Message() << "allocation " << first << " of " << total << ", " << length << " failing");
            failing::arm(first, length);
            Tav *tav = tavCreate(&env, nullptr, catalogue);
            failing::disarm();
            if (tav) {
                created++;
                tavDestroy(tav);
            }
            ASSERT_TRUE(systemThreadsBackTo(threads));
            ASSERT_EQ(blocksAtRest(), atRest);
        }
    }
    EXPECT_LT(created, total / 10) << "hardly anything of an instance can be done without";
}

TEST_F(FailingMemory, CompleteDocument) {
    failEverywhere([this] { return give(shop::document(2, 2)); });
}

TEST_F(FailingMemory, DeltaInPlace) {
    const std::string text = shop::delta(
        1, 2,
        shop::objects("add", shop::entry(shop::NODE + "/server/s3", "server", "'weight': 3, 'id': 'clone3', 'state': 'STARTED'")) + ", " +
            shop::objects("set", shop::entry(shop::S1 + "/transport/http", "transport", "'host': 'moved', 'port': 1") + ", " +
                                     shop::entry(shop::WORK_CLASS + "/rule/1", "rule", "'action': 'redirect:http://other/'")));
    failEverywhere([&] { return give(text); });
}

TEST_F(FailingMemory, DeltaWithRebuild) {
    const std::string text = shop::delta(
        1, 2,
        "'del': {'relationships': {'vHostGroup:webModule': [{'vHostGroup': '" + shop::GROUP + "', 'webModule': '" + shop::CONSOLE +
            "'}]}}, " + shop::objects("set", shop::entry(shop::APPLICATION, "application", "'edition': 'C@'")));
    failEverywhere([&] { return give(text); });
}

TEST_F(FailingMemory, PairAddedInPlace) {
    const std::string text = shop::delta(
        1, 2,
        "'add': {'relationships': {'vHostGroup:webModule': [{'vHostGroup': '" + shop::GROUP +
            "', 'webModule': '/cell/c/application/shop-editionB@/webModule/beta@'}]}}, " +
            shop::objects("set", shop::entry(shop::S2 + "/transport/http", "transport", "'host': 'moved'")));
    failEverywhere([&] { return give(text); });
}

TEST_F(FailingMemory, Dump) {
    failEverywhere([this] {
        char *text = tavToJSONString(instance.tav);
        const bool done = text != nullptr;
        tavMemFree(instance.tav, text);
        return done;
    });
}

// The host's settings and groups.
TEST_F(FailingMemory, Settings) {
    failEverywhere([this] {
        TavProperties *props = tavGetProperties(instance.tav);
        tavPropertySet(props, "DefaultRequestTraceSpec", ":NOTICE,http.request:INFO", TRUE);
        tavPropertySet(props, "TrustedProxyList", "10.0.0.1:10.0.0.3", TRUE);
        tavPropertySet(props, "ppid", "17", TRUE);
        tavSetServerName(instance.tav, "c_web_plug");
        const int traced = tavSetTraceSpec(instance.tav, ":NOTICE,control:INFO");
        TavConnectorGroup *group = tavConnectorGroupCreate(instance.tav, "more");
        TavConnector *connector = group ? tavConnectorCreate(group, "http://127.0.0.1:2") : nullptr;
        const bool spec = group && tavGetInterestSpec(instance.tav, group);
        if (group) tavRemoveConnectorGroup(instance.tav, group);
        tavSetTraceSpec(instance.tav, ":NOTICE");
        tavSetServerName(instance.tav, "tavlib");
        for (const char *name : {"DefaultRequestTraceSpec", "TrustedProxyList", "ppid"}) tavPropertySet(props, name, nullptr, TRUE);
        return traced == 0 && connector && spec;
    });
}

// A request's own steps: whatever fails, the request ends with a decision of the documented kinds, and the next one is served in full.
TEST_F(FailingMemory, Request) {
    const auto step = [this] {
        EnvHttpContext request = shop::request("/shop/traced/cart.jsp");
        request.cookies["SHOPSESSION"] = "id:gone:clone1";
        request.responseHeaders["$ZVPT"] = {"p1:clone1;p2:clone2"};
        request.responseHeaders["_ZV_HAPRT_WLMVERSION"] = {"7"};
        request.responseHeaders["Set-Cookie"] = {"SHOPSESSION=id:clone9; Path=/"};
        TavHttpContext *ctx = tavHttpContextObtain(instance.tav, &request);
        if (!ctx) return false;
        const bool mapped = tavHttpContextShouldHandle(ctx) == 1;
        const bool named = tavHttpContextGetURL(ctx) && tavHttpContextGetApplicationEditionName(ctx);
        const bool chosen = tavHttpContextGetTargetEndpoint(ctx) != nullptr;
        for (const TavHttpContextState state : {REQUEST_SENDING, REQUEST_SEND_ERROR}) tavHttpContextSetState(ctx, state, 0, nullptr);
        const bool again = tavHttpContextGetTargetEndpoint(ctx) != nullptr;
        for (const TavHttpContextState state : {CONNECT_SUCCESS, REQUEST_SENDING, REQUEST_SENT, RESPONSE_ARRIVED, RESPONSE_SENT})
            tavHttpContextSetState(ctx, state, 0, nullptr);
        EXPECT_TRUE(chosen || tavHttpContextGetErrorCode(ctx) >= 400 || again);
        tavHttpContextRelease(ctx);
        return mapped && named && chosen && again;
    };
    failEverywhere(step);
}

} // namespace
