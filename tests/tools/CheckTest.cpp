// tavctl check: each kind of fault is found, at its place, and nothing else.
#include <gmock/gmock.h>

#include "Tool.h"

using testing::HasSubstr;

namespace {

// Place and text of every fault, and the caret below a rule that does not parse; the two notes are not counted.
TEST(Check, everyFaultIsFoundAtItsPlace) {
    for (const auto &[options, golden] : {std::pair(Arguments{}, "check-broken.txt"), {{"--json"}, "check-broken.jsonl"}}) {
        const ToolRun run = runTool(Arguments{"check"} + options + Arguments{"broken.json"});
        EXPECT_EQ(run.status, 1);
        expectGolden(golden, run.out);
    }
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
        {R"({"delta": true, "version": 8, "add": {"objects": [{"name": "/cell/main/node/alpha/server/two/transport/sip",
             "type": "transport", "props": {"protocol": "sip"}}]}})",
         0, "note: /cell/main/node/alpha/server/two/transport/sip: the transport's protocol is sip"},
        {R"({"delta": true, "version": 8, "add": {"object": []}})", 1, "/add/object\n    unused: no member of the name \"object\""},
        {R"({"delta": true, "version": 8, "add": {"objects": [{"name": "/cell/main", "type": "cell", "props": []}]}})", 1,
         "/add/objects/0/props\n    document: \"props\" must be an object, not an array"},
        {R"({"delta": true, "version": 8, "set": {"relationships": {"cluster:server": {}}}})", 1, "\"cluster:server\" must be an array"},
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
