// Servers and server applications: properties, selectability, clone ids, what the connector hears.
#include "SelectorTest.h"
#include "tavHealthMonitor/tavHealthMonitor.h"

using Routes = std::vector<std::string>;

static std::string reasons(const TargetServer *server) {
    return std::string(tavOrNull(server->reasonForNoAffinity)) + " | " + tavOrNull(server->reasonForNoLoadBalancing);
}

TEST_F(SelectorTest, ServerSelectabilityFollowsStateMaintenanceAndWeight) {
    Back &b = bareBack("a");
    TargetServer *unseen = tsServerCreate(node, "/u", nullptr); // not initialised: the node does not know it
    tsServerSetState(unseen, "STARTED");
    tsServerSetWeight(unseen, 1);
    EXPECT_EQ(reasons(b.server), "server is not started | server is not started");
    const struct {
        const char *name, *value, *expected;
    } steps[] = {
        {"state", "started", "server is not started | server is not started"}, // the case counts
        {"state", "STARTED", "null | server weight is 0"},                     // never given a weight
        {"weight", "0", "null | server weight is 0"},
        {"weight", "5", "null | null"},
        {"server.maintenancemode", "affinity", "null | server is in affinity maintenance mode"},
        {"weight", "0", "null | server weight is 0"}, // comes before the maintenance mode
        {"server.maintenancemode", "break", "server is in break maintenance mode | server is in break maintenance mode"},
        {"server.maintenancemode", "false", "null | server weight is 0"},
        {"weight", "1", "null | null"},
        {"node", "TRUE", "null | null"}, // refused
        {"other node", "true", "null | null"},
        {"node", "true", "null | server is on node in maintenance mode"},
        {"node", "false", "null | null"},
        {"state", "STOPPING", "server is not started | server is not started"},
    };
    TargetNode *other = tsNodeCreate(ts, "/o");
    for (const auto &step : steps) {
        SCOPED_TRACE(std::string(step.name) + "=" + step.value);
        const std::string name = step.name;
        const bool isNode = name.ends_with("node");
        const Boolean taken = name == "weight" ? tsServerSetPropInt(b.server, "weight", atoi(step.value))
                              : isNode         ? tsNodeSetPropStr(name == "node" ? node : other, "cp.node.maintenancemode", step.value)
                                               : tsServerSetPropStr(b.server, step.name, step.value);
        EXPECT_EQ(taken, step.value != std::string("TRUE"));
        EXPECT_EQ(reasons(b.server), step.expected);
        EXPECT_EQ(reasons(unseen), "null | null");
    }
}

