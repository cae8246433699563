// tavctl route and dump: whole outputs against golden files, and what decides between them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tool.h"

using testing::HasSubstr;
using testing::Not;

namespace {

const std::string CART = "http://shop.example/shop/cart";

struct GoldenCase {
    const char *golden;
    std::vector<std::string> args;
};

class RouteGolden : public testing::TestWithParam<GoldenCase> {};

TEST_P(RouteGolden, printsTheDecision) {
    std::vector<std::string> args = {"route", "--config", "site.json"};
    args.insert(args.end(), GetParam().args.begin(), GetParam().args.end());
    const ToolRun run = runTool(args);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    expectGolden(GetParam().golden, run.out);
}

const GoldenCase GOLDEN[] = {
    {"route-plain.txt", {CART, "http://shop.example/shop/old", "http://shop.example/shop/closed", "http://other.example/"}},
    {"route-affinity.txt", {"--explain", "-b", "JSESSIONID=s:c9; ZVJSESSIONID=s:c2", CART}},
    {"route-broken.txt", {"--explain", "-d", "maintenance.json", "-H", "Cookie: JSESSIONID=s:c1", CART}},
    {"route-url-session.txt", {"--explain", CART + ";jsessionid=s:c2"}},
    {"route-explain.jsonl", {"--json", "--explain", "-d", "maintenance.json", "-H", "beta: yes", CART, "/shop"}},
    {"route-repeat.txt", {"--repeat", "300", CART}},
    {"route-repeat-idle.txt", {"--repeat", "10", "--in-flight", "1", CART}},
};

INSTANTIATE_TEST_SUITE_P(Outputs, RouteGolden, testing::ValuesIn(GOLDEN));

TEST(Route, theRequestOptionsReachTheLibrary) {
    const struct {
        std::vector<std::string> args;
        const char *header; // of the decision
    } cases[] = {
        {{"--client", "192.0.2.7", CART}, R"("$ZVRA":"192.0.2.7")"},
        {{"http://shop.example:80/shop?x#y"}, R"("contextRoot":"/shop")"},
        {{"-H", "Host: shop.example", "/shop"}, R"("$ZVSN":"shop.example")"},
        {{"-H", "Host: shop.example:81", "http://shop.example/shop"}, R"("handled":0)"},
        {{"-p", "disablePrivateHeaders=true", CART}, R"("headers":{"_ZV_HAPRT_WLMVERSION":""})"},
        {{"-X", "POST", "-b", "JSESSIONID=s:c2", CART}, R"("cloneId":"c2")"},
        {{"-b", "jsessionid=s:c2", CART}, R"("loadBalanced":true)"}, // cookie names are exact
        {{"-H", "BETA: yes", CART}, R"("edition":"2.0")"},           // header names are not
        {{"https://shop.example/shop"}, R"("handled":0)"},           // port 443
    };
    for (const auto &each : cases) {
        std::vector<std::string> args = {"route", "-c", "site.json", "--json"};
        args.insert(args.end(), each.args.begin(), each.args.end());
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_THAT(run.out, HasSubstr(each.header));
    }
}

TEST(Route, oneJsonLineForEachRepetition) {
    const ToolRun run = runTool({"route", "-c", "site.json", "--json", "--repeat", "3", CART});
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 3);
    EXPECT_THAT(run.out, HasSubstr(R"({"id":"3",)"));
}

TEST(Route, refusesWhatItCannotUse) {
    const struct {
        std::vector<std::string> args;
        const char *message;
    } cases[] = {
        {{"-c", "nowhere.json", "/"}, "nowhere.json: No such file"},
        {{"-c", "maintenance.json", "/"}, "maintenance.json: "}, // a delta without a document
        {{"-c", "site.jsonl", "/"}, "site.jsonl:1: "},
        {{"-c", "site.json", "shop.example"}, "'shop.example': write http://HOST"},
        {{"-c", "site.json", "http://h:99999/"}, "'99999' is no port"},
        {{"-c", "site.json", "-H", "Beta", "/"}, "header 'Beta'"},
        {{"-c", "site.json", "-b", "session", "/"}, "cookie 'session'"},
        {{"-c", "site.json", "-p", "Nothing=1", "/"}, "property 'Nothing=1'"},
        {{"/"}, "--config is required"},
        {{"-c", "site.json", "--repeat", "0", "/"}, "--repeat"},
    };
    for (const auto &each : cases) {
        std::vector<std::string> args = {"route"};
        args.insert(args.end(), each.args.begin(), each.args.end());
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.status, 2) << each.message;
        EXPECT_THAT(run.err, HasSubstr(each.message));
        EXPECT_EQ(run.out, "");
    }
}

TEST(Dump, showsWhatTheDeltasLeft) {
    const std::string mode = R"("maintenanceMode": "break")";
    EXPECT_THAT(runTool({"dump", "-c", "site.json"}).out, Not(HasSubstr(mode)));
    EXPECT_THAT(runTool({"dump", "-c", "site.json", "-d", "maintenance.json"}).out, HasSubstr(mode));
}

TEST(Interests, administrationServersAreAskedForOnDemand) {
    const auto clusterLine = [](const std::string &text) {
        const size_t start = text.find("'type':'cluster'");
        return text.substr(start, text.find('\n', start) - start);
    };
    EXPECT_THAT(clusterLine(runTool({"interests"}).out), Not(HasSubstr("DEPLOYMENT_MANAGER")));
    EXPECT_THAT(clusterLine(runTool({"interests", "--admin"}).out), HasSubstr("DEPLOYMENT_MANAGER"));
}

} // namespace
