// tavctl rule: values, trees, carets, and files of rules.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tool.h"

using testing::HasSubstr;

namespace {

struct RuleCase {
    std::vector<std::string> args;
    int status;
    const char *json;
};

class RuleTable : public testing::TestWithParam<RuleCase> {};

TEST_P(RuleTable, parsesAndEvaluates) {
    std::vector<std::string> args = {"rule", "--json"};
    args.insert(args.end(), GetParam().args.begin(), GetParam().args.end());
    const ToolRun run = runTool(args);
    EXPECT_EQ(run.status, GetParam().status) << run.err;
    EXPECT_EQ(run.out, std::string(GetParam().json) + "\n");
}

constexpr const char *IS_TRUE = R"({"parses":true,"value":true,"message":null,"position":-1,"indicator":null})";
constexpr const char *IS_FALSE = R"({"parses":true,"value":false,"message":null,"position":-1,"indicator":null})";

const RuleCase RULES[] = {
    {{"uri LIKE '/a%'", "/abc"}, 0, IS_TRUE},
    {{"uri LIKE '/a%'"}, 0, IS_FALSE},
    {{"uri = '/x' AND port = 8080 AND virtualhost = 'h'", "http://h:8080/x?q=1"}, 0, IS_TRUE},
    {{"header$a = 'b' AND HTTPMethod = 'PUT'", "-H", "A: b", "-X", "PUT"}, 0, IS_TRUE},
    {{"cookie$c = 'd' AND clientipv4 = '192.0.2.1'", "-b", "x=y; c=d", "--client", "192.0.2.1"}, 0, IS_TRUE},
    {{"uid = 'joe' AND nulloperand IS NULL", "--request", R"({"userName": "joe"})"}, 0, IS_TRUE},
    {{"queryparm$q = '1'", "--request", R"({"query": "p=0&q=1"})"}, 0, IS_TRUE},
    {{"nulloperand <> 'x'"}, 0, IS_FALSE},
    {{"uri = ('a"},
     1,
     R"({"parses":false,"value":null,"message":"Literal has no terminating character.","position":10,"indicator":"         ^"})"},
    {{"uri LIKE"},
     1,
     R"({"parses":false,"value":null,"message":"tavRule: Internal Error - no expression created.","position":0,"indicator":"^"})"},
};

INSTANTIATE_TEST_SUITE_P(Table, RuleTable, testing::ValuesIn(RULES));

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
    const ToolRun input = runTool({"rule", "--json", "--file", "-"}, "{\"rule\": \"false\"}\n");
    EXPECT_EQ(input.out, std::string(IS_FALSE) + "\n");
}

TEST(RuleCommand, refusesWhatItCannotUse) {
    const ScratchFile extra("rules.jsonl", "{\"rule\": \"true\"}\n{\"rule\": \"true\", \"req\": {}}\n");
    const struct {
        std::vector<std::string> args;
        std::string message;
    } cases[] = {
        {{}, "give either an expression or --file"},
        {{"true", "--file", extra.path()}, "give either an expression or --file"},
        {{"true", "--request", "{"}, "--request:1: "},
        {{"true", "--request", "{\"pth\": 1}"}, "--request: unknown request member \"pth\""},
        {{"true", "/", "--request", "{}"}, "excludes"},
        {{"--file", extra.path()}, extra.path() + ":2: unknown rule member \"req\""},
    };
    for (const auto &each : cases) {
        std::vector<std::string> args = {"rule"};
        args.insert(args.end(), each.args.begin(), each.args.end());
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.status, 2) << each.message;
        EXPECT_THAT(run.err, HasSubstr(each.message));
    }
}

} // namespace
