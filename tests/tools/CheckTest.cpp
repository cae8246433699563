// tavctl check: each kind of fault is found, at its place, and nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include "Tool.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct Expected {
    int line;
    const char *path;
    const char *kind;
    const char *text;
};

TEST(Check, everyFaultIsFoundAtItsPlace) {
    const Expected expected[] = {
        {6, "/add/objects/0", "object", "object of type cluster with no name"},
        {7, "/add/objects/1", "object", "no object handler for type gadget"},
        {8, "/add/objects/2/props/colour", "property", "failed to set string property colour"},
        {8, "/add/objects/2/props/weight", "property", "null integer property handler for object type node"},
        {9, "/add/objects/2/objects/0", "unused", "server can never be chosen: server is not started"},
        {13, "/add/objects/2/objects/0/objects/0/props/isActive", "property", "isActive"},
        {18, "/add/objects/3", "object", "parent for /cell/main/node/beta/server/orphan was not found"},
        {20, "/add/objects/5", "object", "already exists: /cell/main/cluster/web"},
        {21, "/add/objects/6", "unused", "the application has no web module"},
        {24, "/add/objects/7/objects/0/props/routingEnabled", "property", "routingEnabled"},
        {24, "/add/objects/7/objects/0/props/protocolMap", "property", "protocolMap"},
        {26, "/add/objects/7/objects/1", "unused", "no virtual-host group is linked to the web module"},
        {26, "/add/objects/7/objects/1", "unused", "no cluster serves the web module"},
        {26, "/add/objects/7/objects/1", "unused", "the web module has no uri"},
        {27, "/add/objects/7/objects/2", "unused", "its rules are never evaluated"},
        {28, "/add/objects/7/objects/3", "unused", "rule #3 false permits edition \"9\", which no application has"},
        {30, "/add/objects/7/objects/3/objects/0/props/expression", "rule", "Literal has no terminating character."},
        {32, "/add/objects/7/objects/3/objects/1/props/action", "rule", "\"allow:shop\": no action"},
        {37, "/add/objects/8", "unused", "the virtual-host group has no host"},
        {42, "/add/relationships/cluster:server/1", "relationship", "object /cell/main/node/alpha/server/nobody not found"},
        {43, "/add/relationships/cluster:server/2", "relationship", "type server not found"},
        {45, "/add/relationships/cluster:gadget", "relationship", "no relationship handler found"},
    };
    const ToolRun run = runTool({"check", "--json", "broken.json"});
    EXPECT_EQ(run.status, 1);
    std::string_view rest = run.out;
    for (const Expected &each : expected) {
        json_t *finding = json_loadb(rest.data(), rest.find('\n') + 1, 0, nullptr);
        ASSERT_NE(finding, nullptr) << each.path << " " << each.text;
        EXPECT_EQ(json_integer_value(json_object_get(finding, "line")), each.line);
        EXPECT_STREQ(json_string_value(json_object_get(finding, "path")), each.path);
        EXPECT_STREQ(json_string_value(json_object_get(finding, "kind")), each.kind);
        EXPECT_THAT(json_string_value(json_object_get(finding, "text")), HasSubstr(each.text));
        json_decref(finding);
        rest.remove_prefix(rest.find('\n') + 1);
    }
    EXPECT_THAT(std::string(rest), IsEmpty());
}

TEST(Check, aRuleThatDoesNotParseShowsItsCaret) {
    const ToolRun run = runTool({"check", "broken.json"});
    EXPECT_THAT(run.out, HasSubstr("        uri = ('a\n"
                                   "                 ^\n"));
    EXPECT_THAT(run.out, HasSubstr("20 findings\n")); // the two notes are not counted
}

TEST(Check, faultsOfADeltaStandInTheDelta) {
    const struct {
        const char *delta;
        int status;
        const char *out;
    } cases[] = {
        {R"({"delta": true, "version": 8, "set": {"objects": [{"name": "/cell/main/cluster/gone", "type": "cluster", "props": {"x": 1}}]}})",
         1, "/set/objects/0\n    object: "},
        {R"({"delta": true, "version": 8, "del": {"relationships": {"server:webModule": [
             {"server": "/cell/main/node/alpha/server/two", "webModule": "/cell/main/application/shop-edition1.0/webModule/store"}]}}})",
         1, "site.json:18: /add/objects/1/objects/1\n    unused: /cell/main/node/alpha/server/two: the server can never be chosen"},
        {R"({"version": 8, "add": {}})", 1, "a complete document (no \"delta\": true) replaces the ones before it"},
        {R"([])", 1, "document: "},
        {R"({"delta": true, "version": 8})", 0, "no findings"},
    };
    for (const auto &each : cases) {
        const ScratchFile delta("delta.json", each.delta);
        const ToolRun run = runTool({"check", "site.json", delta.path()});
        EXPECT_EQ(run.status, each.status) << each.delta;
        EXPECT_THAT(run.out, HasSubstr(each.out));
    }
}

} // namespace
