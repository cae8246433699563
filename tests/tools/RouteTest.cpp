// tavctl route and dump: whole outputs against golden files, and what decides between them.
#include <gmock/gmock.h>

#include "Tool.h"

using testing::HasSubstr;
using testing::Not;

namespace {

const std::string CART = "http://shop.example/shop/cart";

TEST(Route, printsTheDecision) {
    const std::pair<const char *, Arguments> cases[] = {
        {"route-plain.txt", {CART, "http://shop.example/shop/old", "http://shop.example/shop/closed", "http://other.example/"}},
        {"route-affinity.txt", {"--explain", "-b", "JSESSIONID=s:c9; ZVJSESSIONID=s:c2", CART}},
        {"route-broken.txt", {"--explain", "-d", "maintenance.json", "-H", "Cookie: JSESSIONID=s:c1", CART}},
        {"route-url-session.txt", {"--explain", CART + ";jsessionid=s:c2"}},
        {"route-explain.jsonl", {"--json", "--explain", "-d", "maintenance.json", "-H", "beta: yes", CART, "/shop"}},
        {"route-repeat.txt", {"--repeat", "300", CART}},
        {"route-repeat-idle.txt", {"--repeat", "10", "--in-flight", "1", CART}},
    };
    for (const auto &[golden, args] : cases) {
        const ToolRun run = runTool(Arguments{"route", "--config", "site.json"} + args);
        EXPECT_EQ(run.status, 0) << golden;
        EXPECT_EQ(run.err, "") << golden;
        expectGolden(golden, run.out);
    }
}

TEST(Route, theRequestOptionsReachTheLibrary) {
    const std::pair<Arguments, const char *> cases[] = {
        // what the decision then shows
        {{"--client", "192.0.2.7", CART}, R"("$ZVRA":"192.0.2.7")"},
        {{"http://shop.example:80/shop?x#y"}, R"("contextRoot":"/shop")"},
        {{"-H", "Host: shop.example", "/shop"}, R"("$ZVSN":"shop.example")"},
        {{"-H", "Host: shop.example:81", "http://shop.example/shop"}, R"("handled":0)"},
        {{"-p", "disablePrivateHeaders=true", CART}, R"("headers":{"_ZV_HAPRT_WLMVERSION":""})"},
        {{"-X", "POST", "-b", "JSESSIONID=s:c2", CART}, R"("cloneId":"c2")"},
        {{"-b", "jsessionid=s:c2", CART}, R"("loadBalanced":true)"}, // cookie names are exact
        {{"-H", "BETA: yes", CART}, R"("edition":"2.0")"},           // header names are not
        {{"https://shop.example/shop"}, R"("handled":0)"},           // port 443
        {{"--repeat", "2", CART, CART}, "\n{\"id\":\"4\","},
    };
    for (const auto &[args, shown] : cases) {
        const ToolRun run = runTool(Arguments{"route", "-c", "site.json", "--json"} + args);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_THAT(run.out, HasSubstr(shown));
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
