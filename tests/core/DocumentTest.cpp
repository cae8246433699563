// Complete documents and deltas: what reaches the snapshot, what is refused, and that a delta leaves the same as a rebuild.
#include <gmock/gmock.h>

#include "core/CoreFixture.h"
#include "system/Shop.h"
#include "tav/tavControl.h"
#include "tavDocument/tavStoredDocument.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavURLMatcher/tavURLMatcher.h"
#include "tavUtil/tavMemory.h"

using shop::entry;
using shop::objects;
using shop::pair;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// A cell with two nodes, two servers, one cluster, one application with a module, one virtual-host group.
const std::string kSite = shop::contentOf("tests/core/site.json");

std::string delta(int version, const std::string &operations) { return shop::delta(1, version, operations); }

const std::string N1 = "/cell/c/node/n1", S1 = N1 + "/server/s1", T1 = S1 + "/transport/t1", N2 = "/cell/c/node/n2", S2 = N2 + "/server/s2";
const std::string K = "/cell/c/cluster/k", SLOW = "/cell/c/healthPolicy/slow", V = "/cell/c/vHostGroup/v";
const std::string APP = "/cell/c/application/app", W = APP + "/webModule/w";

class Document : public CoreFixture {
protected:
    void SetUp() override {
        CoreFixture::SetUp();
        ASSERT_EQ(give(kSite), 5);
    }
    // The next delta; taken.
    void take(const std::string &operations) {
        version++;
        ASSERT_EQ(give(delta(version, operations)), version);
    }
    Object *object(const std::string &name) { return tavRoutingInfoObjectGet(tav->routingInfo, name.c_str()); }
    TargetServer *server(const std::string &name) { return static_cast<TargetServer *>(object(name)); }
    // Builds the snapshot again from the stored document.
    void rebuild() {
        TavControlScope control("test");
        tavResetRoutingInfo(tav);
    }
    // The snapshot in use is the one that a rebuild would give.
    void expectSameAsRebuild() {
        const std::string live = dump();
        rebuild();
        EXPECT_EQ(dump(), live);
    }
    // "path kind text" of each finding of a delta.
    std::vector<std::string> findingsOf(int deltaVersion, const std::string &operations) {
        std::vector<std::string> findings;
        const DocumentObserver observer{
            [](void *passback, const char *path, const char *kind, const char *text) {
                static_cast<std::vector<std::string> *>(passback)->push_back(std::string(path) + " " + kind + " " + text);
            },
            &findings};
        EXPECT_EQ(tavHandleJsonObserved(delta(deltaVersion, operations).c_str(), connector, &observer), deltaVersion);
        return findings;
    }

    int version = 5;
};

TEST_F(Document, VersionMembers) {
    EXPECT_EQ(give(R"({"restVersion": -3})"), 0) << "no version";
    EXPECT_EQ(connector->restVersion, -3);
    EXPECT_EQ(give(R"({"version": "7"})"), 0) << "not an integer";
    EXPECT_EQ(connector->restVersion, -1);
    ASSERT_EQ(give(kSite), 5);
    EXPECT_EQ(give(R"({"version": 1, "version": 8589934592, "delta": 1})"), 8589934592)
        << "only a true delta is one; the last of a name counts";
    EXPECT_EQ(object(S1), nullptr);
    EXPECT_EQ(connector->vid, 8589934592);
    EXPECT_EQ(tavGetConfigVersion(tav), 8589934592);
    EXPECT_EQ(give("{'"), -1);
    EXPECT_EQ(tavGetConfigVersion(tav), 8589934592);
}

TEST_F(Document, ItsOwnSetIsWorkedIn) {
    std::string text = kSite;
    text.insert(text.rfind('}'), quoted(", " + objects("del", entry("/cell/c/cluster/none", "cluster")) + ", " +
                                        objects("set", entry(S1, "server", "'weight': 9"))));
    ASSERT_EQ(give(text), 5);
    EXPECT_EQ(server(S1)->weight, 9);
    take(objects("set", entry(S1, "server", "'weight': 4")));
    expectSameAsRebuild();
    EXPECT_EQ(server(S1)->weight, 4) << "a later delta is not overridden";
}

// ---- what the walk refuses ----