TEST_F(SelectorTest, ServerApplicationSelectabilityByStateInAnyCase) {
    Back &b = bareBack("a");
    EXPECT_STREQ(b.sapp->reasonForNoAffinity, "server application is STOPPED");
    const struct {
        const char *state, *noLoadBalancing, *noAffinity;
    } rows[] = {
        {"started", nullptr, nullptr},
        {"Affinity", "in affinity mode", nullptr},
        {"QUIESCING", "in QUIESCING state", "in QUIESCING state"},
        {"quiesced", "in QUIESCE state", "in QUIESCE state"},
        {"STARTEDX", "not STARTED", "not STARTED"},
        {nullptr, "null state", "null state"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(tavOrNull(row.state));
        EXPECT_TRUE(tsServerApplicationSetPropStr(&b.handle, "state", row.state));
        EXPECT_STREQ(b.sapp->reasonForNoLoadBalancing, row.noLoadBalancing);
        EXPECT_STREQ(b.sapp->reasonForNoAffinity, row.noAffinity);
    }
}

TEST_F(SelectorTest, ConnectorHearsOncePerChangeAndAfterTheLastRequest) {
    Back &b = back("a");
    const std::string plus = "+" + b.path, minus = "-" + b.path;
    b.state("AFFINITY"); // still routable
    b.state("started");
    auto one = request(), two = request();
    selectName(*one);
    b.state("STOPPED");
    b.state("STARTED"); // back while it drains: it was never gone
    selectName(*two);
    b.state("STOPPED");
    b.state("QUIESCED");
    finish(*one);
    EXPECT_EQ(world.routes, Routes{plus});
    finish(*two);
    EXPECT_EQ(world.routes, (Routes{plus, minus}));
    for (const char *state : {"STOPPED", "STARTED", "STOPPED"}) b.state(state);
    EXPECT_EQ(world.routes, (Routes{plus, minus, plus, minus}));
}

TEST_F(SelectorTest, DeletingARoutableServerApplicationEndsItsRouteOnceItsRequestsAreGone) {
    Back &b = back("a", "c1");
    const Routes begun{"+" + b.path}, ended{"+" + b.path, "-" + b.path};
    auto ctx = request();
    EXPECT_EQ(selectName(*ctx), "a");
    tsServerApplicationDelete(&b.handle);
    EXPECT_FALSE(b.state("STOPPED"));
    EXPECT_EQ(world.routes, begun);
    auto sticky = request("s:c1");
    EXPECT_EQ(selectName(*sticky), "-") << "neither by affinity nor by load";
    TavServerApplication again{};
    EXPECT_TRUE(tsServerApplicationCreate(b.server, b.path.c_str(), connector, &again));
    finish(*ctx);
    EXPECT_EQ(world.routes, ended);
    EXPECT_EQ(tsServerGetTavServerApplication(b.server, "shop"), &again);
    tsServerApplicationForgetHandle(&again); // handles may be freed before the snapshot, too
    Back &other = back("b");
    tsServerDelete(other.server); // takes its applications along
    EXPECT_EQ(world.routes.back(), "-" + other.path);
    EXPECT_FALSE(other.state("STARTED"));
}

TEST_F(SelectorTest, AServersApplicationsAreFoundByNameHoweverMany) {
    for (const size_t count : {2, 7, 30}) {
        TargetServer *server = tsServerCreate(node, "/many", connector);
        std::vector<TavServerApplication> handles(count * 2);
        const auto name = [count](size_t i) { return "app" + std::to_string(i % count); };
        const auto create = [&](size_t i) { tsServerApplicationCreate(server, ("/many/" + name(i)).c_str(), nullptr, &handles[i]); };
        const auto found = [&](size_t i) { return tsServerGetTavServerApplication(server, name(i).c_str()); };
        for (size_t i = 0; i < handles.size(); i++) create(i);
        for (size_t i = 0; i < handles.size(); i++) EXPECT_EQ(found(i), &handles[i % count]) << "the first of a name";
        tsServerApplicationDelete(&handles[0]);
        EXPECT_EQ(found(0), &handles[count]);
        tsServerApplicationDelete(&handles[count]);
        EXPECT_EQ(found(0), nullptr);
        create(0);
        EXPECT_EQ(found(0), handles.data());
        EXPECT_EQ(tsServerGetTavServerApplication(server, "app"), nullptr);
        tsServerDelete(server);
    }
}

TEST_F(SelectorTest, HealthIsCheckedWhenAServerStopsAndWhenAnIntervalEnds) {
    Back &b = back("a");
    HealthPolicy *policy = hmHealthPolicyCreate(ts, "/cell/c/healthPolicy/slow", connector);
    EXPECT_TRUE(tsLinkServerToHealthPolicy(b.server, policy, TRUE));
    traceOn(":NOTICE,control.health:DEBUG");
    // What the health monitor was asked since the last call: "mean percent" each.
    const auto checks = [] {
        std::string all;
        unsigned long mean;
        int percent;
        for (const std::string &line : takeLines())
            if (sscanf(line.c_str(), "hmCheckHealthPolicies: Server='/cell/c/node/n/server/a' avgRT=%lu timeoutPct=%d", &mean, &percent) ==
                2)
                all += std::to_string(static_cast<int>(mean)) + " " + std::to_string(percent) + ";";
        return all;
    };
    const struct {
        TavTime curTime, serviceTime;
        Boolean timeout;
        const char *expected;
    } ends[] = {
        {1000, 40, FALSE, "40 0;"},                                // the first sample ends both intervals
        {2000, 10, FALSE, ""},       {0, 999999, FALSE, ""},       // no sample
        {3000, 999999, TRUE, ""},    {16000, 20, FALSE, "15 -1;"}, // the time-out counted for time-outs only
        {61000, 30, TRUE, "-1 50;"},
    };
    for (const auto &end : ends) {
        auto ctx = request();
        selectName(*ctx);
        finish(*ctx, end.curTime, end.serviceTime, end.timeout);
        EXPECT_EQ(checks(), end.expected) << end.curTime;
    }
    EXPECT_EQ(b.server->avgResponseTime, 15u);
    for (int i = 0; i < 2; i++) tsServerSetState(b.server, "STOPPED");
    EXPECT_EQ(checks(), "0 0;0 0;");
    tsLinkServerToHealthPolicy(b.server, policy, FALSE);
    EXPECT_EQ(tavListGetCount(b.server->healthPolicies), 0);
    hmHealthPolicyDelete(policy);
}
