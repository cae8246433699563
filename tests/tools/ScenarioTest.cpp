// tavctl test: the kinds of lines, misses, errors and coverage.
#include <gmock/gmock.h>

#include "Tool.h"

using testing::HasSubstr;
using testing::Not;

namespace {

const std::string DOCUMENT = "{\"document\": \"" TOOLS_TEST_DIR "/data/site.json\"}\n";
const std::string SHOP = R"({"id": "a", "request": {"host": "shop.example", "path": "/shop"}})"
                         "\n";

ToolRun runScenario(const std::string &text, const Arguments &options = {}) {
    const ScratchFile file("case.jsonl", text);
    return runTool(Arguments{"test"} + options + Arguments{file.path()});
}

TEST(Scenario, jsonGivesOneResultALineAndNothingElse) {
    const ToolRun run = runScenario(DOCUMENT + SHOP + R"({"id": "a", "state": "REQUEST_SENDING"}
{"id": "a", "response": {"headers": {"Set-Cookie": ["JSESSIONID=s; Path=/", "x=1"]}}, "expect": {"responseCookies": {"other": "1"}}}
{"id": "a", "release": true}
{"property": "disablePrivateHeaders", "value": null}
{"property": "trustedproxyenable", "value": "true"}
)",
                                    {"--json"});
    EXPECT_EQ(run.status, 1);
    expectGolden("scenario.jsonl", run.out);
    EXPECT_THAT(run.err, HasSubstr("case.jsonl:4: response a\n"
                                   "    responseCookies.other  expected \"1\"\n"
                                   "                           but is   nothing\n"));
}

TEST(Scenario, expectationsAreComparedMemberByMember) {
    const struct {
        const char *expect;
        int status;
        const char *out; // part of it
    } cases[] = {
        {R"({"handled": 1, "endpoint": {"port": 9080, "cloneId": "c1"}, "headers": {"$ZVCC": null}})", 0, "1 expectation held"},
        {R"({"errorMsg": null})", 0, "held"},                                   // absent is as good as null
        {R"({"headers": {"$ZVXX": null}})", 1, "headers.$ZVXX  expected null"}, // but removed is not the same as never set
        {R"({"handled": 1.0})", 1, "expected 1.0\n"},                           // scalars exactly
        {R"({"action": "permit"})", 1, "    action  expected \"permit\"\n            but is   \"PERMIT\"\n"},
        {R"({"endpoint": null})", 1, "endpoint  expected null\n"},
        {R"({"endpoint": {"port": 1, "host": "h"}})", 1, "    endpoint.port  expected 1\n"},
        {R"({"endpoint": []})", 1, "expected []"},
        {R"({"nothing": {}})", 1, "but is   nothing"},
        {R"({"application": "shop-edition1.0", "edition": "2.0"})", 1, "1 of 1 expectations missed"},
    };
    for (const auto &each : cases) {
        std::string line = SHOP;
        line.replace(line.find_last_of('}'), 1, std::string(", \"expect\": ") + each.expect + "}");
        const ToolRun run = runScenario(DOCUMENT + line);
        EXPECT_EQ(run.status, each.status) << run.out << run.err;
        EXPECT_THAT(run.out, HasSubstr(each.out));
    }
}

TEST(Scenario, aLineThatIsNotUnderstoodEndsTheFileWithItsReason) {
    const std::pair<const char *, const char *> cases[] = {
        {"{", "string or '}' expected"},
        {"[1]", "the line is not a JSON object"},
        {R"({"id": "b"})", "none of \"document\""},
        {R"({"id": "b", "request": {}, "extra": 1})", "unknown request member \"extra\""},
        {R"({"request": {}})", "\"id\" is missing"},
        {R"({"id": 5, "request": {}})", "\"id\" must be a text, not an integer"},
        {R"({"id": "b", "request": []})", "\"request\" must be an object, not an array"},
        {R"({"id": "b", "request": {"hots": "h"}})", "unknown request member \"hots\""},
        {R"({"id": "b", "request": {"path": 1}})", "\"path\" must be a text or null, not an integer"},
        {R"({"id": "b", "request": {"port": "80"}})", "\"port\" must be an integer, not a text"},
        {R"({"id": "b", "request": {"port": 65536}})", "\"port\" must lie between"},
        {R"({"id": "b", "request": {"headers": {"a": 1}}})", "\"a\" must be a list of texts"},
        {R"({"id": "b", "request": {"groups": "g"}})", "\"groups\" must be a list of texts"},
        {R"({"id": "b", "request": {}, "expect": 1})", "\"expect\" must be an object"},
        {R"({"id": "a", "state": "CONNECT_FAILURE", "expect": {}})", "unknown state member \"expect\""},
        {R"({"id": "a", "state": "UNKNOWN"})", "unknown state \"UNKNOWN\""},
        {R"({"id": "z", "state": "CONNECT_FAILURE"})", "no request \"z\" is open"},
        {R"({"id": "a", "retarget": false})", "\"retarget\" must be true"},
        {R"({"id": "a", "response": {"body": ""}})", "unknown response member \"body\""},
        {R"({"property": "ppid"})", "\"value\" is missing"},
        {R"({"property": "ppid", "value": 1})", "\"value\" must be a text or null"},
        {R"({"document": 1})", "\"document\" must be an object or a path"},
        {R"({"document": "gone.json"})", "/"},
        {R"({"dump": 1})", "\"dump\" must be true"},
    };
    for (const auto &[line, reason] : cases) {
        const ToolRun run = runScenario("\n# a comment\n" + SHOP + line + "\n" + SHOP, {"--json"});
        EXPECT_EQ(run.status, 2) << line;
        EXPECT_THAT(run.err, HasSubstr(std::string("case.jsonl:4: ") + reason));
        EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1); // of the line before
    }
}

