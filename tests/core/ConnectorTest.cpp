// Polling, failover, back-off and reports, with the controller under the test's command.
#include <gmock/gmock.h>

#include <cstring>

#include "base/FailEachAllocation.h"
#include "core/RecordingTransport.h"
#include "tav/tavControl.h"
#include "tavConnector/tavConnector.h"
#include "tavProcess/tavSapp.h"

using testing::ElementsAre;

namespace {

const std::string kUrl = "http://127.0.0.1:1", kSecond = "http://127.0.0.1:2";
const std::string kUri = "/sentinelFabric?name=tavlib&server=tavlib", kInit = "POST " + kUri + " 5";

class Connector : public RecordingTransport {
protected:
    // Polls are the requests that carry an interest or ask for a version.
    int pollsOut() const {
        int count = 0;
        for (const Sent &request : sent)
            count += !request.answered && (request.timeout == 5 ? request.body[0] == '{' && request.body[1] == '\'' : true);
        return count;
    }
    // The latest request, without its body: "METHOD uri timeout".
    std::string last() const { return sent.back().method + " " + sent.back().uri + " " + std::to_string(sent.back().timeout); }
    int outstanding(TavConnector *c) {
        TavLockGuard guard(c->lock, "test");
        return tavListGetCount(c->outstandingRestRequestList);
    }
};

} // namespace

TEST_F(Connector, InitThenPoll) {
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(last(), kInit);
    EXPECT_EQ(sent[0].body, tavGetInterestSpec(tav, group));
    EXPECT_FALSE(tavConnectorGroupIsInitialized(group));
    takeStates();

    answer(200, "{\"version\": 9007199254740993}");
    EXPECT_THAT(takeStates(), ElementsAre(kUrl + " STARTED: started", "group STARTED: started"));
    EXPECT_EQ(tavGetState(tav), STARTED);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(last(), "GET " + kUri + "&vid=9007199254740993&wait=300 305");
    EXPECT_EQ(sent[1].body, "");
    EXPECT_EQ(sent[1].client, sent[0].client);
    EXPECT_EQ(freed, 1);

    // What changes meanwhile shows in the next poll; its time-out belongs to the chain.
    tavConnectorGroupSetWaitTime(group, 20);
    tavPropertySet(tavGetProperties(tav), "ppid", "-77", TRUE);
    answer(200, "{\"version\": 2, \"delta\": true}");
    EXPECT_EQ(last(), "GET " + kUri + "-77&vid=2&wait=20 305");
    tavSetServerName(tav, nullptr);
    answer(200, "{\"version\": 3, \"delta\": true}");
    EXPECT_EQ(last(), "GET /sentinelFabric&vid=3&wait=20 305");
    EXPECT_EQ(opened.size(), 1u);
    EXPECT_EQ(outstanding(connector), 1);
}

