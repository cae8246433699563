// Mapping, selection, progress reports and the rollout wait, against a real mapper and selector.
#include <atomic>
#include <thread>

#include "edge/Site.h"
#include "tavUtil/tavString.h"

namespace {

class HttpContextState : public Site {
protected:
    void report(TavHttpContext *ctx, TavHttpContextState state) { tavHttpContextSetState(ctx, state, 0, nullptr); }
};

TEST_F(HttpContextState, MapsOnceAndTurnsTheResultIntoAnAction) {
    addServer("S1");
    addRule("1", "queryparm(go) = 'away'", "redirect:http://else/");
    addRule("2", "queryparm(go) = 'no'", "reject:403");
    addRule("default", "true", "permitsticky:shop");
    const struct {
        Text path, query;
        int handled;
        TavAction action;
        int errorCode;
        const char *edition;
        int ruleOrder = 0;
        const char *rule = nullptr;
    } cases[] = {
        {"/shop/a", {}, 1, PERMIT, 0, "", TAVRULE_DEFAULT_ORDER, "true"},
        {"/shop/a", "go=away", 1, REDIRECT, 0, nullptr, 1, "queryparm(go) = 'away'"},
        {"/shop/a", "go=no", 1, REJECT, 403, nullptr, 2, "queryparm(go) = 'no'"},
        {"/elsewhere", {}, 0, REJECT, 404, nullptr},
        {{}, {}, -1, REJECT, 500, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path.value_or("no path") + c.query.value_or(""));
        host.path = c.path;
        host.query = c.query;
        traceOn("http.request.map:DEBUG");
        Obtained ctx = obtain();
        for (int i = 0; i < 2; i++) EXPECT_EQ(tavHttpContextShouldHandle(ctx), c.handled);
        EXPECT_STREQ(tavHttpContextGetApplicationEditionName(ctx), c.edition);
        EXPECT_EQ(tavHttpContextGetAction(ctx), c.action);
        EXPECT_EQ(tavHttpContextGetErrorCode(ctx), c.errorCode);
        EXPECT_EQ(tavHttpContextGetTargetEndpoint(ctx) != nullptr, c.edition != nullptr);
        EXPECT_EQ(traced("performRequestMapping: exit " + std::to_string(c.handled) + "\n"), 1);
        EXPECT_EQ(tavHttpContextGetRuleOrder(ctx), c.ruleOrder);
        EXPECT_STREQ(tavHttpContextGetRuleExpression(ctx), c.rule);
    }
}

// One report on a fresh target each.
TEST_F(HttpContextState, EachReportSettlesTheAccounts) {
    const struct {
        TavHttpContextState state;
        int outstanding, failures, timeouts;
        bool keepsEndpoint;
    } cases[] = {
        {CONNECT_SUCCESS, 1, 0, 0, true},     {REQUEST_SENDING, 1, 0, 0, true},      {REQUEST_SENT, 1, 0, 0, true},
        {TARGET_SELECTED, 0, 0, 0, true},     {RESPONSE_ARRIVED, 0, 0, 0, true},     {RESPONSE_PROCESSED, 0, 0, 0, true},
        {RESPONSE_SENT, 0, 0, 0, true},       {RESPONSE_SEND_ERROR, 0, 0, 0, true},  {CONNECT_FAILURE, 0, 0, 0, false},
        {REQUEST_SEND_ERROR, 0, 1, 0, false}, {RESPONSE_READ_ERROR, 0, 1, 0, false}, {RESPONSE_TIMEOUT, 0, 1, 1, false},
    };
    addServer("S1");
    TargetServer *server = first().server;
    for (const auto &c : cases) {
        SCOPED_TRACE(tavHttpContextStateToString(c.state));
        Obtained ctx = route();
        TargetServerApplication *sapp = tavHttpContextGetMyTargetServerApplication(ctx);
        report(ctx, c.state);
        report(ctx, REQUEST_SENT); // a late report changes nothing more
        EXPECT_EQ(server->outstandingRequestCount, c.outstanding);
        EXPECT_EQ(ctx->failureCount, c.failures);
        EXPECT_EQ(tavHttpContextGetNumOfResponseTimeouts(ctx), c.timeouts);
        EXPECT_EQ(tavHttpContextGetMyTargetEndPoint(ctx) != nullptr, c.keepsEndpoint);
        EXPECT_EQ(tavHttpContextIsFailedServerApp(ctx, sapp), !c.keepsEndpoint);
        EXPECT_EQ(server->nextRetryTime != 0, c.state == CONNECT_FAILURE);
        ctx.reset();
        EXPECT_EQ(server->outstandingRequestCount, 0);
        tsServerConnectSuccess(server);
    }
}

TEST_F(HttpContextState, TriesOtherServersAfterFailures) {
    for (const char *name : {"S1", "S2", "S3"}) addServer(name);
    Obtained ctx = obtain();
    host.host.reset();
    EXPECT_STREQ(tavHttpContextGetURL(ctx), "http://:80//shop/cart");
    host.path = "/else";
    EXPECT_STREQ(tavHttpContextGetURL(ctx), "http://:80//shop/cart") << "built once";
    host.host = "localhost", host.path = "/shop";
    for (TavHttpContextState state : {CONNECT_FAILURE, CONNECT_FAILURE, RESPONSE_TIMEOUT}) {
        EXPECT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr);
        EXPECT_TRUE(tavHttpContextGetPerformedLoadBalancing(ctx));
        report(ctx, state);
    }
    EXPECT_EQ(ctx->failureCount, 1);
    for (const Back &b : backs) EXPECT_TRUE(tavHttpContextIsFailedServerApp(ctx, b.sapp));
    EXPECT_EQ(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    EXPECT_EQ(tavHttpContextGetErrorCode(ctx), 504); // a response timed out before
    EXPECT_STREQ(tavHttpContextGetApplicationName(ctx), "shop");
    EXPECT_STREQ(tavHttpContextGetContextRoot(ctx), "/shop");
    EXPECT_STREQ(tavHttpContextGetMatchedVHostName(ctx), "/cell/c/vHostGroup/default");
}

// It goes where the next request goes, and leaves no trace of itself.
TEST_F(HttpContextState, ATrialIsDecidedAndCountedNowhere) {
    for (const char *name : {"S1", "S2", "S3"}) addServer(name);
    addRule("7", "HTTPMethod = 'GET'", "permitsticky:shop");
    traceOn(":NOTICE");
    tav->processType = ServerProcess;
    tav->maxRequestsPerDaemon = 9;
    const auto tried = [this](const char *spec) {
        const Obtained ctx(tavHttpContextObtainTrial(tav, &host, spec));
        const std::string server = tavHttpContextGetTargetEndpoint(ctx) ? tavHttpContextGetTargetEndpointServerName(ctx) : "none";
        for (int state = OBTAINED; state <= RESPONSE_SEND_ERROR; state++) report(ctx, static_cast<TavHttpContextState>(state));
        EXPECT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr) << "a report gave the endpoint up";
        for (const Back &b : backs) EXPECT_EQ(b.server->outstandingRequestCount + (b.server->nextRetryTime != 0), 0);
        return server;
    };
    for (int i = 1; i <= 4; i++) {
        const std::string server = tried("http.request.select:DEBUG");
        EXPECT_EQ(tried(nullptr), server);
        Obtained ctx = route();
        EXPECT_EQ(tavHttpContextGetTargetEndpointServerName(ctx), server);
        ctx.reset();
        EXPECT_EQ(traced("wlor: start at"), i) << "only a trial with a specification of its own is traced";
    }
    EXPECT_EQ(tav->requestsPerDaemon, 4);
    tav->processType = StandaloneProcess;
    EXPECT_EQ(tavHttpContextObtainTrial(tav, &host, "no.such.record"), nullptr);
}

