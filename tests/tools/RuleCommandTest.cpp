// tavctl rule: values, trees, carets, and files of rules.
#include <gmock/gmock.h>

#include "Tool.h"

using testing::HasSubstr;

namespace {

constexpr const char *IS_TRUE = R"({"parses":true,"value":true,"message":null,"position":-1,"indicator":null})";
constexpr const char *IS_FALSE = R"({"parses":true,"value":false,"message":null,"position":-1,"indicator":null})";

TEST(RuleCommand, parsesAndEvaluates) {
    const std::pair<Arguments, const char *> cases[] = {
        {{"uri LIKE '/a%'", "/abc"}, IS_TRUE},
        {{"uri LIKE '/a%'"}, IS_FALSE},
        {{"uri = '/x' AND port = 8080 AND virtualhost = 'h'", "http://h:8080/x?q=1"}, IS_TRUE},
        {{"header$a = 'b' AND HTTPMethod = 'PUT'", "-H", "A: b", "-X", "PUT"}, IS_TRUE},
        {{"cookie$c = 'd' AND clientipv4 = '192.0.2.1'", "-b", "x=y; c=d", "--client", "192.0.2.1"}, IS_TRUE},
        {{"uid = 'joe' AND nulloperand IS NULL", "--request", R"({"userName": "joe"})"}, IS_TRUE},
        {{"queryparm$q = '1'", "--request", R"({"query": "p=0&q=1"})"}, IS_TRUE},
        {{"nulloperand <> 'x'"}, IS_FALSE},
        {{"uri = ('a"},
         R"({"parses":false,"value":null,"message":"Literal has no terminating character.","position":10,"indicator":"         ^"})"},
        {{"uri LIKE"},
         R"({"parses":false,"value":null,"message":"tavRule: Internal Error - no expression created.","position":0,"indicator":"^"})"},
    };
    for (const auto &[args, json] : cases) {
        const ToolRun run = runTool(Arguments{"rule", "--json"} + args);
        EXPECT_EQ(run.status, run.out.find("\"parses\":false") != std::string::npos) << run.err;
        EXPECT_EQ(run.out, std::string(json) + "\n");
    }
}

TEST(RuleCommand, showsTreeAndCaret) {
    const ToolRun good = runTool({"rule", "uri LIKE '/a%' AND NOT port IN (1, 2)", "/abc"});
    EXPECT_EQ(good.status, 0);
    expectGolden("rule-tree.txt", good.out);
    const ToolRun bad = runTool({"rule", "uri = ('a"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.out, "uri = ('a\n         ^\nLiteral has no terminating character. (position 10)\n");
}

TEST(RuleCommand, readsFilesOfRules) {
    const ScratchFile rules("rules.jsonl",
                            "# two\n{\"rule\": \"uri = '/x'\", \"request\": {\"path\": \"/x\"}}\n\n{\"rule\": \"uri = (\"}\n");
    const ToolRun run = runTool({"rule", "--json", "--file", rules.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr(std::string(IS_TRUE) + "\n{\"parses\":false,"));
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += "true AND ";
    const ToolRun input = runTool({"rule", "--json", "--file", "-"}, "{\"rule\": \"false\"}\n{\"rule\": \"" + deep + "true\"}\n");
    EXPECT_EQ(input.out, std::string(IS_FALSE) + "\n" + IS_TRUE + "\n");
}

} // namespace
