// Selection: rejections, affinity, load balancing, back-off, endpoints by protocol and virtual host.
#include "SelectorTest.h"
#include "VHostMatcher/VHostMatcher.h"
#include "tavUtil/tavMemory.h"

// ---- rejections ----

TEST_F(SelectorTest, RequestsThatCannotBeSelectedForAreRejected) {
    const struct {
        const char *module;
        Text protocol;
        bool cluster;
        int code;
        const char *text;
    } rows[] = {
        {nullptr, "http", true, 500, "null module name"},
        {moduleName, std::nullopt, true, 500, "null protocol"},
        {moduleName, "HTTP", true, 500, "negative protocol index"},
        {"/other", "http", true, 404, "web module not found by selector"},
        {moduleName, "http", true, 503, "no server was found running web module"},
        {moduleName, "http", false, 500, "no cluster"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        tsLinkVirtualClusterToCluster(vc, cluster, row.cluster);
        auto ctx = request();
        tavHttpContextSetModuleName(ctx.get(), row.module);
        if (row.module != moduleName) ctx->moduleHint = nullptr;
        hosts.back().protocol = row.protocol;
        ctx->performedLoadBalancing = TRUE;
        EXPECT_EQ(tsSelect(ts, ctx.get()), nullptr);
        EXPECT_EQ(ctx->errorCode, row.code);
        EXPECT_STREQ(ctx->errorMsg, row.text);
        EXPECT_FALSE(ctx->performedLoadBalancing);
        EXPECT_EQ(ctx->targetInfo.sapp, nullptr);
    }
    EXPECT_EQ(tsSelect(nullptr, nullptr), nullptr);
}

TEST_F(SelectorTest, AModulesHintIsFollowedOnlyWhileItHolds) {
    Back &b = back("a");
    EXPECT_EQ(selectName(), "a");
    EXPECT_EQ(module->hint.virtualCluster, vc);
    tsVirtualClusterDelete(vc);
    auto ctx = request();
    EXPECT_EQ(selectName(*ctx), "-");
    EXPECT_EQ(ctx->errorCode, 404);
    vc = tsVirtualClusterCreate(ts, module, moduleName);
    tsLinkVirtualClusterToCluster(vc, cluster, TRUE);
    EXPECT_EQ(selectName(), "-") << "nothing is linked to the new one";
    tsLinkServerToWebModule(b.server, module, TRUE);
    EXPECT_EQ(selectName(), "a");
}

TEST_F(SelectorTest, AnUnavailableModuleIsLoggedWithItsCluster) {
    Back &b = back("a");
    b.state("STOPPED");
    traceOn(":NOTICE,http.response.error.503:DEBUG");
    auto ctx = request();
    ctx->responseTimeouts = 1;
    EXPECT_EQ(selectName(*ctx), "-");
    EXPECT_EQ(ctx->errorCode, 504);
    EXPECT_STREQ(ctx->errorMsg, "response timed out");
    EXPECT_TRUE(
        traced(std::string("504 response for module '") + moduleName + "':\n{\n   \"servers\": {\n      \"/cell/c/node/n/server/a\": {"));
    EXPECT_TRUE(traced("\"state\": \"STOPPED\"\n"));
    EXPECT_EQ(cluster->refcnt, 2);
    tsLinkServerToWebModule(b.server, module, FALSE);
    ctx = request();
    selectName(*ctx);
    EXPECT_TRUE(traced(std::string("503 error: no servers are running web module '") + moduleName + "; Error Status Code=503'\n"));
}

// ---- affinity ----

TEST_F(SelectorTest, SessionIdsAreResolvedPieceByPiece) {
    Back &one = back("one", "c1"), &two = back("two", "c2");
    back("deaf", "c3").state("QUIESCED");
    tsServerSetWeight(one.server, 0); // keeps its sessions, gets no new ones
    tsServerSetWeight(two.server, 0);
    const struct {
        const char *cookie, *path, *expected; // "-": balanced, and nothing is left for that
        const char *broken = nullptr;         // why
    } rows[] = {
        {nullptr, "/", "-"},
        {"s:c1", "/", "one"},
        {"s:c1:c2", "/", "one"},
        {"s:gone:c2", "/", "two"},
        {"s::c2", "/", "two"},                                                    // an empty piece is a clone id of no one
        {"c1", "/", "-", "getCloneIds: no cloneIds found in the session cookie"}, // the session proper is no clone id
        {"", "/", "-", "getCloneIds: no cloneIds found in the session cookie"},
        {"s:c3", "/", "-", "Server application for cloneId 'c3' is not selectable because in QUIESCE state"},
        {"s:C1:c4", "/", "-", "Server was not found for cloneId 'C1'\nServer was not found for cloneId 'c4'"},
        {"s:gone", "/a;jsessionid=s:c2", "two"}, // the path comes after the cookies
        {nullptr, "/a;JSESSIONID=s:c2", "two"},
        {nullptr, "/a;jsessionid=s:c2?x=1", "-", "Server was not found for cloneId 'c2?x=1'"}, // to the end of the path
        {nullptr, "/a;jsessionid=", "-"},
        {nullptr, nullptr, "-"},
    };
    for (const bool isTraced : {false, true}) {
        traceOn(isTraced ? ":DEBUG" : ":NOTICE");
        for (const auto &row : rows) {
            SCOPED_TRACE(std::string(tavOrNull(row.cookie)) + " " + tavOrNull(row.path));
            auto ctx = request(row.cookie);
            hosts.back().path = textOf(row.path);
            tavListAddTail(ctx->failedServerApps, one.sapp); // affinity does not look at failures
            EXPECT_EQ(selectName(*ctx), row.expected);
            EXPECT_EQ(brokeAffinity(ctx), row.broken != nullptr);
            EXPECT_STREQ(tavHttpContextGetAffinityBreakReason(ctx.get()), row.broken);
            EXPECT_FALSE(ctx->performedLoadBalancing);
        }
        auto ctx = request(("s:" + std::string(500, 'x') + ":c2").c_str());
        EXPECT_EQ(selectName(*ctx), "two");
        std::string gone = "s"; // a client decides how much there is to tell, not how much is kept
        for (int i = 0; i < 1000; i++) gone += ":" + std::to_string(i);
        ctx = request(gone.c_str());
        EXPECT_EQ(selectName(*ctx), "-");
        EXPECT_EQ(std::string(tavOrNull(tavHttpContextGetAffinityBreakReason(ctx.get()))).size(), TS_BREAK_REASON_SIZE - 1);
    }
}

TEST_F(SelectorTest, ARememberedSessionServerIsNotUsedLongerThanItIsRight) {
    const auto kept = [&](const std::string &cloneId) {
        auto ctx = request(("s:" + cloneId).c_str());
        const std::string name = selectName(*ctx);
        finish(*ctx);
        return ctx->performedLoadBalancing ? "balanced" : name;
    };
    const auto name = [](int i) { return "n" + std::to_string(i); };
    constexpr int count = 150; // the table grows twice
    for (int i = 0; i < count; i++) back(name(i).c_str(), name(i).c_str());
    for (int round = 0; round < 2; round++) {
        for (int i = 0; i < count; i++) ASSERT_EQ(kept(name(i)), name(i));
    }
    tsServerSetState(backs.front().server, "STOPPED"); // not forgotten, but looked at each time
    EXPECT_EQ(kept("n0"), "balanced");
    tsServerSetState(backs.front().server, "STARTED");
    EXPECT_EQ(kept("n0"), "n0");
    Back &second = *std::next(backs.begin()), &third = *std::next(backs.begin(), 2);
    tsServerApplicationDelete(&second.handle);
    EXPECT_EQ(kept("n1"), "balanced");
    tsServerApplicationCreate(second.server, second.path.c_str(), connector, &second.handle);
    second.state("STARTED");
    EXPECT_EQ(kept("n1"), "n1");
    back("heir", "n2"); // the later of two servers with one clone id has it
    EXPECT_EQ(kept("n2"), "heir");
    tsServerDelete(third.server);
    EXPECT_EQ(kept("n2"), "heir");
    tsServerDelete(backs.back().server);
    EXPECT_EQ(kept("n2"), "balanced");
}

TEST_F(SelectorTest, PartitionIdsStandForCloneIds) {
    back("a", "c1");
    back("b", "c2");
    TavHashMap *map = tavHashMapCreate2(tavFree);
    tavHashPut(map, "p9", tavStrdup("c2"));
    tavHashPut(map, "c1", tavStrdup("c2"));
    tavSetPartitionData(tav, "/cell/c/cluster/k", tsPartitionIDDataCreate(map, "1"));
    tavSetPartitionData(tav, "/other", tsDefaultPartitionIDData());
    for (const char *id : {"s:p9", "s:c1", "s:c2"}) {
        auto ctx = request(id);
        EXPECT_EQ(selectName(*ctx), "b") << id;
    }
}

TEST_F(SelectorTest, AFullServerBreaksAffinityAndIsNotBalancedTo) {
    Back &a = back("a", "c1");
    back("b", "c2");
    std::vector<RequestPtr> open;
    traceOn(":NOTICE,http.request.select.affinity.break:DEBUG");
    for (const auto &[max, expected] : {std::pair(2, "a"), {2, "a"}, {2, "b"}, {-1, "a"}, {0, "b"}}) {
        tsServerSetPropInt(a.server, "maxConnections", max);
        open.push_back(request("s:c1"));
        EXPECT_EQ(selectName(*open.back()), expected);
        EXPECT_EQ(brokeAffinity(open.back()), *expected == 'b');
        const std::string reason = tavOrNull(tavHttpContextGetAffinityBreakReason(open.back().get()));
        EXPECT_EQ(reason.starts_with("number of outstanding requests '"), *expected == 'b');
        EXPECT_EQ(open.back()->performedLoadBalancing, *expected == 'b');
    }
    EXPECT_TRUE(traced("number of outstanding requests '2' exceeded maximum connections '2' for the server /cell/c/node/n/server/a"));
    for (auto &ctx : open) finish(*ctx);
    EXPECT_EQ(a.server->outstandingRequestCount, 0);
}

// ---- the policy ----

static std::string names(const HttpAffinityPolicy *policy) {
    std::string text;
    for (const char *const *name = hapGetCookieNames(policy); name && *name; name++) text += std::string("[") + *name + "]";
    return text + hapGetDelimiter(policy) + (hapGetLearnServerIDs(policy) ? "+learn" : "");
}

TEST_F(SelectorTest, CookieNamesComeFromTheFirstSourceThatHasThem) {
    Back &a = bareBack("a"), &b = bareBack("b");
    tsLinkClusterServer(cluster, a.server, TRUE);
    tsLinkClusterServer(cluster, b.server, TRUE);
    tsServerSetSessionAffinityCookies(b.server, "OFSECOND"); // never asked
    const auto policy = [&] {
        wmSetHttpAffinityPolicy(module, nullptr);
        tsVirtualClusterCreate(ts, module, moduleName);
        return names(tsVirtualClusterGetAffinityPolicy(vc));
    };
    EXPECT_EQ(policy(), "[ZVJSESSIONID][JSESSIONID]:");
    tsClusterSetSessionAffinityCookies(cluster, "K,L");
    EXPECT_EQ(policy(), "[K][L]:");
    tsServerSetSessionAffinityCookies(a.server, "JSESSIONID"); // of a server it does not count
    EXPECT_EQ(policy(), "[K][L]:");
    tsServerSetSessionAffinityCookies(a.server, "S,");
    EXPECT_EQ(policy(), "[S]:");
    rmApplicationSetSessionAffinityCookies(application, "JSESSIONID"); // of an application it does
    EXPECT_EQ(policy(), "[JSESSIONID]:");
    rmWebModuleSetPropStr(module, "sessionAffinityCookies", "W,,X");
    EXPECT_EQ(policy(), "[W][][X]:");
    tsClusterSetCloneIdSeparator(cluster, "!!");
    tsClusterSetLearnServerIds(cluster, TRUE);
    EXPECT_EQ(policy(), "[W][][X]!!+learn");
    tsServerSetCloneSeparatorChange(b.server, TRUE);
    EXPECT_EQ(policy(), "[W][][X]!!+learn") << "only for application servers";
    tsClusterSetServerType(cluster, TAVSERVERTYPE_APPLICATION_SERVER);
    EXPECT_EQ(policy(), "[W][][X]++learn");
    const HttpAffinityPolicy *kept = tsVirtualClusterGetAffinityPolicy(vc);
    tsClusterSetLearnServerIds(cluster, FALSE);
    EXPECT_EQ(tsVirtualClusterGetAffinityPolicy(vc), kept) << "computed once";
    wmSetHttpAffinityPolicy(module, nullptr);
    EXPECT_EQ(names(tsVirtualClusterGetAffinityPolicy(vc)), "[W][][X]+") << "its module lost the policy";
}

TEST_F(SelectorTest, TheDefaultPolicyComesFromTheLibrarysProperties) {
    tsLinkVirtualClusterToCluster(vc, cluster, FALSE);
    const auto policy = [&](const char *property, const char *value) {
        set(property, value);
        wmSetHttpAffinityPolicy(module, nullptr);
        tsVirtualClusterCreate(ts, module, moduleName);
        return names(tsVirtualClusterGetAffinityPolicy(vc));
    };
    EXPECT_EQ(policy("other", ""), "[JSESSIONID][SSLJSESSIONIDZVJSESSIONID]:");
    EXPECT_EQ(policy("QuorvexSessionCookieName", "Q"), "[JSESSIONID][SSLJSESSIONIDQ]:");
    EXPECT_EQ(policy("HttpSessionCookies", "A,B"), "[A][B]:");
    EXPECT_EQ(policy("HttpSessionAffinityPolicyDescriptor", "D;~;true"), "[D]~+learn");
}

TEST_F(SelectorTest, OddPoliciesNeitherHangNorMatchEverything) {
    back("a", "c1");
    tsClusterSetSessionAffinityCookies(cluster, ",JSESSIONID"); // the host is never asked for a cookie without a name
    for (const char *separator : {"", ":"}) {
        tsClusterSetCloneIdSeparator(cluster, separator);
        wmSetHttpAffinityPolicy(module, nullptr);
        auto ctx = request("s:c1");
        EXPECT_EQ(selectName(*ctx), "a");
        EXPECT_EQ(ctx->performedLoadBalancing, !*separator);
        EXPECT_NE(ctx->policy, nullptr);
    }
}

// ---- load balancing ----

TEST_F(SelectorTest, TheSmallestShareOfOutstandingRequestsWins) {
    const struct {
        int weights[3], outstanding[3], cursor;
        const char *expected;
        int cursorAfter;
    } rows[] = {
        {{2, 1, 1}, {2, 1, 5}, 0, "a", 0},                  // equal: the earlier in walk order
        {{2, 1, 1}, {2, 1, 5}, 1, "b", 1},                  // from the cursor on
        {{2, 1, 1}, {2, 1, 5}, 3, "a", 0},                  // a cursor past the end
        {{1, 1, 1}, {1, 1, 0}, 0, "c", 3},                  // idle: at once, and the cursor moves
        {{1, 1, 0}, {5, 4, 0}, 0, "b", 0},                  // no weight, not looked at
        {{65536, 1, 1}, {32768, 65535, 70000}, 0, "b", 0},  // 65535 * 65536 wraps to -65536
        {{65536, 1, 1}, {1, 65536, 2147483647}, 0, "b", 0}, // 65536 * 65536 wraps to 0
    };
    Back *all[] = {&back("a"), &back("b"), &back("c")};
    int i = 0;
    for (const auto &row : rows) {
        SCOPED_TRACE(i++);
        for (int k = 0; k < 3; k++) {
            tsServerSetWeight(all[k]->server, row.weights[k]);
            all[k]->server->maxConnections = -1;
            all[k]->server->outstandingRequestCount = row.outstanding[k];
        }
        vc->loadBalanceIndex = row.cursor;
        EXPECT_EQ(selectName(), row.expected);
        EXPECT_EQ(vc->loadBalanceIndex, row.cursorAfter);
    }
    for (Back *b : all) b->server->outstandingRequestCount = 0;
}

TEST_F(SelectorTest, EverySkippedServerIsToldWithItsReason) {
    Back &stopped = back("stopped"), &weightless = back("weightless"), &failing = back("failing"), &failed = back("failed"),
         &full = back("full"), &portless = back("portless"), &clusterless = back("clusterless");
    back("good");
    stopped.state("STOPPED");
    tsServerSetWeight(weightless.server, 0);
    tsServerConnectFailure(failing.server);
    tsServerSetPropInt(full.server, "maxConnections", 0);
    tsEndPointSetPropInt(portless.http, "port", -1);
    tsLinkClusterServer(cluster, clusterless.server, FALSE);
    traceOn(":NOTICE,http.request.select.balance:DEBUG");
    auto ctx = request();
    tavListAddTail(ctx->failedServerApps, failed.sapp);
    EXPECT_EQ(selectName(*ctx), "good");
    EXPECT_TRUE(traced("wlor: finished - shop, /cell/c/node/n/server/good\n"));
    std::vector<std::string> reasons;
    for (const std::string &line : takeLines()) {
        const size_t at = line.find(", reason=");
        if (at != std::string::npos) reasons.push_back(line.substr(at + 9));
    }
    EXPECT_EQ(reasons,
              (std::vector<std::string>{
                  "not STARTED\n", "server weight is 0\n", "connect failure\n", "previously failed to route this request to this server\n",
                  "number of outstanding requests '0' exceeded maximum connections '0' for the server /cell/c/node/n/server/full\n",
                  "transport is not valid\n", "no cluster associated with the server\n"}));
}

TEST_F(SelectorTest, ConnectFailuresBackOffTenfoldUpToAMinute) {
    Back &a = back("a", "c1");
    for (const TavTime start : {TavTime{1000000}, static_cast<TavTime>(-30), TavTime{0x80000000u - 10}}) {
        SCOPED_TRACE(start);
        fakeNow = start;
        tsServerConnectSuccess(a.server);
        for (const TavTime wait : {50u, 500u, 5000u, 50000u, 60000u, 60000u}) {
            tsServerConnectFailure(a.server);
            fakeNow += wait - 1;
            EXPECT_EQ(selectName(), "-") << wait;
            auto sticky = request("s:c1");
            EXPECT_EQ(selectName(*sticky), "-");
            fakeNow += 2; // one more: a time of 0 is never stored
            EXPECT_EQ(selectName(), "a") << wait;
        }
        tsServerConnectFailure(a.server);
        tsServerSetState(a.server, "STOPPED");
        tsServerSetState(a.server, "STARTED"); // a start forgets it
        EXPECT_EQ(selectName(), "a");
    }
}

TEST_F(SelectorTest, ARetryGivesUpTheEarlierTarget) {
    Back &a = back("a"), &b = back("b");
    auto ctx = request();
    EXPECT_EQ(selectName(*ctx), "a");
    EXPECT_EQ(a.server->refcnt, 2);
    tsServerApplicationDecrementOutstandingRequestCount(ctx.get(), a.sapp, 0, 0, FALSE);
    tavListAddTail(ctx->failedServerApps, a.sapp);
    EXPECT_EQ(selectName(*ctx), "b");
    EXPECT_EQ(a.server->refcnt, 1);
    EXPECT_EQ(b.server->refcnt, 2);
    EXPECT_EQ(ctx->targetServerApplication, b.sapp);
    finish(*ctx);
    tsTargetInfoDecrementRefCnt(ctx.get()); // nothing left to let go
    EXPECT_EQ(b.server->refcnt, 1);
}

// ---- endpoints ----

TEST_F(SelectorTest, TheFirstLevelWithAMapModeChoosesTheProtocol) {
    Back &b = back("a");
    endpoint(b.server, "tps", "https", "secure", 9443);
    const struct {
        TavSSLMapMode request, ofInstance;
        const char *module, *protocol, *expected;
    } rows[] = {
        {NullMapMode, NullMapMode, nullptr, "http", "http"},
        {NullMapMode, NullMapMode, nullptr, "https", "https"},
        {NullMapMode, NullMapMode, "http", "https", "http"},
        {NullMapMode, NullMapMode, "https", "http", "https"},
        {NullMapMode, MapInboundToOutbound, "http", "https", "https"},
        {NullMapMode, SSLOnLoad, "http", "http", "https"},
        {SSLOffLoad, SSLOnLoad, "https", "https", "http"},
        {MapInboundToOutbound, SSLOnLoad, "https", "http", "http"},
    };
    int i = 0;
    for (const auto &row : rows) {
        SCOPED_TRACE(i++);
        auto ctx = request();
        hosts.back().protocol = row.protocol;
        ctx->sslMapMode = row.request;
        tav->sslMapMode = row.ofInstance;
        rmWebModuleSetPropStr(module, "protocolMap", row.module);
        EXPECT_STREQ(tavTargetEndpointGetProtocol(tsSelect(ts, ctx.get())), row.expected);
    }
    tsEndPointDelete(b.http);
    auto ctx = request();
    ctx->sslMapMode = SSLOffLoad;
    EXPECT_STREQ(tavTargetEndpointGetProtocol(tsSelect(ts, ctx.get())), "https") << "the other protocol's when there is none";
}

TEST_F(SelectorTest, TheMatchedVirtualHostGroupMayChooseTheEndpoint) {
    Back &b = back("a");
    endpoint(b.server, "tp2", "http", "second", 81);
    TavTargetEndpoint *third = endpoint(b.server, "tp3", "http", "third", 82);
    VHostMatcher *group = createVHostMatcher(ri, "group");
    putVHost(group, "third", 82);
    ASSERT_TRUE(rmAddVHostMatcher(rm, group));
    const struct {
        bool on;
        const char *group, *expected;
    } rows[] = {{false, "group", "a.example"}, {true, "group", "third"}, {true, "unknown", "a.example"}, {true, nullptr, "a.example"}};
    for (const auto &row : rows) {
        tav->selectEndpointByVHost = row.on;
        auto ctx = request();
        tavHttpContextSetMatchedVHostName(ctx.get(), row.group);
        TavTargetEndpoint *selected = tsSelect(ts, ctx.get());
        EXPECT_STREQ(tavTargetEndpointGetHostName(selected), row.expected);
        if (selected != third) continue;
        tsEndPointDelete(third);
        auto later = request();
        tavHttpContextSetMatchedVHostName(later.get(), row.group);
        EXPECT_STREQ(tavTargetEndpointGetHostName(tsSelect(ts, later.get())), "a.example") << "the chosen one is deleted";
    }
}