TEST_F(Document, RefusalsAreToldAndChangeNothing) {
    const struct {
        std::string operations, line, path;
    } rows[] = {
        {"'add': {'objects': [{'name': '/cell/d'}]}", "object with no type", "/add/objects/0"},
        {objects("add", entry("node/x", "node")), "object of type node: node/x is not a full name", "/add/objects/0"},
        {objects("add", entry(N1, "node")), "deltaObjects failure: not added because object already found: /cell/c/node/n1",
         "/add/objects/0"},
        {objects("add", "[" + entry("/x", "server") + "]"), "no parent name for /x", "/add/objects/0/0"},
        {objects("add", entry("/server/x", "server")), "parent for /server/x was not found", "/add/objects/0"},
        {objects("add", entry(N1 + "/transport/t", "transport")), "parent for /cell/c/node/n1/transport/t was not found", "/add/objects/0"},
        {objects("set", entry("/cell/c/node/n9", "node", "'x': 1")),
         "set operation but object of type 'node' at '/cell/c/node/n9' was not found", "/set/objects/0"},
        {objects("set", entry(K, "server", "'weight': 7")),
         "deltaObjects failure: object not found; failed to set property 'weight' to '7' on '/cell/c/cluster/k'", "/set/objects/0"},
        {objects("del", entry("/cell/c/node/n9", "node")), "deltaObjects failure: delete failed because '/cell/c/node/n9' was not found",
         "/del/objects/0"},
        {objects("add", "1, 'x'"), "deltaObjects: skip array element with no name under null", "/add/objects/0"},
        {"'add': {'relationships': {'a~/b': []}}", "no colon found in relationship a~/b", "/add/relationships/a~0~1b"},
        {"'add': {'relationships': {'cluster:server': [{'cluster': 3, 'server': 4}]}}",
         "deltaRel: 'cluster:server' relationship has no 'cluster' string value", "/add/relationships/cluster:server/0"},
        {pair("add", "cluster:server", S1, S1), "skip relationship cluster:server; object /cell/c/node/n1/server/s1 not found",
         "/add/relationships/cluster:server/0"},
        {pair("add", "server:healthPolicy", S1, SLOW),
         "deltaRel: add failure: reason='already exists', type='server:healthPolicy', name1='" + S1 + "', name2='" + SLOW + "'",
         "/add/relationships/server:healthPolicy/0"},
        {pair("del", "server:healthPolicy", S2, SLOW),
         "deltaRel: del failure: reason='delete', type='server:healthPolicy', name1='" + S2 + "', name2='" + SLOW + "'",
         "/del/relationships/server:healthPolicy/0"},
        {pair("set", "cluster:server", K, S1), "unexpected set operation in cluster:server relationship",
         "/set/relationships/cluster:server/0"},
    };
    const std::string before = dump(), stored = storedText();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        traceOn();
        const std::vector<std::string> findings = findingsOf(5, row.operations);
        EXPECT_THAT(takeTrace(), HasSubstr(row.line + "\n"));
        EXPECT_EQ(dump(), before);
        EXPECT_EQ(storedText(), stored);
        ASSERT_FALSE(findings.empty());
        EXPECT_THAT(findings[0], StartsWith(row.path + " "));
        EXPECT_EQ(std::count(findings.begin(), findings.end(), findings[0]), 1);
    }
}

TEST_F(Document, NestingIsBounded) {
    std::string open, close;
    for (int i = 0; i < 70; i++) {
        open += "{'name': '/cell/d" + std::to_string(i) + "', 'type': 'cell', 'objects': [";
        close += "]}";
    }
    traceOn();
    take(objects("add", open + close));
    EXPECT_THAT(takeTrace(), HasSubstr("skip objects under /cell/d63; nesting deeper than 64"));
    EXPECT_TRUE(object("/cell/d63") && !object("/cell/d64"));
}

// ---- properties ----