TEST_F(Connector, FailuresMoveOnAndThenWait) {
    tavConnectorCreate(group, kSecond.c_str());
    const struct {
        TavHttpResponse *response;
        std::string reason;
    } cases[] = {
        {nullptr, "no response was received from " + kUrl + " for request type init"},
        {response(200, nullptr), "no response was received from " + kUrl + " for request type init"},
        {response(503, "%s%n"), "HTTP response error code 503 was received from " + kUrl + " for request type init"},
    };
    for (const auto &c : cases) {
        const size_t closedBefore = closed.size();
        ASSERT_EQ(tavConnectorGroupGetCurConnector(group), connector);
        takeStates();
        unreachable = {kSecond};
        answer(lastOpen(), c.response);
        // The second connector cannot be opened, and that was the whole round.
        std::vector<std::string> expected = {kUrl + " FAILED: " + c.reason, kSecond + " STARTING: starting",
                                             kSecond + " FAILED: open failed"};
        if (&c == cases) expected.push_back("group FAILED: failure on all connectors"); // and stays so
        EXPECT_EQ(takeStates(), expected);
        EXPECT_EQ(closed.size(), closedBefore + 1);
        EXPECT_EQ(tavGetState(tav), FAILED);
        ASSERT_EQ(alarms.size(), 1u);
        EXPECT_EQ(alarms[0].milliseconds, 60000);
        EXPECT_EQ(group->consecutiveFailures, 0);
        fire(); // the first one again, with a new client
        EXPECT_EQ(tavConnectorGroupGetState(group), FAILED);
        EXPECT_EQ(last(), kInit);
    }
    unreachable.clear();
    EXPECT_EQ(connector->failures, 3);
    answer(200, "{\"version\": 1}");
    EXPECT_EQ(connector->failures, 0);
    EXPECT_EQ(tavConnectorGroupGetState(group), STARTED);
    EXPECT_EQ(pollsOut(), 1);
    // A failed poll counts like a failed init; the next connector takes over with an init of its own.
    answerNothing();
    EXPECT_EQ(opened.back() + " " + last(), kSecond + " " + kInit);
    answer(200, "{\"version\": 1}"); // the count of failures begins anew
    answerNothing();
    EXPECT_EQ(opened.back() + " " + last(), kUrl + " " + kInit);
    EXPECT_EQ(tavConnectorGroupGetState(group), STARTED);
    EXPECT_TRUE(alarms.empty());
}

TEST_F(Connector, TheAlarmIsClampedNotTheSetting) {
    const struct {
        const char *setting;
        int field, alarm;
    } cases[] = {{"0", 0, 1000}, {"-5", -5, 1000}, {"2", 2, 2000}, {"99999999999", 2147483647, 2147483647}};
    for (const auto &c : cases) {
        EXPECT_TRUE(tavConnectorGroupSetProperty(group, "RETRYinterval", c.setting));
        answerNothing();
        EXPECT_EQ(tavConnectorGroupGetMaxRetryInterval(group), c.field);
        ASSERT_EQ(alarms.size(), 1u);
        EXPECT_EQ(alarms[0].milliseconds, c.alarm);
        fire();
    }
}

TEST_F(Connector, StopEndsEverything) {
    answer(200, "{\"version\": 1}");
    tavConnectorPostRoutingChange(connector, "/a", TRUE, TRUE);
    ASSERT_EQ(outstanding(connector), 2);
    takeStates();
    EXPECT_EQ(tavStop(tav), 0);
    EXPECT_THAT(takeStates(), ElementsAre("group STOPPING: stopping", kUrl + " STOPPING: stopping", kUrl + " STOPPED: stopped",
                                          "group STOPPED: stopped"));
    EXPECT_EQ(outstanding(connector), 0);
    EXPECT_EQ(closed.size(), 2u); // the poll's client and the report's
    EXPECT_EQ(tavConnectorGetJSON(connector), nullptr);
    EXPECT_EQ(tavConnectorGroupGetCurConnector(group), nullptr);
    EXPECT_EQ(tavStop(tav), -1);

    // Late responses free themselves; nothing polls, closes or changes state.
    const size_t before = sent.size();
    answer(before - 2, response(200, "{\"version\": 5}"));
    answer(before - 1, nullptr);
    EXPECT_EQ(sent.size(), before);
    EXPECT_EQ(closed.size(), 2u);
    EXPECT_TRUE(takeStates().empty());
    tavConnectorPostRoutingChange(connector, "/a", FALSE, TRUE);
    EXPECT_EQ(sent.size(), before);

    EXPECT_EQ(tavStart(tav, -1), 0);
    EXPECT_EQ(pollsOut(), 1);
    // A stop by another thread while a report is being sent: who sends it still needs the client.
    whileSending = [this] {
        EXPECT_EQ(tavStop(tav), 0);
        EXPECT_EQ(closed.size(), 3u) << "the poll's alone";
    };
    tavConnectorPostRoutingChange(connector, "/a", TRUE, TRUE);
    EXPECT_EQ(closed.size(), 4u);
}

