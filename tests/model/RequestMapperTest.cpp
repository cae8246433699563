#include <gmock/gmock.h>
#include <jansson.h>

#include <memory>
#include <thread>

#include "FakesForRules.h"
#include "VHostMatcher/VHostMatcher.h"
#include "base/FailEachAllocation.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavURLMatcher/tavURLMatcher.h"
#include "tavUtil/tavString.h"

using testing::ElementsAre;

namespace {

class RequestMapperTest : public RulesTest {
protected:
    void SetUp() override {
        RulesTest::SetUp();
        rm = rmCreate(&ri);
        ASSERT_TRUE(rm);
        group = createVHostMatcher(&ri, "/vHostGroup/default");
        putVHost(group, "shop.example", 80);
        ASSERT_TRUE(rmAddVHostMatcher(rm, group));
    }
    void TearDown() override {
        rmDelete(rm);
        RulesTest::TearDown();
    }
    Application *application(const char *name, const char *edition) {
        Application *app = rmApplicationCreate(rm, name);
        EXPECT_TRUE(rmApplicationSetPropStr(app, "edition", edition));
        return app;
    }
    // Linked to the group with the one URI "/*".
    WebModule *module(Application *app, const char *name, const char *contextRoot) {
        WebModule *webModule = rmWebModuleCreate(app, name, 0);
        if (contextRoot) rmWebModuleSetPropStr(webModule, "contextRoot", contextRoot);
        EXPECT_TRUE(rmWebModuleInit(webModule));
        EXPECT_TRUE(rmWebModuleAddUri(webModule, "/*"));
        EXPECT_TRUE(rmLinkVHostAndWebModule(group, webModule, TRUE));
        return webModule;
    }
    WebRouteWorkClass *defaultWorkClass(Application *app) {
        WebRouteWorkClass *workClass = rmWebRouteWorkClassCreate(app, "/wc/a,Default_HTTP_WC");
        EXPECT_TRUE(rmWebRouteWorkClassInit(workClass));
        return workClass;
    }
    TavRule *rule(WebRouteWorkClass *workClass, const char *name, const char *expr, const char *action) {
        TavRule *made = rmEditionRoutingRuleCreate(workClass, name);
        EXPECT_TRUE(tavRuleSetExpr(made, expr));
        EXPECT_TRUE(!action || rmEditionRoutingRuleSetPropStr(made, "any name", action));
        EXPECT_TRUE(rmEditionRoutingRuleInit(made));
        return made;
    }
    // Two editions of a shop and the rules between them; a third edition that serves elsewhere.
    void makeShop() {
        Application *one = application("/cell/c/application/shop-edition1.0", "1.0");
        Application *two = application("/cell/c/application/shop-edition2.0", "2.0");
        Application *three = application("/cell/c/application/shop-edition3.0", "3.0");
        module(one, "/wm/shop1", "/shop");
        // Not linked: reached through the first edition's module only. The first that fits is taken, not the longest.
        rmWebModuleSetPropStr(rmWebModuleCreate(two, "/wm/admin2", 0), "contextRoot", "/shop/admin");
        rmWebModuleSetPropStr(rmWebModuleCreate(two, "/wm/shop2", 0), "contextRoot", "/sho");
        rmWebModuleCreate(two, "/wm/all2", 0);
        rmWebModuleSetPropStr(rmWebModuleCreate(three, "/wm/other3", 0), "contextRoot", "/other");
        WebRouteWorkClass *workClass = defaultWorkClass(one);
        rule(workClass, "/rule/default", "uri LIKE '/shop/%'", "permit:shop-edition1.0");
        rule(workClass, "/rule/1", "uri = '/shop/plain'", "permit:shop-edition1.0");
        rule(workClass, "/rule/2", "uri LIKE '/shop/beta%'", "permitsticky:shop-edition2.0");
        rule(workClass, "/rule/3", "uri LIKE '/shop/admin%'", "permit:shop-edition2.0");
        rule(workClass, "/rule/4", "uri = '/shop/closed'", "reject:503");
        rule(workClass, "/rule/5", "uri = '/shop/moved'", "redirect:http://new/");
        rule(workClass, "/rule/6", "uri = '/shop/future'", "permit:shop-edition9");
        rule(workClass, "/rule/7", "uri = '/shop/nothing'", "allow:x");
        rule(workClass, "/rule/8", "uri = '/shop/elsewhere'", "permit:shop-edition3.0");
        rule(workClass, "/rule/9", "uri = '/shop/beta", nullptr); // in error: passed over
    }
    int map(TavHttpContext &ctx) { return rmMapRequest(rm, &ctx); }

