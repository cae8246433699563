#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "fakes.h"
#include "tavURLMatcher/tavURLMatcher.h"

namespace {

// A URL matcher with its web modules; each group gets one pattern for one module.
class Urls {
public:
    ~Urls() { tavURLMatcherDestroy(matcher); }

    VHostMatcher *add(const char *name, const char *pattern, const WebModule &webModule) {
        modules_.push_back(std::make_unique<WebModule>(webModule));
        VHostMatcher *group = createVHostMatcher(nullptr, name);
        EXPECT_TRUE(vhostMatcherPutPatterns(group, &pattern, 1, modules_.back().get()));
        EXPECT_TRUE(addVHostMatcher(matcher, group));
        return group;
    }
    std::string match(const char *host, int port, const char *path) {
        const WebModule *webModule = matchLongestURI(matcher, &ctx, host, port, path);
        return webModule ? webModule->name : "none";
    }

    URLMatcher *const matcher = tavURLMatcherCreate(nullptr);
    TavHttpContext ctx;

private:
    std::vector<std::unique_ptr<WebModule>> modules_;
};

TEST(URLMatcher, LongestContextRootWins) {
    const WebModule root{"root", "/"}, shop{"shop", "/shop"}, shop2{"shop2", "/shop"};
    const WebModule generic{"/GenericApplication/g", "/shop"}, generic2{"/GenericApplication/g2", "/shop"}, none{"none at all", "", true};
    const struct {
        std::vector<const WebModule *> groups;
        const char *expected;
        const char *vhost;
    } cases[] = {
        {{&root, &shop}, "shop", "g1"},
        // equal lengths: the first, but a real one before a generic one, and the later of two generic ones
        {{&shop, &shop2}, "shop", "g0"},
        {{&generic, &shop}, "shop", "g1"},
        {{&generic, &generic2}, "/GenericApplication/g2", "g1"},
        {{&shop, &generic}, "shop", "g0"},
        {{&generic, &root}, "/GenericApplication/g", "g0"}, // a shorter one displaces no generic one
        {{&none, &root}, "root", "g1"},                     // no context root is the shortest
        {{}, "none", ""},
    };
    for (const auto &test : cases) {
        Urls urls;
        int n = 0;
        for (const WebModule *webModule : test.groups) putVHost(urls.add(("g" + std::to_string(n++)).c_str(), "/*", *webModule), "*", -1);
        for (const bool sealed : {false, true}) {
            SCOPED_TRACE(testing::Message() << "row " << (&test - cases) << (sealed ? ", sealed" : ""));
            ASSERT_TRUE(!sealed || tavURLMatcherSeal(urls.matcher));
            EXPECT_EQ(urls.match("h", 80, "/shop/x"), test.expected);
            EXPECT_EQ(urls.ctx.matchedVHost, test.vhost);
            EXPECT_EQ(urls.ctx.hasMatchedVHost, *test.vhost != '\0');
        }
    }
}

// Two URL matchers over the same random groups, one sealed and one not, answer alike; so does a sealed one after each later change.
TEST(URLMatcher, IndexAgreesWithTheWalk) {
    const char *const hosts[] = {"a", "A", "b", "Bb", "bB", "c.example", "*", nullptr};
    const int ports[] = {-1, 80, 81, 443};
    for (unsigned seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const auto pick = [&](size_t n) { return random() % n; };
        Urls linear, sealed;
        std::vector<std::pair<VHostMatcher *, VHostMatcher *>> groups;
        const auto expectSame = [&] {
            const std::string longHost(300, 'a');
            for (const char *host : {"a", "b", "BB", "C.example", "d", "*", "", static_cast<const char *>(nullptr), longHost.c_str()}) {
                for (const int port : {-1, 80, 81, 443, 9}) {
                    ASSERT_EQ(sealed.match(host, port, "/r/x"), linear.match(host, port, "/r/x"));
                    ASSERT_EQ(sealed.ctx.matchedVHost, linear.ctx.matchedVHost);
                }
            }
        };
        const auto putPair = [&](size_t group) {
            const char *host = hosts[pick(pick(4) ? 6 : 8)];
            const int port = ports[pick(4)];
            putVHost(groups[group].first, host, port);
            putVHost(groups[group].second, host, port);
        };
        const size_t count = 1 + pick(12);
        for (size_t i = 0; i < count; ++i) {
            const std::string name = "g" + std::to_string(i);
            const WebModule webModule{(pick(3) ? "m" : "/GenericApplication/m") + name, std::string(pick(3), 'r')};
            groups.emplace_back(linear.add(name.c_str(), "/r/*", webModule), sealed.add(name.c_str(), "/r/*", webModule));
            for (size_t n = pick(4); n > 0; --n) putPair(i);
        }
        const std::string gone = "g" + std::to_string(pick(count));
        for (int change = 0; change < 4; change++) {
            ASSERT_TRUE(tavURLMatcherSeal(sealed.matcher));
            ASSERT_TRUE(sealed.matcher->index);
            ASSERT_NO_FATAL_FAILURE(expectSame());
            // A member changes, or goes: the index may not answer from the past.
            if (change == 0) putPair(pick(count));
            if (change == 1) pruneByPort(groups[0].first, 80), pruneByPort(groups[0].second, 80);
            for (URLMatcher *matcher : {linear.matcher, sealed.matcher})
                if (change == 2) URLMatcherDeleteVHostMatcher(matcher, gone.c_str());
            ASSERT_NO_FATAL_FAILURE(expectSame());
        }
    }
}

TEST(URLMatcher, Members) {
    Urls urls;
    const WebModule webModule{"m", "/"};
    VHostMatcher *older = urls.add("twin", "/*", webModule);
    VHostMatcher *newer = urls.add("twin", "/*", webModule);
    VHostMatcher *other = urls.add("other", "/*", webModule);
    putVHost(older, "old", -1);
    putVHost(other, "oth", 5);
    EXPECT_EQ(getVHostMatcher(urls.matcher, "twin"), newer);
    URLMatcherDeleteVHostMatcher(urls.matcher, "absent");
    URLMatcherDeleteVHostMatcher(urls.matcher, "twin");
    EXPECT_EQ(getVHostMatcher(urls.matcher, "twin"), nullptr);
    EXPECT_EQ(urls.match("old", 1, "/"), "m") << "the older twin stays";
    ASSERT_TRUE(tavURLMatcherSeal(urls.matcher));
    deleteVHostMatcher(older); // by its own function: it leaves the list
    EXPECT_EQ(urls.match("old", 1, "/"), "none");
    EXPECT_EQ(urls.match("oth", 5, "/"), "m");
}

// Sealing moves the patterns: what is put afterwards, in place or (published) in a changed copy, shows all the same.
TEST(URLMatcher, PatternsAfterSealing) {
    TavRoutingInfo ri;
    WebModule module{"m", "/"};
    URLMatcher *urls = tavURLMatcherCreate(&ri);
    VHostMatcher *group = createVHostMatcher(&ri, "g");
    putVHost(group, "h", 80);
    EXPECT_TRUE(addVHostMatcher(urls, group));
    for (const std::string path : {"/a/1", "/b/1", "/c/1.x", "/d/1"}) {
        ri.published = path > "/c";
        ASSERT_TRUE(ri.published || tavURLMatcherSeal(urls));
        EXPECT_EQ(matchLongestURI(urls, nullptr, "h", 80, path.c_str()), nullptr) << path;
        const std::string text = path.substr(0, 3) + "*" + path.substr(4);
        const char *pattern = text.c_str();
        EXPECT_TRUE(vhostMatcherPutPatterns(group, &pattern, 1, &module));
        EXPECT_EQ(matchLongestURI(urls, nullptr, "h", 80, path.c_str()), &module) << path;
        EXPECT_EQ(matchLongestURI(urls, nullptr, "h", 80, "/a/1"), &module) << "after " << path;
    }
    tavURLMatcherDestroy(urls);
}

} // namespace