TEST_F(Document, PropertiesByJsonType) {
    traceOn();
    take(objects("set", entry(S1, "server",
                              "'weight': 99999999999, 'maxConnections': -99999999999, 'waitForContinue': true, 'connectTimeout': '7', "
                              "'ioTimeout': 1.5, 'unknown': 1, 'flag': false, 'gone': null") +
                            ", " + entry(N1, "node", "'number': 1, 'flag': true, 'none': null, 'list': []") + ", {'name': '" + N2 +
                            "', 'type': 'node', 'props': []}"));
    const std::string trace = takeTrace();
    TargetServer *s1 = server(S1);
    EXPECT_EQ(s1->weight, 2147483647);
    EXPECT_EQ(s1->maxConnections, -2147483647 - 1);
    EXPECT_EQ(s1->connectTimeout, 5) << "text is no number";
    EXPECT_TRUE(s1->waitForContinue);
    for (const char *line : {
             "failed to set string property connectTimeout on object /cell/c/node/n1/server/s1\n",
             "failed to set integer property unknown on object /cell/c/node/n1/server/s1\n",
             "failed to set tav_boolean property flag on object /cell/c/node/n1/server/s1\n",
             "unknown type for property ioTimeout on object /cell/c/node/n1/server/s1\n",
             "skip set property number on object /cell/c/node/n1; null integer property handler for object type node\n",
             "skip set property flag on object /cell/c/node/n1; null tav_boolean property handler for object type node\n",
             "skip set property none on object /cell/c/node/n1; null property handler for object type node\n",
             "unknown type for property list on object /cell/c/node/n1\n",
             "no props for /cell/c/node/n2 on set operation\n",
         })
        EXPECT_THAT(trace, HasSubstr(line));
}

TEST_F(Document, CellAndOwnServerSetTheInstance) {
    tavSetServerName(tav, "c_n1_s1");
    traceOn();
    take(objects("set", entry("/cell/c", "cell", "'cp.MaxRequestsPerDaemon': '4', 'other': 'x'")));
    EXPECT_EQ(tav->maxRequestsPerDaemon, 4);
    EXPECT_THAT(takeTrace(), HasSubstr("tavCellSetPropStr: other is not a supported custom property, ignoring it..."));
    take(objects("set", entry(S1, "server", "'cp.sf.maxrequestsperdaemon': '9', 'cp.sf.unknown': '1'")));
    EXPECT_EQ(tav->maxRequestsPerDaemon, 9);
    take(objects("set", entry("/cell/c", "cell", "'cp.MaxRequestsPerDaemon': '6'")));
    EXPECT_EQ(tav->maxRequestsPerDaemon, 9) << "the server's value takes precedence";
    EXPECT_THAT(takeTrace(), HasSubstr("tavSetProperty name='MaxRequestsPerDaemon', value='6'\n"));
    take(objects("set", entry(S1, "server", "'cp.sf.MaxRequestsPerDaemon': null")));
    EXPECT_EQ(tav->maxRequestsPerDaemon, 6) << "the cell's value is back";
    take(objects("set", entry("/cell/c", "cell", "'cp.MaxHttpContextPoolSize': null")));
    EXPECT_EQ(tav->maxHttpContextPoolSize, -1);
}

// ---- uris ----

TEST_F(CoreFixture, UriNamesGivePatterns) {
    const std::string module = "/cell/c/application/a/webModule/w";
    const struct {
        const char *restVersion, *uri, *patterns;
    } rows[] = {
        {"", "//x/uri/*", "* /x/uri/* "}, // a module of an old controller also serves "*"
        {", 'restVersion': -2", "/*.jsp", "* *.jsp "},
        {", 'restVersion': 0", "/\\\\/x\\\\/*", "/x/* "},
        {", 'restVersion': 0", "//x/*", ""}, // unescaped under the new rule
    };
    for (const auto &row : rows) {
        ASSERT_EQ(give(quoted(std::string("{'version': 1") + row.restVersion +
                              ", 'add': {'objects': [{'name': '/cell/c/application/a', 'type': 'application', 'objects': [{'name': '" +
                              module + "', 'type': 'webModule'}, {'name': '" + module + "/uri" + row.uri + "', 'type': 'uri'}]}]}}")),
                  1);
        std::string patterns;
        for (const char *uri :
             TavListRange<const char>(static_cast<WebModule *>(tavRoutingInfoObjectGet(tav->routingInfo, module.c_str()))->uris))
            patterns += std::string(uri) + " ";
        EXPECT_EQ(patterns, row.patterns) << row.uri;
    }
}

// ---- deltas in place ----