    RequestMapper *rm = nullptr;
    VHostMatcher *group = nullptr;
};

std::string text(const FakeText &value) { return value.value_or("-"); }

// The outcome on one line: result, action and what goes with it, then application/edition/module/root.
std::string outcome(int result, const TavHttpContext &ctx) {
    std::string line = std::to_string(result);
    if (ctx.action == PERMIT) line += ctx.sticky ? " permit sticky" : " permit";
    if (ctx.action == REJECT) line += " reject " + std::to_string(ctx.errorCode) + " " + text(ctx.errorMsg);
    if (ctx.action == REDIRECT) line += " redirect " + text(ctx.redirectURL);
    if (ctx.moduleName) {
        line += " | " + text(ctx.applicationName) + " " + text(ctx.editionName) + " " + text(ctx.moduleName) + " " + text(ctx.contextRoot);
    }
    return line;
}

} // namespace

TEST_F(RequestMapperTest, RequestsFindTheirEdition) {
    makeShop();
    module(application("/cell/c/application/plain", "e"), "/wm/plain", "/plain");
    module(application("/cell/c/application/rootless", ""), "/wm/rootless", nullptr);
    struct Case {
        const char *path;
        const char *expected;
    } cases[] = {
        {"/shop/plain", "1 permit | shop-edition1.0 1.0 /wm/shop1 /shop"},
        {"/shop/anything", "1 permit | shop-edition1.0 1.0 /wm/shop1 /shop"},
        {"/shop/beta/x", "1 permit sticky | shop-edition2.0 2.0 /wm/shop2 /sho"},
        {"/shop/admin/x", "1 permit | shop-edition2.0 2.0 /wm/admin2 /shop/admin"},
        {"/shop/closed", "1 reject 503 matched reject edition routing rule"},
        {"/shop/moved", "1 redirect http://new/"},
        {"/shop/future", "0 reject 500 edition of application indicated by routing rule was not found"},
        {"/shop/nothing", "1 reject 500 no edition routing rule action found; Error Status Code=500"},
        {"/shop/elsewhere", "0 permit"},
        {"/shop", "1 reject 500 no edition routing rule match found; Error Status Code=500"},
        // Only the text before "?" and ";" is matched; the rules see all of it.
        {"/shop;/x", "1 reject 500 no edition routing rule match found; Error Status Code=500"},
        {"/shop/closed?a=/b;c", "1 permit | shop-edition1.0 1.0 /wm/shop1 /shop"},
        {"/plain/x", "1 permit | plain e /wm/plain /plain"},
        {"/plain;v=1", "1 permit | plain e /wm/plain /plain"},
        {"/plain?v=1", "1 permit | plain e /wm/plain /plain"},
        {"/plainly", "1 permit | rootless  /wm/rootless -"},
        {"/", "1 permit | rootless  /wm/rootless -"},
        {nullptr, "-1 reject 500 null path"},
    };
    for (const Case &c : cases) {
        TavHttpContext ctx = request(c.path);
        int result = map(ctx);
        EXPECT_EQ(outcome(result, ctx), c.expected) << (c.path ? c.path : "null");
    }
    TavHttpContext stranger = request("/plain");
    stranger.request.host = "unknown.example";
    EXPECT_EQ(outcome(map(stranger), stranger), "0 reject 404 no mapping found");
    TavHttpContext nameless = request("/plain");
    nameless.request.host = std::nullopt;
    EXPECT_EQ(outcome(map(nameless), nameless), "-1 reject 500 null host");
    EXPECT_EQ(rmMapRequest(nullptr, &nameless), -1);
    EXPECT_EQ(rmMapRequest(rm, nullptr), -1);
}

