// Memory fails at every point of the library's work: each allocation in turn, alone and with the ones that follow it. What fails says so,
// nothing is lost, and requests go on as if the failed step had not been tried.
#include <gtest/gtest.h>
#include <jansson.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "failing/FailingAllocations.h"
#include "system/Instance.h"
#include "system/Shop.h"
#include "tav/tavControl.h"
#include "tav/tavRecord.h"
#include "tavConnector/tavConnector.h"
#include "tavMultiProcess/tavMultiProcess.h"
#include "tavProcess/tavIpc.h"
#include "tavUtil/tavTime.h"
#include "tr/tr.h"

namespace {

constexpr long MOST_RUNS = TAV_TEST_SANITIZED ? 100 : 500; // of one step and one length of failure

// 1: that allocation only. The longer ones catch what falls back on memory again.
constexpr long LENGTHS[] = {1, 2, 12, 1000000};

long blocksNow() {
    trPurgeDeathRow();
    return failing::blocks();
}

// Requests of all kinds, each with one possible outcome.
std::vector<std::string> decisions(Tav *tav) {
    struct Row {
        const char *path, *cookie, *header;
    };
    static const Row ROWS[] = {
        {"/shop/cart.jsp", "id:clone1", nullptr}, {"/shop/cart", "id:clone2", nullptr}, {"/shop/old/x", nullptr, nullptr},
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

// The host's own memory does not fail, but for what it notes of the library's changes: it notes nothing.
EnvCallBacks sparingHost() {
    EnvCallBacks env = systemCallBacks();
    const auto take = [](EnvHttpContext *, char *, char *) { return 0; };
    env.http.request.setHeaderValue = env.http.response.setHeaderValue = env.http.response.setCookieValue = take;
    return env;
}

class FailingMemory : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(reset()); }

    void failGiving(const std::string &document, bool stepInPlace = false) {
        const auto step = [&] {
            const long long before = tavGetConfigVersion(instance.tav), version = instance.give(document);
            EXPECT_EQ(tavGetConfigVersion(instance.tav), version < 0 ? before : version);
            return version >= 0;
        };
        failEverywhere(step, stepInPlace);
    }

    // The fewest blocks in use that are seen while the instance's own thread has nothing to do (it frees its last item a moment later), or
    // `enough`.
    long blocksAtRest(long enough) const {
        long fewest = LONG_MAX;
        instance.settle();
        for (int turn = 0, most = enough > 0 ? 1000000 : 2000; turn < most && fewest > enough; turn++) {
            fewest = std::min(fewest, blocksNow());
            std::this_thread::yield();
        }
        return fewest;
    }

    // `step` returns whether it succeeded. It must need no memory of its own.
    template <typename Step>
    void failEverywhere(Step step, bool stepInPlace = false) {
        inPlace = stepInPlace;
        const std::vector<std::string> before = decisions(instance.tav);
        failing::arm(-1, 0);
        const bool possible = step();
        const long total = failing::disarm();
        ASSERT_TRUE(possible && total > 0);
        const std::vector<std::string> after = decisions(instance.tav);
        ASSERT_TRUE(reset());
        ASSERT_NO_FATAL_FAILURE(check(step, true, 1, before, before)); // fills the pool, too
        const long atRest = blocksAtRest(0);
        const long stride = total / MOST_RUNS + 1;
        for (const long &length : LENGTHS) {
            // Each length starts elsewhere: together they reach what one of them steps over.
            for (long failed = (&length - LENGTHS) % stride; failed < total; failed += stride) {
                failing::arm(failed, length);
                const bool done = step();
                failing::disarm();
                const auto where = [&] {
                    return testing::Message() << length << " failing from allocation " << failed << " of " << total << ", done " << done;
                };
                ASSERT_NO_FATAL_FAILURE(check(step, done, length, before, after)) << where();
                ASSERT_TRUE(reset()) << where();
                ASSERT_EQ(decisions(instance.tav), before) << where();
                ASSERT_LE(blocksAtRest(atRest), atRest) << where(); // fewer: what waited for its grace period is gone
            }
        }
    }

    // Done or not at all. Where memory failed for longer, a delta in place may have got half way: tried again, it gets there.
    template <typename Step>
    void check(Step step, bool done, long length, const std::vector<std::string> &before, const std::vector<std::string> &after) {
        const std::vector<std::string> now = decisions(instance.tav);
        if (done || length == 1 || !inPlace) {
            ASSERT_EQ(now, done ? after : before);
            return;
        }
        ASSERT_TRUE(step());
        ASSERT_EQ(decisions(instance.tav), after);
    }

    bool inPlace = false;
    SystemInstance instance{sparingHost()};
    const std::string first = shop::document(1);
    std::function<bool()> reset = [this] { return instance.give(first) == 1; };
};

TEST(FailingCreation, GivesNothingAndKeepsNothing) {
    const int threads = systemThreads();
    failing::arm(-1, 0);
    EnvCallBacks env = systemCallBacks();
    Tav *whole = tavCreate(&env, nullptr, systemCatalogue);
    tavSetServerName(whole, "c_web_plug");
    const long total = failing::disarm();
    tavDestroy(whole);
    ASSERT_TRUE(systemThreadsBackTo(threads));
    const long atRest = blocksNow();
    int created = 0;
    for (const long length : LENGTHS) {
        for (long first = 0, stride = total / MOST_RUNS + 1; first < total; first += stride) {
            failing::arm(first, length);
            Tav *tav = tavCreate(&env, nullptr, systemCatalogue);
            tavSetServerName(tav, "c_web_plug");
            failing::disarm();
            if (tav) {
                created++;
                const bool named = strcmp(tavGetServerName(tav), "c_web_plug") == 0;
                EXPECT_STREQ(tavGetServerPath(tav), named ? "/cell/c/node/web/server/plug" : "/cell/tavlib");
                tavDestroy(tav);
            }
            ASSERT_TRUE(systemThreadsBackTo(threads));
            ASSERT_EQ(blocksNow(), atRest) << length << " failing from allocation " << first << " of " << total;
        }
    }
    EXPECT_LT(created, total / 10) << "hardly anything of an instance can be done without";
}

TEST_F(FailingMemory, CompleteDocument) { failGiving(shop::document(2, 2)); }

TEST_F(FailingMemory, Deltas) {
    using namespace shop;
    const std::string moved = entry(S2 + "/transport/http", "transport", "'host': 'moved', 'port': 1");
    const struct {
        const char *name;
        bool inPlace;
        std::string operations;
    } rows[] = {
        {"objects", true,
         objects("add", entry(NODE + "/server/s3", "server", "'weight': 3, 'id': 'clone3', 'state': 'STARTED'")) + ", " +
             objects("set", moved + ", " + entry(WORK_CLASS + "/rule/1", "rule", "'action': 'redirect:http://other/'"))},
        {"pair", true, changes().back().first + ", " + objects("set", moved)},
        {"rebuild", false,
         pair("del", "vHostGroup:webModule", GROUP, CONSOLE) + ", " + objects("set", entry(APPLICATION, "application", "'edition': 'C@'"))},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        failGiving(delta(1, 2, row.operations), row.inPlace);
        if (HasFatalFailure()) return;
    }
}

// A worker has the whole sequence or none of it; where it lacks memory it begins anew, and then it has it.
TEST_F(FailingMemory, WhatTheDaemonSends) {
    Tav *tav = instance.tav;
    static char path[] = "/nowhere";
    ASSERT_EQ(tavMarkAsClientProcess(tav, path), 0);
    const auto hear = [&](std::string &document) {
        tav->clientProcess->outOfStep = false;
        TavMessage messages[] = {{{MT_S2C_BEGIN_ROUTING_INFO, 1, 0}, nullptr},
                                 {{MT_S2C_ROUTING_INFO, 1, static_cast<int>(document.size() + 1)}, document.data()},
                                 {{MT_S2C_END_ROUTING_INFO, 1, 0}, nullptr}};
        TavControlScope control("test");
        for (TavMessage &message : messages) {
            tavClientProcessHandleMessage(tav, &message);
            if (tav->clientProcess->outOfStep) return false;
        }
        return true;
    };
    std::string documents[2];
    for (int i = 0; i < 2; i++)
        documents[i] = R"({"connectorGroupName": "g", "connectorURL": "http://127.0.0.1:1", )" + shop::document(i + 1).substr(1);
    reset = [&] { return hear(documents[0]); };
    ASSERT_TRUE(reset());
    failEverywhere([&] { return hear(documents[1]); });
}

TEST_F(FailingMemory, Dump) {
    failEverywhere([this] {
        char *text = tavToJSONString(instance.tav);
        json_t *status = tavStatusToJSON(instance.tav);
        const bool done = text && status;
        tavMemFree(instance.tav, text);
        json_decref(status);
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
        tavRemoveConnectorGroup(instance.tav, group);
        tavControlLock("test");
        tavConnectorGroupDelete(group);
        tavControlUnlock();
        tavSetTraceSpec(instance.tav, ":NOTICE");
        tavSetServerName(instance.tav, "tavlib");
        for (const char *name : {"DefaultRequestTraceSpec", "TrustedProxyList", "ppid"}) tavPropertySet(props, name, nullptr, TRUE);
        return traced == 0 && connector && spec;
    });
}

// A request's own steps: whatever fails, the request ends with a decision of the documented kinds, and the next one is served in full.
TEST_F(FailingMemory, Request) {
    EnvHttpContext request = shop::request("/shop/traced/cart.jsp");
    request.cookies["SHOPSESSION"] = "id:gone:clone1";
    request.responseHeaders["$ZVPT"] = {"p1:clone1;p2:clone2"};
    request.responseHeaders["_ZV_HAPRT_WLMVERSION"] = {"7"};
    request.responseHeaders["Set-Cookie"] = {"SHOPSESSION=id:clone9; Path=/"};
    failEverywhere([&] {
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
    });
}

TEST_F(FailingMemory, Trial) {
    EnvHttpContext request = shop::request("/shop/cart.jsp");
    failEverywhere([&] {
        TavHttpContext *ctx = tavHttpContextObtainTrial(instance.tav, &request, ":NOTICE,http.request.rules:DEBUG");
        const bool chosen = tavHttpContextGetTargetEndpoint(ctx) != nullptr;
        json_t *mapping = tavHttpContextMappingToJSON(ctx);
        const bool told =
            json_array_size(json_object_get(mapping, "rules")) > 0 && json_object_size(json_object_get(mapping, "servers")) > 0;
        EXPECT_TRUE(told || !mapping) << "half of a mapping is told";
        json_decref(mapping);
        tavHttpContextRelease(ctx);
        return chosen && told;
    });
}

} // namespace