TEST_F(Document, DeltaInPlaceKeepsTheSnapshot) {
    const TavRoutingInfo *before = tav->routingInfo;
    take(
        "'add': {'objects': [{'name': '/cell/c', 'type': 'cell', 'objects': [{'name': '/cell/c/node/n1', 'type': 'node', 'objects': ["
        "{'name': '/cell/c/node/n1/server/s3', 'type': 'server', 'props': {'weight': 3}, 'objects': [" +
        entry(N1 + "/server/s3/transport/t", "transport", "'protocol': 'https', 'port': 1") +
        "]}]}]}], 'relationships': {'cluster:server': [{'cluster': '/cell/c/cluster/k', 'server': '/cell/c/node/n1/server/s3'}]}}");
    EXPECT_EQ(tav->routingInfo, before);
    ASSERT_NE(server(N1 + "/server/s3"), nullptr) << "the path down to it is refused entry by entry";
    EXPECT_EQ(tavListGetCount(server(N1 + "/server/s3")->endPoints[1]), 1);
    EXPECT_EQ(connector->vid, 6);
    EXPECT_THAT(storedText(), HasSubstr("\"version\": 6"));
    expectSameAsRebuild();
}

TEST_F(Document, ResetTypesBuildAnew) {
    const struct {
        const char *name;
        std::string operations;
        bool rebuilds;
    } rows[] = {
        {"property", objects("set", entry(S1, "server", "'weight': 1")), false},
        {"application", objects("set", entry(APP, "application", "'state': 'x'")), true},
        {"refused module", objects("add", entry(W, "webModule")), true},
        {"pair added", "'add': {'relationships': {'vHostGroup:webModule': []}}", false},
        {"pair of an unknown kind", pair("del", "VHostGroup:webModule", V, W), false},
        {"pair deleted", pair("del", "vHostGroup:webModule", V, W), true},
        {"server pair deleted", pair("del", "server:webModule", S1, W), false},
        {"cell", objects("del", entry("/cell/c", "cell")), true}, // its nodes and applications go with it
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        TavRoutingInfo *before = tavRoutingInfoObtain(tav);
        take(row.operations);
        EXPECT_EQ(tav->routingInfo != before, row.rebuilds);
        EXPECT_EQ(tavGetConfigVersion(tav), version);
        EXPECT_EQ(tavRoutingInfoGetVersion(before), row.rebuilds ? version - 1 : version) << "requests that hold it have not seen more";
        tavRoutingInfoRelease(before);
        expectSameAsRebuild();
    }
    EXPECT_EQ(object(S1), nullptr);
}

TEST_F(Document, DeleteActsOnLeavesAndTakesChildrenAlong) {
    take(
        "'del': {'relationships': {'cluster:server': [{'cluster': '/cell/c/cluster/k', 'server': '/cell/c/node/n2/server/s2'}]},"
        "'objects': [{'name': '/cell/c/node/n1', 'type': 'node', 'objects': ["
        "{'name': '/cell/c/node/n1/server/s1', 'type': 'server', 'objects': []}]}, {'name': '/cell/c/node/n2', 'type': 'node'}]}");
    EXPECT_NE(object(N1), nullptr) << "it only spells the path";
    for (const std::string &gone : {S1, S2, N2, T1, S2 + "/serverApplication/app"}) EXPECT_EQ(object(gone), nullptr) << gone;
    EXPECT_THAT(storedText(), Not(HasSubstr("server/s1"))) << "the entry, what stands below it and the pairs that name it";
    EXPECT_THAT(storedText(), Not(HasSubstr("server/s2")));
    expectSameAsRebuild();
}

// The children of a deleted parent leave their names behind: nothing may follow them.
TEST_F(Document, Tombstones) {
    const std::string transport = entry(T1, "transport", "'host': 'h', 'protocol': 'http'");
    const auto endpoints = [this] { return tavListGetCount(server(S1)->endPoints[0]); };
    take(objects("del", entry(S1, "server")));
    traceOn();
    take(objects("set", transport));
    EXPECT_THAT(takeTrace(), HasSubstr("set operation but object of type 'transport' at '" + T1 + "' was not found\n"));
    take(objects("add", entry(S1, "server", "'weight': 5")));
    EXPECT_EQ(endpoints(), 0);
    takeTrace();
    take(objects("del", transport));
    EXPECT_THAT(takeTrace(), HasSubstr(" no parent wrapper, only calling delete wrapper"));
    take(objects("add", transport + ", " + entry(S1 + "/serverApplication/app", "serverApplication")));
    EXPECT_EQ(endpoints(), 1);
    EXPECT_EQ(tavListGetCount(server(S1)->serverApplications), 1);
    take(objects("del", transport));
    EXPECT_EQ(endpoints(), 0);
    expectSameAsRebuild();
}