TEST_F(RequestMapperTest, LongHostTextsAreMappedAndTraced) {
    makeShop();
    traceAt(":NOTICE,http.request.map:DEBUG");
    std::string longPath = "/shop/" + std::string(3000, 'x') + ";p";
    TavHttpContext ctx = request(longPath.c_str());
    EXPECT_EQ(map(ctx), 1);
    ctx = request("/shop/beta;p?q");
    EXPECT_EQ(map(ctx), 1);
    EXPECT_TRUE(traced("mapped request shop.example:80//shop/beta;p?q to web module /wm/shop2\n"));
    ctx = request("/shop/moved");
    EXPECT_EQ(map(ctx), 1);
    EXPECT_TRUE(traced("null edition name"));
}

TEST_F(RequestMapperTest, ACopyThatFailsRejectsTheRequest) {
    makeShop();
    for (const char *path : {"/shop/plain", "/shop/beta", "/shop/moved"}) {
        TavHttpContext whole = request(path);
        map(whole);
        for (int i = 0; i < whole.copies; i++) {
            TavHttpContext ctx = request(path);
            ctx.copyFails = i;
            EXPECT_EQ(outcome(map(ctx), ctx).substr(0, 23), "-1 reject 500 no memory") << path << " " << i;
        }
    }
    TavHttpContext rejected = request("/shop/closed");
    rejected.copyFails = 0;
    EXPECT_EQ(outcome(map(rejected), rejected), "1 reject 503 -"); // the rejection holds without its text
    std::string longPath = "/shop/" + std::string(3000, 'x');
    failEachAllocation([&](auto failed) {
        TavHttpContext ctx = request(longPath.c_str());
        int result = map(ctx); // a rule whose value finds no memory does not match
        EXPECT_TRUE(result == 1 || failed());
        EXPECT_EQ(ctx.errorCode, result == -1 ? 500 : ctx.action == REJECT ? ctx.errorCode : 0);
        EXPECT_NE(ctx.action, NONE);
    });
}

TEST_F(RequestMapperTest, EditionsShareTheirRoot) {
    Application *one = application("/app/shop-edition1.0", "1.0");
    Application *two = application("/app/shop-edition2.0-edition3", "2.0");
    Application *same = application("/app/shop-edition2.0b", "2.0");
    Application *other = application("/app/shopping", "");
    EXPECT_STREQ(one->root->name, "/app/shop");
    EXPECT_EQ(one->root, two->root);
    EXPECT_NE(one->root, other->root);
    EXPECT_EQ(getApplicationByEdition(one->root, "2.0"), two);
    EXPECT_EQ(getApplicationByEdition(one->root, "2"), nullptr);
    EXPECT_EQ(getApplicationByEdition(one->root, nullptr), nullptr);
    EXPECT_STREQ(rmApplicationGetSimpleName(one), "shop-edition1.0");

    module(two, "/wm/2", "/2");
    defaultWorkClass(two);
    rmWebRouteWorkClassCreate(two, "/wc/never initialised");
    // A group must not lead to a deleted module: groups go with their snapshot.
    URLMatcherDeleteVHostMatcher(rmGetURLMatcher(rm), "/vHostGroup/default");
    rmApplicationDelete(two);
    EXPECT_EQ(getApplicationByEdition(one->root, "2.0"), same);
    rmApplicationDelete(one);
    rmApplicationDelete(same);
    rmApplicationDelete(other);
    EXPECT_EQ(tavHashMapGetCount(rm->appRoots), 0);
    Application *again = application("/app/shop", "");
    EXPECT_STREQ(again->root->name, "/app/shop");
}

