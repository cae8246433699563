// Links, virtual clusters, endpoints, deletion while requests are under way.
#include <jansson.h>

#include "SelectorTest.h"

using Lines = std::vector<std::string>;

// ---- links ----

TEST_F(SelectorTest, AClusterKeepsEveryLinkAndCountsOnlyTheServersOwn) {
    Back &b = bareBack("a");
    Cluster *other = tsClusterCreate(ts, "/o");
    const struct {
        Cluster *cluster;
        Boolean add, expected;
        int inCluster, inOther, clusterCount, otherCount;
        Cluster *now;
    } steps[] = {
        {cluster, TRUE, TRUE, 1, 0, 2, 1, cluster}, {cluster, TRUE, TRUE, 2, 0, 2, 1, cluster}, // again: stands twice
        {other, TRUE, TRUE, 2, 1, 1, 2, other},                                                 // moved, but not out of the old list
        {cluster, FALSE, FALSE, 2, 1, 1, 2, other},                                             // no longer its cluster
        {other, FALSE, TRUE, 2, 0, 1, 1, nullptr},  {cluster, TRUE, TRUE, 3, 0, 2, 1, cluster}, {cluster, FALSE, TRUE, 2, 0, 1, 1, nullptr},
    };
    int i = 0;
    for (const auto &step : steps) {
        SCOPED_TRACE(i++);
        EXPECT_EQ(tsLinkClusterServer(step.cluster, b.server, step.add), step.expected);
        EXPECT_EQ(tavListGetCount(cluster->servers), step.inCluster);
        EXPECT_EQ(tavListGetCount(other->servers), step.inOther);
        EXPECT_EQ(cluster->refcnt, step.clusterCount);
        EXPECT_EQ(other->refcnt, step.otherCount);
        EXPECT_EQ(tsServerGetCluster(b.server), step.now);
    }
    tsServerDelete(b.server);
    EXPECT_EQ(tavListGetCount(cluster->servers), 0) << "a freed server leaves every place";
}

TEST_F(SelectorTest, ALinkWaitsUntilItsServerApplicationBecomesRoutable) {
    Back &b = bareBack("a");
    tsServerApplicationDelete(&b.handle);
    for (int i = 0; i < 2; i++) EXPECT_TRUE(tsLinkServerToWebModule(b.server, module, TRUE));
    TavServerApplication other{};
    tsServerApplicationCreate(b.server, "/a/b/shopping", connector, &other); // another name
    tsServerApplicationSetPropStr(&other, "state", "STARTED");
    tsServerApplicationCreate(b.server, b.path.c_str(), connector, &b.handle);
    EXPECT_EQ(tavListGetCount(vc->sappList), 0);
    b.state("AFFINITY");
    EXPECT_EQ(tavListGetCount(vc->sappList), 1) << "once, however often it was asked";
    EXPECT_EQ(tavListGetCount(b.server->linkRequests), 0);
    for (int i = 0; i < 2; i++) EXPECT_TRUE(tsLinkServerToWebModule(b.server, module, FALSE));
    EXPECT_EQ(tavListGetCount(vc->sappList), 0);
    tsServerApplicationDelete(&other);
}

TEST_F(SelectorTest, AVirtualClusterListsMembersOnceInOrderAndRestartsOnRemoval) {
    Back &a = back("a"), &b = back("b"), &c = back("c");
    tsLinkServerToWebModule(b.server, module, TRUE);
    EXPECT_EQ(tavListGetCount(vc->sappList), 3);
    EXPECT_EQ(selectNames(2), "ab");
    EXPECT_EQ(vc->loadBalanceIndex, 2);
    tsLinkServerToWebModule(a.server, module, FALSE);
    EXPECT_EQ(vc->loadBalanceIndex, 0);
    EXPECT_EQ(selectNames(2), "bc");
    ASSERT_EQ(vc->sappArray[2], nullptr);
    EXPECT_EQ(vc->sappArray[0], b.sapp);
    EXPECT_EQ(vc->sappArray[1], c.sapp);
}

