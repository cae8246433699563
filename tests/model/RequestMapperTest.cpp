#include "ModelTest.h"
#include "VHostMatcher/VHostMatcher.h"
#include "base/FailEachAllocation.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavURLMatcher/tavURLMatcher.h"
#include "tavUtil/tavString.h"

namespace {

class RequestMapperTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        rm = ri->requestMapper;
        group = createVHostMatcher(ri, "/vHostGroup/default");
        putVHost(group, "localhost", 80);
        rmAddVHostMatcher(rm, group);
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
    // Result, action and what goes with it, then application/edition/module/root.
    std::string map(const RequestPtr &request) { return outcome(rmMapRequest(rm, request.get()), *request); }
    static std::string outcome(int result, const TavHttpContext &ctx);

    RequestMapper *rm = nullptr;
    VHostMatcher *group = nullptr;
};

std::string RequestMapperTest::outcome(int result, const TavHttpContext &ctx) {
    const auto text = [](const char *value) { return std::string(value ? value : "-"); };
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
    const std::pair<const char *, const char *> cases[] = {
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
        {"/plain;v=1?w", "1 permit | plain e /wm/plain /plain"},
        {"/plain?v=1;w", "1 permit | plain e /wm/plain /plain"},
        {"/plainly", "1 permit | rootless  /wm/rootless -"},
        {"?", "0 reject 404 no mapping found"},
        {nullptr, "-1 reject 500 null path"},
    };
    for (const char *spec : {":NOTICE", ":NOTICE,http.request.map:DEBUG"}) {
        traceOn(spec);
        for (const auto &[path, expected] : cases) {
            EXPECT_EQ(map(request(path)), expected) << (path ? path : "null");
        }
    }
    EXPECT_TRUE(traced("mapped request localhost:80//shop/beta/x to web module /wm/shop2\n"));
    EXPECT_TRUE(traced("null edition name"));
    const RequestPtr other = request("/plain");
    hosts.back().host = "unknown.example";
    EXPECT_EQ(map(other), "0 reject 404 no mapping found");
    hosts.back().host = std::nullopt;
    EXPECT_EQ(map(other), "-1 reject 500 null host");
    EXPECT_EQ(rmMapRequest(nullptr, other.get()), -1);
    EXPECT_EQ(rmMapRequest(rm, nullptr), -1);
}

TEST_F(RequestMapperTest, EditionsShareTheirRoot) {
    Application *one = application("/app/shop-edition1.0", "1.0");
    Application *two = application("/app/shop-edition2.0-edition3", "2.0");
    Application *same = application("/app/shop-edition2.0b", "2.0");
    EXPECT_STREQ(one->root->name, "/app/shop");
    EXPECT_EQ(one->root, two->root);
    EXPECT_NE(one->root, application("/app/shopping", "")->root);
    EXPECT_EQ(getApplicationByEdition(one->root, "2.0"), two);
    EXPECT_EQ(getApplicationByEdition(one->root, "2"), nullptr);
    EXPECT_EQ(getApplicationByEdition(one->root, nullptr), nullptr);
    module(two, "/wm/2", "/2");
    defaultWorkClass(two);
    rmWebRouteWorkClassCreate(two, "/wc/never initialised");
    URLMatcherDeleteVHostMatcher(rmGetURLMatcher(rm), "/vHostGroup/default"); // it must not lead to a deleted module
    rmApplicationDelete(two);
    EXPECT_EQ(getApplicationByEdition(one->root, "2.0"), same);
    rmApplicationDelete(one);
    rmApplicationDelete(same);
    EXPECT_EQ(tavHashMapGetCount(rm->appRoots), 1);
    EXPECT_STREQ(application("/app/shop", "")->root->name, "/app/shop");
}

TEST_F(RequestMapperTest, WorkClassesEndInTheDefaultOne) {
    Application *app = application("/app/a", "1");
    module(app, "/wm/a", "/a");
    for (const char *name : {"/wc/Default_HTTP_WC2", "/wc/default_http_wc"}) {
        ASSERT_TRUE(rmWebRouteWorkClassInit(rmWebRouteWorkClassCreate(app, name)));
        EXPECT_EQ(app->defaultWebRouteWorkClass, nullptr) << name;
    }
    const auto mapped = [this] { return map(request("/a")); };
    EXPECT_EQ(mapped(), "1 permit | a 1 /wm/a /a");
    WebRouteWorkClass *workClass = defaultWorkClass(app);
    // Rules come, change and go on a published snapshot.
    ri->published = TRUE;
    TavRule *made = rule(workClass, "/rule/x", "uri = '/a'", "reject:410");
    EXPECT_EQ(mapped(), "1 reject 410 matched reject edition routing rule");
    EXPECT_TRUE(rmEditionRoutingRuleSetPropStr(made, "action", "redirect:/b"));
    EXPECT_EQ(mapped(), "1 redirect /b");
    rmEditionRoutingRuleDelete(made);
    EXPECT_EQ(mapped(), "1 reject 500 no edition routing rule match found; Error Status Code=500");
    rmWebRouteWorkClassDelete(workClass);
    EXPECT_EQ(mapped(), "1 permit | a 1 /wm/a /a");
}

TEST(AffinityPolicyTest, DescriptorsAreTakenApart) {
    const std::pair<const char *, const char *> cases[] = {
        {"A,B;+;true", "[A][B]+ learn"}, {"A;::;TRUE", "[A]:: learn"},    {"A;;true", "[A]: learn"}, {"A;!;false", "[A]!"},
        {"A;!;true ", "[A]!"},           {"A;!;true;more", "[A]! learn"}, {"A;!", "[A]!"},           {"A,,B", "[A][][B]:"}};
    for (const auto &[descriptor, expected] : cases) {
        HttpAffinityPolicy *policy = hapCreate1(nullptr, descriptor);
        ASSERT_TRUE(policy);
        std::string line;
        for (const char *const *name = hapGetCookieNames(policy); *name; name++) line += std::string("[") + *name + "]";
        EXPECT_EQ(line + hapGetDelimiter(policy) + (hapGetLearnServerIDs(policy) ? " learn" : ""), expected);
        hapDelete(policy);
    }
    EXPECT_EQ(hapCreate1(nullptr, nullptr), nullptr);
}

TEST_F(RequestMapperTest, PoliciesOutliveTheirModule) {
    WebModule *webModule = rmWebModuleCreate(application("/app/a", ""), "/wm/a", 0);
    std::string own = "A";
    const char *names[] = {own.c_str(), nullptr};
    HttpAffinityPolicy *first = hapCreate(webModule, names, nullptr, TRUE);
    own = "changed";
    hapCreate(webModule, names, ":", FALSE);
    rmWebModuleDelete(webModule);
    EXPECT_STREQ(hapGetCookieNames(first)[0], "A");
    EXPECT_STREQ(hapGetDelimiter(first), ":");
    settle();
    failEachAllocation([&](auto failed) {
        HttpAffinityPolicy *made = hapCreate(nullptr, names, ":", FALSE), *described = hapCreate1(nullptr, "A,B;+;true");
        EXPECT_TRUE((made && described) || failed());
        hapDelete(made);
        hapDelete(described);
    });
}
