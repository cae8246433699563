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
        systemSettle(tav);
    }

    // "policy server true" for each report since the last call.
    std::vector<std::string> takeReports() {
        std::vector<std::string> reports;
        for (; reportsFrom < sent.size(); reportsFrom++) {
            json_t *json = json_loads(sent[reportsFrom].body.c_str(), 0, nullptr);
            const char *name = "?", *serverName = "?";
            int triggered = 0;
            json_unpack(json, "{s:s, s:s, s:b}", "healthPolicyName", &name, "serverName", &serverName, "healthPolicyTriggered", &triggered);
            reports.push_back(std::string(name) + " " + serverName + (triggered ? " true" : " false"));
            json_decref(json);
        }
        return reports;
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
    } samples[] = {{kNone, 100, {}},         {499, 100, {}}, {500, 0, {kTriggered}},   {500, 0, {}},          {kNone, 0, {}},
                   {499, 0, {kUntriggered}}, {499, 0, {}},   {70000, 0, {kTriggered}}, {0, 0, {kUntriggered}}};
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

// The controller hears of the first reporter and of the last one only. A step: "+" triggers, "-" takes back, "x" a process is gone, and its
// number; "u" and "g" trigger for another URL or group than the connector's, "r" resets.
TEST_F(Health, ReportersAreCounted) {
    const std::vector<std::string> none, triggered = {kTriggered}, untriggered = {kUntriggered};
    const std::pair<const char *, std::vector<std::string>> rows[] = {
        {"r0 u7 g7", none}, {"+7", triggered},   {"+8 +8 -9 -8", none}, {"-7", untriggered}, {"-7 r0", none},
        {"+7", triggered},  {"+8 x7", none},     {"x8", untriggered},   {"x8", none},        {"+7", triggered},
        {"+8", none},       {"r0", untriggered}, {"r0", none},          {"+8", triggered},
    };
    TavControlScope control("test");
    for (const auto &[steps, reports] : rows) {
        for (const char *step = steps; *step; step += step[2] ? 3 : 2) {
            const int reporter = step[1] - '0';
            const std::string block = triggerBlock(*step != '-', kPolicy, kServer, *step == 'g' ? "other" : "g",
                                                   *step == 'u' ? "http://127.0.0.1:2" : "http://127.0.0.1:1");
            if (*step == 'x') {
                hmClientProcessCleanup(tav, reporter);
            } else if (*step == 'r') {
                hmResetInfo(tav);
            } else {
                receiveTrigger(tav, block, reporter);
            }
        }
        EXPECT_EQ(takeReports(), reports) << steps;
    }
}