TEST_F(SelectorTest, TheHeadOfTheClusterListIsTheVirtualClustersCluster) {
    Cluster *second = tsClusterCreate(ts, "/2");
    tsLinkVirtualClusterToCluster(vc, second, TRUE);
    tsLinkVirtualClusterToCluster(vc, second, TRUE);
    EXPECT_EQ(tavListGetCount(vc->clusterList), 2);
    EXPECT_EQ(vc->cluster, cluster);
    tsLinkVirtualClusterToCluster(vc, cluster, FALSE);
    EXPECT_EQ(vc->cluster, second);
    tsClusterDelete(second); // a deleted cluster leaves the virtual clusters at once
    EXPECT_EQ(vc->cluster, nullptr);
    EXPECT_EQ(tsVirtualClusterCreate(ts, module, moduleName), vc);
    tsVirtualClusterDelete(vc);
    EXPECT_EQ(tsFindVirtualCluster(ts, moduleName), nullptr);
}

// ---- endpoints ----

TEST_F(SelectorTest, OnlyHttpAndHttpsEndpointsAreAttached) {
    Back &b = bareBack("a");
    for (const std::string protocol : {"http", "https", "HTTP", "ftp"}) {
        TavTargetEndpoint *ep = tsEndPointCreate(b.server, protocol.c_str());
        tsEndPointSetPropStr(ep, "protocol", protocol.c_str());
        EXPECT_EQ(tsEndPointInit(ep), protocol[0] == 'h') << protocol;
        EXPECT_EQ(tavTargetEndpointGetProtocol(ep), protocol[0] == 'h' ? protocol : "invalidProtocol");
        tsEndPointSetPropStr(ep, "protocol", "ftp"); // the list that it stands in counts, not what the protocol became
        tsEndPointDelete(ep);
        EXPECT_EQ(tavListGetCount(b.server->endPoints[0]) + tavListGetCount(b.server->endPoints[1]), 0);
    }
    tsEndPointCreate(b.server, "never attached, never deleted");
}

TEST_F(SelectorTest, TheHostsObjectExistsWhileTheServerIsNotStopped) {
    Back &b = bareBack("a");
    TavTargetEndpoint *ep = endpoint(b.server, "tp", "http", "h", 1);
    EXPECT_EQ(tsEndPointGetEnvEndPoint(ep), nullptr);
    tsServerSetState(b.server, "STOPPING"); // leaves "STOPPED"
    EXPECT_NE(tsEndPointGetEnvEndPoint(ep), nullptr);
    tsServerSetState(b.server, "STARTED");
    tsEndPointSetPropStr(ep, "host", "h2");
    tsEndPointSetPropInt(ep, "port", 2);
    EXPECT_EQ(world.endpoints, (Lines{"create tp h:1", "delete tp", "create tp h2:1", "delete tp", "create tp h2:2"}));
    tsServerSetState(b.server, "STOPPED");
    EXPECT_EQ(tsEndPointGetEnvEndPoint(ep), nullptr);
    EXPECT_EQ(world.endpoints.back(), "delete tp");
    world.hostRefuses = true;
    tsServerSetState(b.server, "STARTED");
    EXPECT_EQ(tsEndPointGetEnvEndPoint(ep), nullptr);
    TavTargetEndpoint *late = tsEndPointCreate(b.server, "late");
    tsEndPointSetPropStr(late, "protocol", "http");
    EXPECT_FALSE(tsEndPointInit(late)) << "the host gave none";
    EXPECT_EQ(late->attachedIndex, 0);
}