// What was decided stays told while the configuration goes on.
TEST_F(HttpContextState, TellsWhyUntilTheEnd) {
    addServer("S1", "c1");
    addServer("S2");
    addRule("7", "true", "permit:shop");
    tavRoutingInfoSetVersion(ri, 3);
    host.cookies["ZVJSESSIONID"] = "id:c1";
    Obtained ctx = route();
    EXPECT_EQ(tavHttpContextGetAffinityBreakReason(ctx), nullptr);
    const struct {
        TavHttpContextState failure;
        const char *between, *after; // NULL: kept
        const char *server;
    } cases[] = {
        {RESPONSE_READ_ERROR, TS_FAILED_BEFORE, nullptr, "S1"},
        {CONNECT_FAILURE, "connect failure", "Server application for cloneId 'c1' is not selectable because connect failure", "S2"},
        {RESPONSE_READ_ERROR, cases[1].after, nullptr, "S1"}, // which can be reached again
    };
    for (const auto &c : cases) {
        report(ctx, c.failure);
        EXPECT_STREQ(tavHttpContextGetAffinityBreakReason(ctx), c.between);
        if (&c == &cases[2]) tsServerConnectSuccess(first().server);
        EXPECT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr);
        EXPECT_STREQ(tavHttpContextGetAffinityBreakReason(ctx), c.after);
        EXPECT_STREQ(tavPathToName(tavHttpContextGetTargetEndpointServerName(ctx)), c.server);
    }
    const char *expression = tavHttpContextGetRuleExpression(ctx);
    rmWebRouteWorkClassDelete(workClass);
    tavRoutingInfoSetVersion(ri, 4);
    EXPECT_STREQ(expression, "true");
    EXPECT_EQ(tavHttpContextGetRuleOrder(ctx), 7);
    EXPECT_EQ(tavHttpContextGetConfigVersion(ctx), 3);
}