TEST_F(RequestMapperTest, PropertiesAreTakenByName) {
    Application *app = application("/app/a", "1");
    WebModule *webModule = rmWebModuleCreate(app, "/wm/a", 0);
    EXPECT_EQ(rmWebModuleGetSSLMapMode(webModule), NullMapMode);
    EXPECT_TRUE(rmWebModuleGetFileServingEnabled(webModule));
    struct Case {
        const char *name, *value;
        Boolean taken;
        TavSSLMapMode mode;
    } cases[] = {
        {"protocolMap", "direct", TRUE, MapInboundToOutbound},
        {"protocolMap", "http", TRUE, SSLOffLoad},
        {"protocolMap", "https", TRUE, SSLOnLoad},
        {"protocolMap", "HTTP", FALSE, SSLOnLoad},
        {"protocolMap", "", FALSE, SSLOnLoad},
        {"protocolmap", "http", FALSE, SSLOnLoad},
        {"protocolMap", nullptr, TRUE, NullMapMode},
        {"contextRoot", "/a", TRUE, NullMapMode},
        {"sessionAffinityCookies", "A,B", TRUE, NullMapMode},
        {"state", "x", FALSE, NullMapMode},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(rmWebModuleSetPropStr(webModule, c.name, c.value), c.taken) << c.name;
        EXPECT_EQ(rmWebModuleGetSSLMapMode(webModule), c.mode) << c.name;
    }
    EXPECT_STREQ(wmGetContextRoot(webModule), "/a");
    EXPECT_STREQ(wmGetSessionAffinityCookies(webModule), "A,B");
    EXPECT_FALSE(rmWebModuleSetPropBool(webModule, "routingEnabled", FALSE));
    EXPECT_TRUE(rmWebModuleSetPropBool(webModule, "fileServingEnabled", FALSE));
    EXPECT_FALSE(rmWebModuleGetFileServingEnabled(webModule));
    EXPECT_FALSE(rmWebModuleSetPropInt(webModule, "fileServingEnabled", 1));

    EXPECT_TRUE(rmApplicationSetPropStr(app, "state", "STARTED"));
    EXPECT_TRUE(rmApplicationSetPropStr(app, "sessionAffinityCookies", "C"));
    EXPECT_FALSE(rmApplicationSetPropStr(app, "Edition", "2"));
    EXPECT_FALSE(rmApplicationSetPropBool(app, "state", TRUE));
    EXPECT_FALSE(rmApplicationSetPropInt(app, "edition", 1));
    EXPECT_STREQ(app->edition, "1");
    EXPECT_STREQ(appGetSessionAffinityCookies(app), "C");
    const char *name = "NAME";
    const char *names[] = {name, nullptr};
    HttpAffinityPolicy *policy = hapCreate(webModule, names, ":", FALSE);
    EXPECT_FALSE(rmApplicationSetPropNull(app, "edition"));
    EXPECT_EQ(wmGetHttpAffinityPolicy(webModule), policy);
    EXPECT_TRUE(rmApplicationSetPropNull(app, "sessionAffinityCookies"));
    EXPECT_EQ(appGetSessionAffinityCookies(app), nullptr);
    EXPECT_EQ(wmGetHttpAffinityPolicy(webModule), nullptr);
    EXPECT_STREQ(hapGetCookieNames(policy)[0], "NAME"); // a request that holds it may read on
}

TEST_F(RequestMapperTest, WorkClassesEndInTheDefaultOne) {
    Application *app = application("/app/a", "1");
    module(app, "/wm/a", "/a");
    for (const char *name : {"/wc/Default_HTTP_WC2", "/wc/default_http_wc", "/wc/Default_SOAP_WC"}) {
        ASSERT_TRUE(rmWebRouteWorkClassInit(rmWebRouteWorkClassCreate(app, name)));
        EXPECT_EQ(app->defaultWebRouteWorkClass, nullptr) << name;
    }
    WebRouteWorkClass *workClass = rmWebRouteWorkClassCreate(app, "/wc/a,Default_HTTP_WC");
    EXPECT_EQ(tavListGetCount(app->webRouteWorkClasses), 3);
    TavHttpContext before = request("/a");
    EXPECT_EQ(outcome(map(before), before), "1 permit | a 1 /wm/a /a");
    ASSERT_TRUE(rmWebRouteWorkClassInit(workClass));
    EXPECT_EQ(tavListGetCount(app->webRouteWorkClasses), 4);

    // Rules come, change and go on a published snapshot.
    ri.published = TRUE;
    TavRule *made = rule(workClass, "/rule/x", "uri = '/a'", "reject:410");
    EXPECT_EQ(tavRuleGetOrder(made), 999800);
    EXPECT_EQ(tavRuleGetApplication(made), app);
    EXPECT_FALSE(rmEditionRoutingRuleSetPropInt(made, "action", 1));
    TavHttpContext gone = request("/a");
    EXPECT_EQ(outcome(map(gone), gone), "1 reject 410 matched reject edition routing rule");
    EXPECT_TRUE(rmEditionRoutingRuleSetPropStr(made, "action", "redirect:/b"));
    TavHttpContext moved = request("/a");
    EXPECT_STREQ(evaluateAppEditionRoutingRules(app, &moved), nullptr);
    EXPECT_EQ(text(moved.redirectURL), "/b");
    rmEditionRoutingRuleDelete(made);
    TavHttpContext none = request("/a");
    EXPECT_EQ(evaluateAppEditionRoutingRules(app, &none), nullptr);
    EXPECT_EQ(none.errorCode, 500);

    rmWebRouteWorkClassDelete(workClass);
    TavHttpContext after = request("/a");
    EXPECT_STREQ(evaluateAppEditionRoutingRules(app, &after), "1");
    EXPECT_EQ(after.action, PERMIT);
}