TEST_F(Document, ServerApplicationMayComeAgain) {
    const std::string name = S1 + "/serverApplication/app";
    const Object *handle = object(name);
    traceOn();
    take(objects("add", entry(name, "serverApplication", "'state': 'STOPPED'")));
    EXPECT_THAT(takeTrace(), HasSubstr("won't add serverApplication object which already exists: " + name + "\n"));
    EXPECT_EQ(object(name), handle);
    EXPECT_THAT(dump(), HasSubstr("\"state\": \"STOPPED\"")) << "its properties are taken";
    expectSameAsRebuild();
    EXPECT_EQ(tavListGetCount(server(S1)->serverApplications), 1);
}

TEST_F(Document, OneControllerAddsToWhatAnotherHas) {
    TavConnector *other = tavConnectorCreate(tavConnectorGroupCreate(tav, "g2"), "http://127.0.0.1:2");
    const auto giveOther = [other](const std::string &text) { return tavHandleJsonFromRestService(text.c_str(), other); };
    const std::string policy = "/cell/c/healthPolicy/late", n3 = "/cell/c/node/n3";
    const std::string guest = N1 + "/server/guest", late = guest + "2", early = n3 + "/server/early";
    const std::string first = entry(policy, "healthPolicy") + ", " + entry(guest, "server") + ", " + entry(early, "server");
    ASSERT_EQ(giveOther(quoted("{'version': 1, 'restVersion': 1, " + objects("add", first) + "}")), 1);
    EXPECT_EQ(tavGetConfigVersion(tav), 1) << "the last one, not the highest";
    const std::string link = "'relationships': {'server:healthPolicy': [{'server': '" + S1 + "', 'healthPolicy': '" + policy + "'}]}";
    ASSERT_EQ(giveOther(delta(2, "'add': {'objects': [" + entry(late, "server") + "], " + link + "}")), 2);
    ASSERT_EQ(giveOther(delta(3, objects("del", entry(guest, "server")))), 3);
    for (const char *when : {"at once", "after a rebuild"}) {
        EXPECT_EQ(tavListGetCount(server(S1)->healthPolicies), 2) << when;
        EXPECT_NE(object(late), nullptr) << when;
        EXPECT_EQ(object(guest), nullptr) << when;
        rebuild();
    }
    // A document may come before the one that has its objects' parents.
    take(objects("add", entry(n3, "node")));
    take(objects("set", entry(APP, "application")));
    EXPECT_NE(object(early), nullptr) << "in the rebuild";
    ASSERT_EQ(giveOther(delta(4, objects("del", entry(early, "server")))), 4);
    rebuild();
    EXPECT_EQ(object(early), nullptr) << "its entry was found";
}

TEST_F(Document, ManyDeletionsCloseTheArraysUp) {
    std::string add, del;
    for (int i = 0; i < 200; i++) {
        const std::string one = entry("/cell/c/cluster/x" + std::to_string(i), "cluster");
        add += (i ? ", " : "") + one;
        if (i != 150) del += (del.empty() ? "" : ", ") + one;
    }
    take("'add': {'objects': [{'name': '/cell/c', 'type': 'cell', 'objects': [" + add + "]}]}");
    take(objects("del", del));
    const json_t *cell = json_array_get(json_object_get(json_object_get(connector->json, "add"), "objects"), 0);
    EXPECT_LT(json_array_size(json_object_get(cell, "objects")), 100u);
    EXPECT_NE(object("/cell/c/cluster/x150"), nullptr);
    take(objects("set", entry("/cell/c/cluster/x150", "cluster", "'ioTimeoutRetry': 3")));
    take(objects("del", entry("/cell/c/cluster/x150", "cluster")));
    expectSameAsRebuild();
    EXPECT_THAT(storedText(), Not(HasSubstr("cluster/x")));
}

// ---- rules ----