TEST_F(Connector, OneChainOfPollsWhateverWasPending) {
    // Stopped while the group waits with its alarm, then started again: the old alarm does nothing.
    answerNothing();
    ASSERT_EQ(alarms.size(), 1u);
    EXPECT_EQ(tavStop(tav), -1); // a failed instance cannot be stopped, but it stays down
    fire();
    EXPECT_EQ(pollsOut(), 0);
    EXPECT_EQ(tavStart(tav, -1), 0);
    EXPECT_EQ(pollsOut(), 1);
    EXPECT_EQ(tavStart(tav, -1), -1);
    // The same with a poll that waits after an unusable document.
    answer(200, "nonsense");
    ASSERT_EQ(alarms.size(), 1u);
    EXPECT_EQ(tavStop(tav), 0);
    EXPECT_EQ(tavStart(tav, -1), 0);
    fire();
    EXPECT_EQ(pollsOut(), 1);
    // A group that failed by itself and is started by hand before its alarm.
    answerNothing();
    EXPECT_EQ(tavStart(tav, -1), 0);
    EXPECT_EQ(connector->failures, 0);
    fire();
    EXPECT_EQ(pollsOut(), 1);
}

TEST_F(Connector, RoutesAreGatheredWhileADocumentIsApplied) {
    answer(200, "{\"version\": 1}");
    const size_t before = sent.size();
    tavConnectorSetProcessingJSON(connector, TRUE, TRUE);
    tavConnectorSetProcessingJSON(connector, FALSE, TRUE); // nothing was gathered
    tavConnectorSetProcessingJSON(connector, TRUE, TRUE);
    tavConnectorPostRoutingChange(connector, "/b", TRUE, TRUE);
    tavConnectorPostRoutingChange(connector, "/a", TRUE, TRUE);
    tavConnectorPostRoutingChange(connector, "/c", FALSE, TRUE);
    EXPECT_EQ(sent.size(), before);
    tavConnectorSetProcessingJSON(connector, FALSE, TRUE);
    ASSERT_EQ(sent.size(), before + 1);
    const auto body = [this] { return takeText(json_loads(sent.back().body.c_str(), 0, nullptr)); };
    EXPECT_EQ(body(), "{\n \"addRoutes\": [\n  \"/b\",\n  \"/a\"\n ],\n \"delRoutes\": [\n  \"/c\"\n ]\n}");
    EXPECT_EQ(last(), kInit);
    EXPECT_NE(sent.back().client, sent[before - 1].client) << "the poll's client is busy";

    // The controller is done with it: the client goes, the poll is not touched.
    answer(200, "");
    EXPECT_THAT(closed, ElementsAre(sent.back().client));
    EXPECT_EQ(pollsOut(), 1);
    tavConnectorPostRoutingChange(connector, "/a", FALSE, TRUE);
    // A failed report is the connector's failure, but neither a failover nor the poll's end.
    takeStates();
    answer(500, "");
    EXPECT_THAT(takeStates(),
                ElementsAre(kUrl + " FAILED: HTTP response error code 500 was received from " + kUrl + " for request type routeChange"));
    EXPECT_EQ(closed.size(), 2u);
    EXPECT_EQ(pollsOut(), 1);
    EXPECT_EQ(tavConnectorGroupGetState(group), STARTED);
    // A client that cannot be opened is one more failure of the connector.
    unreachable = {kUrl};
    const int failures = connector->failures;
    tavConnectorPostRoutingChange(connector, "/a", TRUE, TRUE);
    EXPECT_EQ(connector->failures, failures + 1);
    unreachable.clear();
}