TEST_F(SelectorTest, ARequestKeepsWhatItsEndpointGaveThroughEveryChange) {
    Back &b = back("a");
    for (const bool firstEndsFirst : {false, true}) {
        tsEndPointSetPropStr(b.http, "host", "one");
        auto first = request(), second = request();
        selectName(*first);
        const char *host = tavTargetEndpointGetHostName(b.http);
        EnvTargetEndpoint *object = tavTargetEndpointGetEnvTargetEndpoint(b.http);
        tsEndPointSetPropStr(b.http, "host", "two");
        EXPECT_NE(tavTargetEndpointGetEnvTargetEndpoint(b.http), object);
        EXPECT_EQ(world.endpointsAlive, 2) << "another name's holder would not see this one deleted";
        selectName(*second);
        const char *hostOfSecond = tavTargetEndpointGetHostName(b.http);
        tsEndPointSetPropStr(b.http, "host", "three");
        EXPECT_STREQ(host, "one");
        finish(firstEndsFirst ? *first : *second); // what the second saw, the first may still read
        EXPECT_EQ(world.endpointsAlive, firstEndsFirst ? 2 : 3);
        EXPECT_STREQ(hostOfSecond, "two");
        finish(firstEndsFirst ? *second : *first);
        EXPECT_EQ(world.endpointsAlive, 1);
    }
    auto last = request();
    selectName(*last);
    tsServerSetState(b.server, "STOPPED");
    EXPECT_NE(tavTargetEndpointGetEnvTargetEndpoint(b.http), nullptr);
    finish(*last);
    EXPECT_EQ(tavTargetEndpointGetEnvTargetEndpoint(b.http), nullptr);
}

// ---- deletion under way ----

TEST_F(SelectorTest, ARequestHoldsExactlyWhatItWasGiven) {
    Back &b = back("a");
    Cluster *other = tsClusterCreate(ts, "/o");
    auto ctx = request();
    selectName(*ctx);
    EXPECT_EQ(cluster->refcnt, 3); // configuration, server, request
    tsLinkClusterServer(other, b.server, TRUE);
    EXPECT_EQ(cluster->refcnt, 2);
    const char *name = tavTargetEndpointGetClusterName(ctx->targetEndpoint);
    tsLinkClusterServer(other, b.server, FALSE);
    tsClusterDelete(other);
    EXPECT_STREQ(name, "/o"); // a former cluster's name outlives the requests that may read it
    tsClusterDelete(cluster);
    tsNodeDelete(node); // takes its server along
    EXPECT_STREQ(tsNodeGetName(tsServerGetNode(b.server)), "/cell/c/node/n");
    EXPECT_EQ(selectName(), "-");
    finish(*ctx);
    EXPECT_TRUE(tavListIsEmpty(ts->nodes));
    EXPECT_TRUE(tavListIsEmpty(ts->clusters));
    EXPECT_EQ(ts->firstServer, nullptr);
    EXPECT_EQ(ts->formerClusters, nullptr);
}

TEST_F(SelectorTest, ADeletedEndpointIsNotChosenAndStaysForItsRequest) {
    Back &b = back("a");
    auto ctx = request();
    selectName(*ctx);
    tsEndPointDelete(b.http);
    EXPECT_EQ(selectName(), "-");
    endpoint(b.server, "tp-a", "http", "new", 2);
    EXPECT_EQ(tavListGetCount(b.server->endPoints[0]), 2);
    auto next = request();
    selectName(*next);
    EXPECT_STREQ(tavTargetEndpointGetHostName(next->targetEndpoint), "new");
    finish(*ctx);
    EXPECT_EQ(tavListGetCount(b.server->endPoints[0]), 1);
}

// ---- dump ----

TEST_F(SelectorTest, TheDumpHasFixedMembersAndToleratesAnyBytes) {
    Back &b = back("a", "bad\xff\xc3\xa9\xed\xa0\x80\xe0\xa0\x80");
    tsServerSetMaintenanceMode(b.server, AffinityMM);
    tsClusterCreate(ts, "k\x80");
    json_t *json = tsToJSON(ts);
    char *text = json_dumps(json, JSON_COMPACT);
    EXPECT_STREQ(text, R"({"/cell/c/cluster/k":{"servers":{"/cell/c/node/n/server/a":{"state":"STARTED","weight":1,)"
                       R"("maintenanceMode":"affinity","noLoadBalancing":"server is in affinity maintenance mode",)"
                       "\"cloneID\":\"bad?\xc3\xa9???\xe0\xa0\x80\","
                       R"("averageResponseTimeInMillis":0,"outstandingRequests":0,)"
                       R"("applications":{"shop":{"state":"STARTED","outstandingRequests":0}}}}},"k?":{"servers":{}}})");
    free(text);
    json_decref(json);
}