TEST(Scenario, aReleasedRequestIsGoneAndAnIdMayBeTakenAgain) {
    EXPECT_THAT(runScenario(SHOP + R"({"id": "a", "release": true})" + "\n" + R"({"id": "a", "retarget": true})").err,
                HasSubstr(":3: no request \"a\" is open"));
    // The first request stays open: the second one finds its server busy and goes to the other.
    const ToolRun twice =
        runScenario(DOCUMENT + SHOP + SHOP + R"({"id": "a", "retarget": true, "expect": {"endpoint": {"cloneId": "c2"}}})");
    EXPECT_EQ(twice.status, 0) << twice.out;
}

TEST(Scenario, theRunGoesOnWithTheNextFile) {
    const ScratchFile bad("bad.jsonl", "{}\n"), miss("miss.jsonl", R"({"dump": true, "expect": {"x": 1}})");
    const ToolRun run = runTool({"test", bad.path(), "gone.jsonl", miss.path(), "site.jsonl"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr(bad.path() + ":1: "));
    EXPECT_THAT(run.err, HasSubstr("gone.jsonl: No such file"));
    EXPECT_THAT(run.out, HasSubstr("site.jsonl: 13 expectations held\n4 files, 14 expectations, 1 missed, 2 not understood\n"));
    // With an instance of its own.
    const ScratchFile first("first.jsonl", DOCUMENT);
    const ScratchFile second("second.jsonl", SHOP.substr(0, SHOP.size() - 2) + R"(, "expect": {"handled": 0}})");
    EXPECT_EQ(runTool({"test", first.path(), second.path()}).status, 0);
}

// ---- coverage ----

TEST(Coverage, tellsWhatNoRequestTouchedAndFailsUnderItsLimit) {
    const ToolRun under = runScenario(DOCUMENT + SHOP, {"--fail-under", "43"});
    EXPECT_EQ(under.status, 1);
    EXPECT_THAT(under.err, HasSubstr("coverage 42.9% is under 43%"));
    EXPECT_THAT(under.out, HasSubstr("coverage: 1 of 1 virtual-host groups\n"
                                     "coverage: 1 of 2 web modules\n"
                                     "  not touched: /cell/main/application/shop-edition2.0/webModule/store\n"
                                     "coverage: 1 of 4 routing rules\n"
                                     "  not touched: /cell/main/application/shop-edition1.0/webRouteWorkClass/Default_HTTP_WC/rule/10\n"));
    EXPECT_THAT(under.out, testing::AllOf(HasSubstr("coverage: 42.9%\n"), Not(HasSubstr("rule/default"))));
    const ToolRun held = runScenario(DOCUMENT + SHOP, {"--fail-under", "42", "--json"});
    EXPECT_EQ(held.status, 0);
    EXPECT_THAT(held.out, Not(HasSubstr("coverage")));
    EXPECT_EQ(runScenario("", {"--fail-under", "100"}).status, 0);                                            // nothing to touch
    const std::string closed = R"({"id": "b", "request": {"host": "shop.example", "path": "/shop/closed"}})"; // turned away by a rule
    EXPECT_THAT(runScenario(DOCUMENT + closed, {"--coverage"}).out, HasSubstr("coverage: 1 of 2 web modules\n"));
}

} // namespace
