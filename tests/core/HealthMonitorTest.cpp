// Samples against policies, and the counting of reporters.
#include <gmock/gmock.h>

#include "core/RecordingTransport.h"
#include "support/Ipc.h"
#include "tav/tavControl.h"
#include "tavConnector/tavConnector.h"
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char kServer[] = "/cell/c/node/n/server/s";
const char kPolicy[] = "/cell/c/healthPolicy/p";

class Health : public RecordingTransport {
protected:
    void SetUp() override {
        RecordingTransport::SetUp();
        answer(200, "{\"version\": 1}");
        reportsFrom = sent.size();
        ri = tavRoutingInfoObtain(tav);
        ts = tavRoutingInfoGetTargetSelector(ri);
        server = tsServerCreate(tsNodeCreate(ts, "/cell/c/node/n"), kServer, connector);
        ASSERT_TRUE(tsServerInit(server));
        policy = hmHealthPolicyCreate(ts, kPolicy, connector);
    }
    void TearDown() override {
        hmHealthPolicyDelete(policy);
        tavRoutingInfoRelease(ri);
        RecordingTransport::TearDown();
    }

    void sample(TavTime avgRT, int timeoutPct) {
        {
            TavLockGuard guard(ts->lock, "test");
            hmCheckHealthPolicies(tav, nullptr, server, server->healthPolicies, avgRT, timeoutPct);
        }
        drainAsync();
    }

    // "policy server true" for each report since the last call.
    std::vector<std::string> takeReports() {
        std::vector<std::string> reports;
        for (; reportsFrom < sent.size(); reportsFrom++) {
            json_t *json = json_loads(sent[reportsFrom].body.c_str(), 0, nullptr);
            const char *name = json_string_value(json_object_get(json, "healthPolicyName"));
            const char *serverName = json_string_value(json_object_get(json, "serverName"));
            reports.push_back(std::string(name ? name : "?") + " " + (serverName ? serverName : "?") + " " +
                              (json_is_true(json_object_get(json, "healthPolicyTriggered")) ? "true" : "false"));
            json_decref(json);
        }
        return reports;
    }

    void receive(bool triggered, int reporter, const char *url = "http://127.0.0.1:1", const char *groupName = "g") {
        TavControlScope control("test");
        receiveTrigger(tav, triggerBlock(triggered, kPolicy, kServer, groupName, url), reporter);
    }

    TavRoutingInfo *ri = nullptr;
    TargetSelector *ts = nullptr;
    TargetServer *server = nullptr;
    HealthPolicy *policy = nullptr;
    size_t reportsFrom = 0;
};

const std::string kTriggered = std::string(kPolicy) + " " + kServer + " true";
const std::string kUntriggered = std::string(kPolicy) + " " + kServer + " false";
constexpr TavTime kNone = static_cast<TavTime>(-1);

} // namespace

TEST_F(Health, ReachingTriggersAndFallingBelowUntriggers) {
    EXPECT_TRUE(tsLinkServerToHealthPolicy(server, policy, TRUE));
    sample(100000, 100);
    EXPECT_THAT(takeReports(), IsEmpty()) << "a policy without a type";
    EXPECT_FALSE(hmHealthPolicySetPropStr(policy, "type", "excessiveResponseTime"));
    EXPECT_FALSE(hmHealthPolicySetPropStr(policy, "kind", "ExcessiveResponseTime"));
    EXPECT_FALSE(hmHealthPolicySetPropInt(policy, "type", 1));
    EXPECT_TRUE(hmHealthPolicySetPropStr(policy, "type", "ExcessiveResponseTime"));
    EXPECT_TRUE(hmHealthPolicySetPropInt(policy, "threshold", 500));
    takeTrace();
    const struct {
        TavTime average;
        int timeouts;
        std::vector<std::string> reports;
    } samples[] = {{499, 100, {}}, {500, 0, {kTriggered}},   {500, 0, {}},          {kNone, 0, {}}, {499, 0, {kUntriggered}},
                   {499, 0, {}},   {70000, 0, {kTriggered}}, {0, 0, {kUntriggered}}};
    for (const auto &s : samples) {
        sample(s.average, s.timeouts);
        EXPECT_EQ(takeReports(), s.reports) << s.average;
    }
    EXPECT_NE(
        takeTrace().find("Health policy p was triggered for server s on node n in cell c: responses must stay below 500 ms on average and "
                         "took 500 ms"),
        std::string::npos);
    EXPECT_TRUE(hmHealthPolicySetPropStr(policy, "type", "ExcessiveRequestTimeout"));
    EXPECT_TRUE(hmHealthPolicySetPropInt(policy, "threshold", 20));
    sample(100000, -1);
    sample(0, 19);
    EXPECT_THAT(takeReports(), IsEmpty());
    sample(0, 20);
    EXPECT_THAT(takeReports(), ElementsAre(kTriggered));
    EXPECT_NE(takeTrace().find("requests that time out must stay below 20 percent and are 20 percent"), std::string::npos);
}

TEST_F(Health, ReportersAreCounted) {
    receive(true, 7);
    receive(true, 8);
    receive(true, 8);
    EXPECT_THAT(takeReports(), ElementsAre(kTriggered));
    receive(false, 9); // never reported it
    receive(false, 8);
    EXPECT_THAT(takeReports(), IsEmpty());
    receive(false, 7);
    EXPECT_THAT(takeReports(), ElementsAre(kUntriggered));
    receive(false, 7);
    EXPECT_THAT(takeReports(), IsEmpty());
    // One goes away by itself, with everything that it reported; the others' reports stay.
    receive(true, 7);
    receive(true, 8);
    takeReports();
    TavControlScope control("test");
    hmClientProcessCleanup(tav, 7);
    EXPECT_THAT(takeReports(), IsEmpty());
    hmClientProcessCleanup(tav, 8);
    hmClientProcessCleanup(tav, 8);
    EXPECT_THAT(takeReports(), ElementsAre(kUntriggered));
}

TEST_F(Health, AResetUntriggersWhatWasTriggered) {
    {
        TavControlScope control("test");
        hmResetInfo(tav); // nothing there yet
    }
    receive(true, 7);
    receive(true, 8);
    takeReports();
    {
        TavControlScope control("test");
        hmResetInfo(tav);
        EXPECT_THAT(takeReports(), ElementsAre(kUntriggered));
        hmResetInfo(tav);
    }
    EXPECT_THAT(takeReports(), IsEmpty());
    receive(true, 8);
    EXPECT_THAT(takeReports(), ElementsAre(kTriggered)) << "the first reporter again";
}

TEST_F(Health, ReportsForAnotherConnectorAreDropped) {
    receive(true, 7, "http://127.0.0.1:2");
    receive(true, 7, "http://127.0.0.1:1", "unknown");
    EXPECT_THAT(takeReports(), IsEmpty());
    receive(true, 7);
    EXPECT_THAT(takeReports(), ElementsAre(kTriggered)) << "the dropped ones left no reporter";
}