TEST_F(Connector, NoRoutesForABrindleGroupOrFromTheDaemonItself) {
    answer(200, "{\"version\": 1}");
    const size_t before = sent.size();
    tav->processType = ServerProcess;
    tavConnectorPostRoutingChange(connector, "/a", TRUE, TRUE);
    EXPECT_EQ(sent.size(), before);
    tavConnectorPostRoutingChange(connector, "/a", TRUE, FALSE); // on behalf of a worker
    EXPECT_EQ(sent.size(), before + 1);
    // Of what the daemon gathers only the workers' side sends it.
    tavConnectorSetProcessingJSON(connector, TRUE, FALSE);
    tavConnectorPostRoutingChange(connector, "/b", TRUE, FALSE);
    tavConnectorSetProcessingJSON(connector, FALSE, TRUE);
    EXPECT_EQ(sent.size(), before + 1);
    tavConnectorSetProcessingJSON(connector, FALSE, FALSE);
    EXPECT_EQ(sent.size(), before + 2);
    // A daemon that has served its share ends, its group does not; but it polls no more.
    tav->maxRequestsPerDaemon = 1;
    EXPECT_FALSE(tavMaxRequestsPerDaemon(tav));
    EXPECT_TRUE(tavMaxRequestsPerDaemon(tav));
    systemSettle(tav);
    EXPECT_EQ(tavGetState(tav), STOPPED);
    answer(before - 1, response(200, "{\"version\": 2}"));
    EXPECT_EQ(sent.size(), before + 2);
    EXPECT_EQ(tavStart(tav, -1), 0);
    EXPECT_EQ(tavGetState(tav), STARTED);
    // Of a route of the workers the controller hears when the first one has it and when the last one has not, or nobody had.
    json_t *routes = json_pack("[s]", "/r");
    const std::tuple<int, Boolean, bool> steps[] = {{1, TRUE, true},  {2, TRUE, false}, {1, FALSE, false}, {1, FALSE, false},
                                                    {2, FALSE, true}, {2, FALSE, true}, {3, TRUE, true}};
    for (const auto &[pid, add, heard] : steps) {
        const size_t sentBefore = sent.size();
        sappMapProcessing(tav, routes, pid, connector, add);
        EXPECT_EQ(sent.size() > sentBefore, heard) << pid << ' ' << +add;
    }
    json_decref(routes);
    const size_t after = sent.size();
    tav->processType = StandaloneProcess;
    EXPECT_TRUE(tavConnectorGroupSetProperty(group, "profileType", "brindle"));
    tavConnectorPostRoutingChange(connector, "/a", TRUE, TRUE);
    EXPECT_EQ(sent.size(), after);
}

TEST_F(Connector, AHostThatAnswersInsideItsCallIsAnsweredLater) {
    hostility = ANSWERS_INSIDE;
    answer(200, "{\"version\": 1}"); // the poll that follows is answered before it is sent
    systemSettle(tav);
    EXPECT_EQ(pollsOut(), 1);
    EXPECT_EQ(tavConnectorGetState(connector), STARTED);
    EXPECT_EQ(freed, 2);
    // The same for a report, from a thread without the control lock: its client goes exactly once.
    hostility = ANSWERS_INSIDE;
    tavConnectorPostRoutingChange(connector, "/a", TRUE, TRUE);
    systemSettle(tav);
    EXPECT_EQ(closed.size(), 1u);
    EXPECT_EQ(freed, 3);
    // One that also refuses has refused.
    takeStates();
    hostility = ANSWERS_INSIDE_AND_REFUSES;
    insideBody = "{\"version\": 3}";
    answer(200, "{\"version\": 2}");
    EXPECT_EQ(takeStates().front(), kUrl + " FAILED: send failure");
    EXPECT_EQ(freed, 5);
    // So has one that refuses the interest; its client is used again.
    hostility = ANSWERS_INSIDE_AND_REFUSES;
    fire();
    EXPECT_THAT(takeStates(), ElementsAre(kUrl + " STARTING: starting", kUrl + " FAILED: send failed"));
    EXPECT_EQ(opened.size(), 2u); // it and the report's
    // An alarm that fires inside its call polls again on the instance's own thread.
    alarmFiresInside = true;
    fire();
    {
        TavControlScope control("test"); // an answer to a thread that works on the configuration waits for it to be done
        answer(200, "nonsense");
        EXPECT_EQ(freed, 6);
    }
    systemSettle(tav);
    EXPECT_EQ(freed, 7);
    EXPECT_EQ(pollsOut(), 1);
}