TEST_F(RequestMapperTest, ModulesJoinGroupsAndClusters) {
    Application *app = application("/app/a", "");
    WebModule *old = rmWebModuleCreate(app, "/wm/old", -1);
    rmWebModuleSetPropStr(old, "contextRoot", "/old");
    ASSERT_TRUE(rmWebModuleInit(old));
    ASSERT_TRUE(rmLinkVHostAndWebModule(group, old, TRUE));
    TavHttpContext ctx = request("/old/any/where.jsp");
    EXPECT_EQ(map(ctx), 1);
    EXPECT_EQ(text(ctx.moduleName), "/wm/old");
    EXPECT_EQ(text(ctx.vHostName), "/vHostGroup/default");

    ri.published = TRUE; // requests read the group: patterns are still added
    module(app, "/wm/new", "/new");
    TavHttpContext added = request("/new");
    EXPECT_EQ(map(added), 1);
    EXPECT_TRUE(rmLinkVHostAndWebModule(group, old, FALSE)); // removing does nothing
    EXPECT_EQ(map(ctx), 1);
    EXPECT_FALSE(rmLinkVHostAndWebModule(nullptr, old, TRUE));

    for (Boolean add : {TRUE, TRUE, FALSE, FALSE, TRUE}) EXPECT_TRUE(rmLinkClusterToWebModule("/cluster/x", old, add));
    EXPECT_TRUE(rmLinkClusterToWebModule("/cluster/y", old, TRUE));
    EXPECT_EQ(tavListGetCount(wmGetClusters(old)), 2);
    EXPECT_STREQ(static_cast<char *>(tavListGetHead(wmGetClusters(old))->object), "/cluster/x");
}

TEST(PathOnlyTest, CutsAtTheFirstMark) {
    struct Case {
        const char *path, *expected;
    } cases[] = {{"/a?b;c", "/a"}, {"/a;b?c", "/a"}, {"/a/b", "/a/b"}, {"?x", ""}, {"", ""}};
    for (const Case &c : cases) EXPECT_STREQ(TavText(pathOnly(c.path)).get(), c.expected);
    EXPECT_EQ(pathOnly(nullptr), nullptr);
}

TEST(AffinityPolicyTest, DescriptorsAreTakenApart) {
    struct Case {
        const char *descriptor;
        std::vector<std::string> names;
        const char *delimiter;
        Boolean learns;
    } cases[] = {
        {"A,B;+;true", {"A", "B"}, "+", TRUE},
        {"A;::;TRUE", {"A"}, "::", TRUE},
        {"A;;true", {"A"}, ":", TRUE},
        {"A;!;false", {"A"}, "!", FALSE},
        {"A;!;true ", {"A"}, "!", FALSE},
        {"A;!;true;more", {"A"}, "!", TRUE},
        {"A;!", {"A"}, "!", FALSE},
        {"A,,B", {"A", "", "B"}, ":", FALSE},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.descriptor);
        HttpAffinityPolicy *policy = hapCreate1(nullptr, c.descriptor);
        ASSERT_TRUE(policy);
        std::vector<std::string> names;
        for (const char *const *name = hapGetCookieNames(policy); *name; name++) names.push_back(*name);
        EXPECT_EQ(names, c.names);
        EXPECT_STREQ(hapGetDelimiter(policy), c.delimiter);
        EXPECT_EQ(hapGetLearnServerIDs(policy), c.learns);
        EXPECT_STREQ(policy->descriptor, c.descriptor);
        hapDelete(policy);
    }
    EXPECT_EQ(hapCreate1(nullptr, nullptr), nullptr);
}