TEST_F(HttpContextState, ConnectResultsReachTheServer) {
    addServer("S1");
    traceOn("http.request.connectFailure:WARNING");
    Obtained ctx = route();
    tavHttpContextSetState(ctx, CONNECT_FAILURE, 111, const_cast<char *>("100% refused %s"));
    EXPECT_TRUE(traced("server /cell/c/node/n/server/S1 failed"));
    EXPECT_TRUE(traced("100% refused %s"));
    ctx.reset();
    first().server->nextRetryTime = 0; // selectable again, still with a raised interval
    ctx = route();
    report(ctx, CONNECT_SUCCESS);
    EXPECT_EQ(first().server->nextRetryInterval, TS_FIRST_RETRY_INTERVAL);
}

TEST_F(HttpContextState, MeasuresTheServiceTime) {
    const struct {
        TavTime sending, sent; // 0: not reported
        TavTime arrived, expected;
    } cases[] = {
        {1000, 1100, 1250, 250},
        {0, 1100, 1250, 150},
        {0xFFFFFF00u, 0, 0x100, 0x200},
        {0, 0, 1250, 1251}, // the unset start counts as a time
    };
    addServer("S1");
    for (const auto &c : cases) {
        fakeNow = 900;
        Obtained ctx = route();
        if (c.sending) fakeNow = c.sending, report(ctx, REQUEST_SENDING);
        if (c.sent) fakeNow = c.sent, report(ctx, REQUEST_SENT);
        fakeNow = c.arrived;
        report(ctx, RESPONSE_ARRIVED);
        EXPECT_EQ(ctx->serviceTime, c.expected) << c.sending << " " << c.sent;
    }
}