TEST_F(Connector, RemovingConnectors) {
    TavConnector *second = tavConnectorCreate(group, kSecond.c_str());
    EXPECT_EQ(tavConnectorGroupFindConnector(group, kSecond.c_str()), second);
    EXPECT_EQ(tavConnectorGroupFindConnector(group, "http://127.0.0.1"), nullptr);
    for (const char *url : {static_cast<const char *>(nullptr), "http://\xc3"}) EXPECT_EQ(tavConnectorCreate(group, url), nullptr);
    answer(200, "{\"version\": 1}");
    EXPECT_EQ(tavHandleJsonFromRestService("{\"version\": 4}", second), 4);
    EXPECT_EQ(tavConnectorGroupGetCurConnector(group), connector) << "what a host brings by itself does not change who polls";
    // The one that polls goes: another carries on. One that does not: nothing changes.
    tavConnectorGroupRemoveConnector(group, connector);
    EXPECT_EQ(tavConnectorGroupGetCurConnector(group), second);
    EXPECT_EQ(sent.back().method, "POST");
    TavConnector *third = tavConnectorCreate(group, kUrl.c_str());
    const size_t before = sent.size();
    tavConnectorGroupRemoveConnector(group, third);
    EXPECT_EQ(sent.size(), before);
    // A host that removes the failed connector when it hears of it ends up with one chain as well.
    connector = tavConnectorCreate(group, kUrl.c_str());
    onConnectorState = [](TavConnector *c, TavComponentState state) {
        if (state == FAILED) tavConnectorGroupRemoveConnector(tavConnectorGetGroup(c), c);
    };
    answerNothing();
    onConnectorState = nullptr;
    EXPECT_EQ(tavConnectorGroupGetCurConnector(group), connector);
    answer(1, response(200, "{\"version\": 9}")); // late, for a connector that is gone
    int polls = 0;
    for (const Sent &request : sent) polls += !request.answered;
    EXPECT_EQ(polls, 1);
    // Without connectors the group waits.
    tavConnectorGroupRemoveConnector(group, connector);
    EXPECT_EQ(tavConnectorGroupGetState(group), FAILED);
    EXPECT_EQ(alarms.size(), 1u);
}

TEST_F(Connector, GroupsComeAndGoWhileTheInstanceRuns) {
    answer(200, "{\"version\": -1}"); // as good as any other version, but one that cannot be told from a refusal
    EXPECT_EQ(connector->vid, -1);
    EXPECT_NE(tavConnectorGetJSON(connector), nullptr);
    TavConnectorGroup *second = tavConnectorGroupCreate(tav, "second");
    TavConnector *other = tavConnectorCreate(second, "http://127.0.0.1:2");
    EXPECT_EQ(tavConnectorGroupStart(second), 0);
    EXPECT_EQ(tavConnectorGroupStart(second), -1);
    EXPECT_EQ(tavGetState(tav), STARTING);
    answer(200, "{\"version\": 1}");
    EXPECT_EQ(tavGetState(tav), STARTED);
    EXPECT_EQ(tavConnectorGroupStop(second), 0);
    EXPECT_EQ(tavConnectorGroupStop(second), -1);
    EXPECT_EQ(tavGetState(tav), PARTIAL_START);
    EXPECT_EQ(tavConnectorGetJSON(other), nullptr);
    for (TavConnector *c : {other, tavConnectorCreate(second, "http://127.0.0.1:3")}) {
        EXPECT_EQ(tavHandleJsonFromRestService("{\"version\": 3}", c), 3);
        EXPECT_EQ(tavConnectorGroupGetCurConnector(second), c) << "nobody polls: the one that brought something";
    }
    EXPECT_EQ(tavConnectorGroupStart(second), 0);
    tavConnectorGroupDelete(second);
    EXPECT_EQ(tavFindConnectorGroup(tav, "second"), nullptr);
    EXPECT_EQ(tavGetState(tav), STARTED);
    answerNothing(); // late, for a group that is gone
    // Workers have no controller of their own.
    tav->processType = ClientProcess;
    EXPECT_EQ(tavConnectorGroupStop(group), 0);
    EXPECT_EQ(tavConnectorGroupStart(group), -1);
    tav->processType = StandaloneProcess;
    // One that was taken out, running, outlives the instance's end: its polls do nothing any more.
    EXPECT_EQ(tavConnectorGroupStart(group), 0);
    tavRemoveConnectorGroup(tav, group);
    tavObtainRef(tav, "test");
    tavDestroy(tav);
    tavDestroy(tav); // there is nothing more to give back
    const size_t before = sent.size();
    answer(200, "{\"version\": 2}");
    fireAll();
    EXPECT_EQ(sent.size(), before);
    EXPECT_EQ(tavHandleJsonFromRestService("{\"version\": 2}", connector), -1);
    EXPECT_EQ(tavConnectorGroupCreate(tav, "late"), nullptr);
    EXPECT_EQ(tavStart(tav, -1), -1);
    tavConnectorGroupDelete(group);
    EXPECT_EQ(tavGetState(tav), DELETED);
    tavReleaseRef(tav, "test");
    tav = nullptr;
}