TEST_F(Document, TraceRulesFollowTheSnapshot) {
    const std::string ruleSet = "{'name': '" + S1 + "/ruleSet/r', 'type': 'ruleSet', 'objects': [" +
                                entry(S1 + "/ruleSet/r/rule/20", "rule", "'expression': 'uri LIKE `/a%`', 'action': ':DEBUG'") + ", " +
                                entry(S1 + "/ruleSet/r/rule/3", "rule", "'expression': 'port = 80', 'action': ':INFO'") + "]}";
    const auto count = [this] { return tavRulesGetCount(tav->requestTraceRules); };
    take(objects("add", ruleSet));
    ASSERT_EQ(count(), 2);
    const auto *first = static_cast<TavRule *>(tavListEleGetObject(tavListGetHead(tav->requestTraceRules->rules)));
    EXPECT_STREQ(first->expressionString, "port = 80") << "by the number in the name";
    for (int i = 0; i < 3; i++) rebuild();
    EXPECT_EQ(count(), 2) << "not once more per snapshot";
    TavRoutingInfo *held = tavRoutingInfoObtain(tav);
    rebuild();
    tavRoutingInfoRelease(held);
    EXPECT_EQ(count(), 2) << "an old snapshot takes nothing along";
    take(objects("del", entry(S1 + "/ruleSet/r/rule/3", "rule")));
    EXPECT_EQ(count(), 1);
    take(objects("del", entry(S1, "server")));
    EXPECT_EQ(count(), 0);
    take(objects("set", ruleSet));
    expectSameAsRebuild();
}

// An entry whose name came before is refused, its children are not; deleting the object takes all of it along.
TEST_F(Document, NamesThatAreGivenTwice) {
    ASSERT_EQ(give(quoted("{'version': 6, 'restVersion': 1, 'add': {'objects': ["
                          "{'name': '/cell/c', 'type': 'cell', 'objects': [{'name': '/cell/c/node/n1', 'type': 'node'},"
                          "{'name': '/cell/c/cluster/k', 'type': 'cluster'}]},"
                          "{'name': '/cell/c', 'type': 'cell', 'objects': {'name': '/cell/c/node/n1', 'type': 'node', 'objects':"
                          "{'name': '/cell/c/node/n1/server/s1', 'type': 'server', 'props': {'weight': 1}}}},"
                          "{'name': '/cell/c/cluster/k', 'type': 'cluster'}]}}")),
              6);
    EXPECT_NE(object(S1), nullptr);
    expectSameAsRebuild();
    take(objects("del", entry(S1, "server")));
    EXPECT_TRUE(object(N1) && object(K));
    expectSameAsRebuild();
    take(objects("del", entry(K, "cluster") + ", " + entry(N1, "node")));
    EXPECT_THAT(storedText(), Not(HasSubstr("cluster/k")));
    EXPECT_THAT(storedText(), Not(HasSubstr("node/n1")));
    expectSameAsRebuild();
    EXPECT_EQ(object(K), nullptr);
}

// What a delta with a rebuild brings that is not taken is told at its place in the delta, and nothing else.
TEST_F(Document, ARebuildTellsOfTheDeltasProperties) {
    take(objects("set", entry(S1, "server", "'old': 1.5")));
    const std::vector<std::string> findings =
        findingsOf(7, "'add': {'objects': [{'name': '/cell/c', 'type': 'cell', 'objects': [" +
                          entry("/cell/c/application/new", "application", "'a/b~': 1.5, 'edition': '1'") +
                          "]}]}, 'set': {'objects': " + entry(S1, "server", "'new': null, 'none': 2.5") + "}");
    EXPECT_THAT(findings,
                testing::IsSupersetOf(
                    {"/add/objects/0/objects/0/props/a~1b~0 property unknown type for property a/b~ on object /cell/c/application/new",
                     "/set/objects/props/none property unknown type for property none on object /cell/c/node/n1/server/s1"}));
    EXPECT_THAT(findings, Not(testing::Contains(HasSubstr("property old"))));
}

// ---- interest ----

TEST_F(CoreFixture, InterestSpecificationIsBuiltOnce) {
    const std::string text = tavGetInterestSpec(tav, group);
    EXPECT_EQ(text, shop::contentOf("tests/core/interests.txt"));
    tavConnectorGroupSetEnableAdminTraffic(group, TRUE);
    EXPECT_EQ(tavGetInterestSpec(tav, group), text);
    TavConnectorGroup *other = tavConnectorGroupCreate(tav, "admin");
    tavConnectorGroupSetProperty(other, "enableRoutingToAdminConsole", "TRUE");
    EXPECT_THAT(tavGetInterestSpec(tav, other), HasSubstr("serverType in (\\'APPLICATION_SERVER\\',\\'DEPLOYMENT_MANAGER\\',\\'TOMCAT"));
    // With its quotes exchanged it is JSON.
    std::string json = text;
    for (size_t at; (at = json.find("\\'")) != std::string::npos;) json.replace(at, 2, "_");
    json_t *parsed = json_loads(quoted(json).c_str(), 0, nullptr);
    EXPECT_NE(parsed, nullptr);
    json_decref(parsed);
}

} // namespace