TEST_F(RequestMapperTest, PoliciesOutliveTheirModule) {
    Application *app = application("/app/a", "");
    WebModule *webModule = rmWebModuleCreate(app, "/wm/a", 0);
    std::string own = "A";
    const char *names[] = {own.c_str(), "B", nullptr};
    HttpAffinityPolicy *first = hapCreate(webModule, names, nullptr, TRUE);
    own = "changed";
    HttpAffinityPolicy *second = hapCreate(webModule, names, "+", FALSE);
    EXPECT_EQ(wmGetHttpAffinityPolicy(webModule), second);
    EXPECT_STREQ(hapGetDelimiter(first), ":");
    EXPECT_STREQ(hapGetCookieNames(first)[0], "A");
    EXPECT_STREQ(hapGetCookieNames(first)[1], "B");
    EXPECT_EQ(hapGetCookieNames(first)[2], nullptr);
    failEachAllocation([&](auto failed) {
        HttpAffinityPolicy *policy = hapCreate(nullptr, names, ":", FALSE);
        EXPECT_EQ(policy == nullptr, failed());
        hapDelete(policy);
        policy = hapCreate1(nullptr, "A,B;+;true");
        EXPECT_TRUE(policy || failed());
        hapDelete(policy);
    });
    // Requests of several threads may each make the module's policy.
    std::thread makers[2];
    for (std::thread &maker : makers) {
        maker = std::thread([&] {
            for (int i = 0; i < 200; i++) hapCreate(webModule, names, ":", FALSE);
        });
    }
    for (std::thread &maker : makers) maker.join();
    rmWebModuleDelete(webModule);
    EXPECT_STREQ(hapGetDelimiter(second), "+");
}

TEST_F(RequestMapperTest, JsonNestsEditionsAndModules) {
    Application *one = application("/app/a-edition1", "1");
    application("/app/a-edition2", "2");
    rmWebModuleSetPropStr(rmWebModuleCreate(one,
                                            "/wm/\xff"
                                            "a",
                                            0),
                          "contextRoot", "/\xc3");
    rmWebModuleCreate(one, "/wm/b", 0);
    auto release = [](json_t *json) { json_decref(json); };
    std::unique_ptr<json_t, decltype(release)> json(rmToJSON(rm));
    ASSERT_TRUE(json);
    json_t *root = json_array_get(json.get(), 0);
    EXPECT_STREQ(json_string_value(json_object_get(root, "name")), "/app/a");
    json_t *editions = json_object_get(root, "editions");
    ASSERT_EQ(json_array_size(editions), 2u);
    json_t *modules = json_object_get(json_array_get(editions, 0), "webModules");
    ASSERT_EQ(json_array_size(modules), 2u);
    EXPECT_STREQ(json_string_value(json_object_get(json_array_get(modules, 0), "contextRoot")), "/?");
    EXPECT_STREQ(json_string_value(json_object_get(json_array_get(modules, 1), "contextRoot")), "");
    EXPECT_EQ(json_array_size(json_object_get(json_array_get(editions, 1), "webModules")), 0u);
}

TEST_F(RequestMapperTest, EachAllocationMayFail) {
    failEachAllocation([&](auto failed) {
        RequestMapper *mapper = rmCreate(&ri);
        Application *app = rmApplicationCreate(mapper, "/app/a-edition1");
        rmApplicationSetPropStr(app, "edition", "1");
        WebModule *webModule = rmWebModuleCreate(app, "/wm/a", -1);
        rmWebModuleSetPropStr(webModule, "contextRoot", "/a");
        Boolean good = rmWebModuleInit(webModule) && rmLinkClusterToWebModule("/cluster/x", webModule, TRUE);
        WebRouteWorkClass *workClass = rmWebRouteWorkClassCreate(app, "/wc/Default_HTTP_WC");
        good = rmWebRouteWorkClassInit(workClass) && good;
        TavRule *made = rmEditionRoutingRuleCreate(workClass, "/rule/1");
        good = tavRuleSetExpr(made, "uri = '/a'") && good;
        good = rmEditionRoutingRuleSetPropStr(made, "action", "permit:a-edition1") && good;
        if (!rmEditionRoutingRuleInit(made)) {
            rmEditionRoutingRuleDelete(made);
            good = FALSE;
        }
        if (webModule) rmApplicationCreate(mapper, "/app/a-edition2");
        EXPECT_TRUE(good || failed());
        rmDelete(mapper);
    });
}