TEST_F(Connector, Properties) {
    for (const char *name : {"MAXRETRIES", "maxWaitOffset", "enableRoutingToAdminConsole", "profileType", "maxRetries ", "waitTime"})
        EXPECT_EQ(tavConnectorGroupSetProperty(group, name, "3"), strcmp(name, "maxRetries ") && strcmp(name, "waitTime")) << name;
    EXPECT_TRUE(tavConnectorGroupSetProperty(group, "uri", nullptr)) << "known, and nothing changes";
    EXPECT_EQ(tavConnectorGroupGetMaxRetries(group), 3);
    EXPECT_FALSE(tavConnectorGroupIsBrindle(group));
    tavConnectorGroupSetURI(group, "/x/kel/api/dynamicRouting/y");
    EXPECT_TRUE(tavConnectorGroupIsBrindle(group));
    tavConnectorGroupSetURI(group, "/z");
    EXPECT_TRUE(tavConnectorGroupIsBrindle(group)) << "never cleared";
    tavConnectorGroupSetInterestSpec(group, "mine");
    answerNothing();
    fire();
    EXPECT_EQ(last() + sent.back().body, "POST /z?name=tavlib&server=tavlib 3mine");
    EXPECT_THAT(takeText(tavToJSON(tav)), testing::ContainsRegex(R"("http://127.0.0.1:1": .[^}]*"failures": 1,[^}]*"state": "STARTING")"));
    for (const char *name : {static_cast<const char *>(nullptr), "g\xff"}) EXPECT_EQ(tavConnectorGroupCreate(tav, name), nullptr);
}

TEST_F(Connector, SurvivesEveryFailedAllocation) {
    const int atRest = settle();
    failEachAllocation([this, atRest](auto failed) {
        const size_t firstOfRun = sent.size();
        if (TavConnectorGroup *cg = tavConnectorGroupCreate(tav, "other")) {
            EXPECT_FALSE(failed()) << "half a group";
            TavConnector *c = tavConnectorCreate(cg, "http://127.0.0.1:5");
            tavConnectorGroupStart(cg);
            if (sent.size() > firstOfRun) answer(firstOfRun, response(200, "nonsense"));
            if (c) tavConnectorPostRoutingChange(c, "/a", TRUE, TRUE);
            tavSetAllocationGate(nullptr);
            tavConnectorGroupDelete(cg);
        }
        tavSetAllocationGate(nullptr);
        fireAll();
        for (size_t i = firstOfRun; i < sent.size(); i++)
            if (!sent[i].answered) answer(i, nullptr);
        systemSettle(tav);
        EXPECT_TRUE(systemBlocksBackTo(atRest));
    });
}