TEST_F(HttpContextState, LimitsEndpointsAndTimePerRequest) {
    addServer("S1");
    addServer("S2");
    fakeNow = 1000;
    tav->maxTargetEndpointsPerRequest = 1;
    Obtained ctx = route();
    report(ctx, CONNECT_FAILURE); // does not count
    EXPECT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    report(ctx, RESPONSE_READ_ERROR);
    EXPECT_EQ(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    EXPECT_EQ(tavHttpContextGetAction(ctx), PERMIT);
    ctx.reset();

    tav->maxElapsedTimePerRequestInMillis = 500;
    fakeNow = 100000;
    ctx = obtain();
    fakeNow += 499;
    EXPECT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    ctx.reset();
    ctx = obtain();
    fakeNow += 500;
    EXPECT_EQ(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    EXPECT_EQ(tavHttpContextGetErrorCode(ctx), 504);
    EXPECT_STREQ(tavHttpContextGetErrorMessage(ctx), "MaxElapsedTimePerRequest exceeded");
}

TEST_F(HttpContextState, AFixedEndpointServesEverythingUnaccounted) {
    addServer("S1");
    host.path = "/elsewhere";
    tav->targetEndpoint = first().http;
    Obtained ctx = obtain();
    EXPECT_EQ(tavHttpContextGetTargetEndpoint(ctx), first().http);
    report(ctx, CONNECT_FAILURE);
    EXPECT_TRUE(!tavHttpContextGetMyTargetEndPoint(ctx) && first().server->nextRetryTime == 0);
}

TEST_F(HttpContextState, OnlyASuspendedRequestIsCancelledAndOneOfManyCancelsWins) {
    Obtained ctx = obtain();
    EXPECT_EQ(tavHttpContextCancelRequest(ctx), 1);
    for (int round = 1; round <= 200; round++) {
        report(ctx, REQUEST_SUSPENDED);
        std::atomic<int> won = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; i++) threads.emplace_back([&] { won += tavHttpContextCancelRequest(ctx) == 0; });
        for (std::thread &thread : threads) thread.join();
        ASSERT_EQ(won, 1);
        ASSERT_EQ(host.resumes, round);
    }
    host.resumeResult = 7;
    report(ctx, REQUEST_SUSPENDED);
    EXPECT_EQ(tavHttpContextCancelRequest(ctx), -1);
    tav->env.http.request.resume = nullptr;
    report(ctx, REQUEST_SUSPENDED);
    EXPECT_EQ(tavHttpContextCancelRequest(ctx), -1);
    EXPECT_EQ(tavHttpContextGetState(ctx), REQUEST_CANCELED);
}

// ---- rollout ----

struct Rollout {
    int sleeps, startsAt;
    Site *site;
} rollout;

void sleepInRollout(int seconds) {
    EXPECT_EQ(seconds, 1);
    if (++rollout.sleeps == rollout.startsAt) tsServerSetPropStr(rollout.site->first().server, "state", "STARTED");
}

TEST_F(HttpContextState, WaitsForARollout) {
    const struct {
        int limit, startsAt, sleeps;
        bool found;
        const char *line;
    } cases[] = {
        {0, 1, 0, false, "waiting during application rollout is disabled\n"},
        {3, 99, 3, false, "timed out waiting for rollout of application 'shop'\n"},
        {3, 2, 2, true, "successful wait for rollout of application 'shop'\n"},
        {3, 3, 3, true, "wait for rollout of application 'shop' for max of 3 seconds\n"}, // in the last round
    };
    addServer("S1");
    TargetServer *server = first().server;
    tsClusterSetPropStr(cluster, "appEditionRolloutState", "BEGIN_ROLLOUT");
    tavHttpContextSetRolloutSleep(sleepInRollout);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        tsServerSetPropStr(server, "state", "RESTARTING");
        rollout = {0, c.startsAt, this};
        tav->maxSecondsToWaitDuringAtomicRollout = c.limit;
        traceOn("http.request.select.editionRollout:INFO,http.request.map:DEBUG");
        Obtained ctx = obtain();
        EXPECT_EQ(tavHttpContextGetTargetEndpoint(ctx) != nullptr, c.found);
        EXPECT_EQ(rollout.sleeps, c.sleeps);
        EXPECT_EQ(traced("performRequestMapping: exit 1"), 1 + c.sleeps);
        EXPECT_TRUE(traced(c.line));
        EXPECT_EQ(tavHttpContextGetAction(ctx), c.found ? PERMIT : REJECT);
        EXPECT_EQ(server->outstandingRequestCount, c.found ? 1 : 0);
        EXPECT_EQ(tavHttpContextWaitForRollout(ctx), nullptr) << "a second wait";
        EXPECT_EQ(rollout.sleeps, c.sleeps);
        ctx.reset();
        EXPECT_EQ(server->outstandingRequestCount, 0);
    }
    const Obtained trial(tavHttpContextObtainTrial(tav, &host, "http.request.select.editionRollout:INFO"));
    rollout = {0, 0, this};
    tsServerSetPropStr(server, "state", "RESTARTING");
    EXPECT_EQ(tavHttpContextGetTargetEndpoint(trial), nullptr);
    EXPECT_EQ(rollout.sleeps, 0);
    EXPECT_TRUE(traced("would wait for rollout of application 'shop' for max of "));
    tavHttpContextRelease(trial);
    tavHttpContextSetRolloutSleep(nullptr);
}

// A rule that sends the request away while it waits must not leave it with the edition of the permit before.
TEST_F(HttpContextState, AWaitFollowsWhatTheRulesDecideNow) {
    addServer("S1");
    tsClusterSetPropStr(cluster, "appEditionRolloutState", "BEGIN");
    tsServerSetPropStr(first().server, "state", "STOPPED");
    addRule("5", "queryparm(go) = 'away'", "redirect:http://else/");
    addRule("default", "true", "permit:shop");
    rollout = {0, 1, this};
    tavHttpContextSetRolloutSleep([](int seconds) {
        sleepInRollout(seconds);
        rollout.site->host.query = "go=away";
    });
    Obtained ctx = obtain();
    EXPECT_EQ(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    EXPECT_STREQ(tavHttpContextGetRedirectURL(ctx), "http://else/");
    EXPECT_EQ(first().server->outstandingRequestCount, 0);
    tavHttpContextSetRolloutSleep(nullptr);
}

} // namespace
