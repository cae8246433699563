#include "VHostMatcher/VHostMatcher.h"

#include <gtest/gtest.h>
#include <jansson.h>

#include <memory>
#include <vector>

#include "fakes.h"
#include "tavUtil/tavString.h"
#include "vHost/vHost.h"

namespace {

using GroupPtr = std::unique_ptr<VHostMatcher, decltype([](VHostMatcher *matcher) { deleteVHostMatcher(matcher); })>;

struct Pair {
    const char *host;
    int port;
};

std::string info(const VHostMatcher *matcher) {
    std::string buffer(vhostMatcherInfoLength(matcher) + 1, '\0');
    addInfoVHostMatcher(matcher, buffer.data());
    return buffer.c_str();
}

// The head of the dump names all that the pairs left behind.
std::string state(const VHostMatcher *matcher) {
    const std::string text = info(matcher);
    std::string result;
    for (size_t at = text.find("any="); at < text.find("\ngenAppTree"); ++at) {
        if (text[at] != ' ' && text[at] != '\n') result += text[at];
    }
    return result;
}

TEST(VHostMatcher, Pairs) {
    const struct {
        std::vector<Pair> pairs;
        const char *state;
    } cases[] = {
        {{{"a", 1}, {"b", -1}, {"*", 2}}, "any=falseports=(2)hosts=(b)hosts:ports=(a:1)"},
        // any swallows what follows; a host for any port covers its pairs, a port for any host too; what is covered is not added
        {{{"a", 1}, {"*", -1}, {"b", 2}, {nullptr, 3}}, "any=trueports=()hosts=()hosts:ports=(a:1)"},
        {{{"A", 1}, {"b", 1}, {"a", 2}, {"a", -1}}, "any=falseports=()hosts=(a)hosts:ports=(b:1)"},
        {{{"a", 1}, {"b", 1}, {"a", 2}, {"*", 1}}, "any=falseports=(1)hosts=()hosts:ports=(a:2)"},
        {{{"a", -1}, {"*", 1}, {"A", 5}, {"b", 1}}, "any=falseports=(1)hosts=(a)hosts:ports=()"},
        // twice is stored twice
        {{{"a", -1}, {"a", -1}, {"*", 1}, {"*", 1}, {"c", 2}, {"C", 2}}, "any=falseports=(1,1)hosts=(a,a)hosts:ports=(c:2,C:2)"},
    };
    for (const auto &test : cases) {
        const GroupPtr group(createVHostMatcher(nullptr, "g"));
        for (const Pair &pair : test.pairs) putVHost(group.get(), pair.host, pair.port);
        EXPECT_EQ(state(group.get()), test.state);
        EXPECT_TRUE(vhostMatcherIsComplete(group.get()));
    }
}

TEST(VHostMatcher, DeletingPairs) {
    const GroupPtr group(createVHostMatcher(nullptr, "g"));
    VHost *first = putVHost(group.get(), "a", 1);
    VHost *twin = putVHost(group.get(), "A", 1);
    VHost *other = putVHost(group.get(), "b", 1);
    delVHost(group.get(), first);
    EXPECT_TRUE(matchVHost(group.get(), "a", 1, nullptr)) << "its twin is still there";
    delVHost(group.get(), twin);
    EXPECT_FALSE(matchVHost(group.get(), "a", 1, nullptr));
    const GroupPtr elsewhere(createVHostMatcher(nullptr, "e"));
    VHost *stranger = putVHost(elsewhere.get(), "b", 1);
    delVHost(group.get(), stranger);
    EXPECT_EQ(state(group.get()), "any=falseports=()hosts=()hosts:ports=(b:1)");
    putVHost(group.get(), "b", 2);
    pruneByHost(group.get(), getHost(other)); // the text dies on the way
    EXPECT_EQ(state(group.get()), "any=falseports=()hosts=()hosts:ports=()");
    for (int port : {1, 2, 1, 1}) putVHost(group.get(), "c", port);
    pruneByPort(group.get(), 1);
    EXPECT_EQ(state(group.get()), "any=falseports=()hosts=()hosts:ports=(c:2)");
}

TEST(VHostMatcher, TextForms) {
    WebModule webModule{"/wm", "/"};
    const GroupPtr group(createVHostMatcher(nullptr, "g\xFF"));
    for (const Pair &pair : {Pair{"a", 1}, {"b", 2}, {"c", -1}, {"d", -1}, {"*", 3}, {"*", 4}}) putVHost(group.get(), pair.host, pair.port);
    const char *pattern = "/x.";
    ASSERT_TRUE(vhostMatcherPutPatterns(group.get(), &pattern, 1, &webModule));
    EXPECT_EQ(info(group.get()),
              "vhost g\xFF\n    any=false\n    ports=(3,4)\n    hosts=(c,d)\n    hosts:ports=(a:1,b:2)\n"
              "\ngenAppTree:\nrealAppTree:\n    chars='/x.' exact=/wm");
    json_t *json = vhostMatcherToJSON(group.get());
    char *text = json_dumps(json, JSON_COMPACT);
    EXPECT_STREQ(text, R"({"VHostGroup":"g?","VHosts":[{"host":"a","port":"1"},{"host":"b","port":"2"},{"host":"*","port":"3"},)"
                       R"({"host":"*","port":"4"}]})");
    free(text);
    json_decref(json);
}

// A virtual host by itself, with patterns of its own.
TEST(VHost, OwnMatcher) {
    using VHostPtr = std::unique_ptr<VHost, decltype([](VHost *vhost) { vHostDelete(vhost); })>;
    const VHostPtr vhost(VHostCreateWithURIMatcher(nullptr, "Shop", 80)), any(VHostCreateWithURIMatcher(nullptr, nullptr, -1));
    char target[] = "t";
    URIMatcherPut(getVhostUriMatcher(vhost.get()), "/a/*", target, FALSE);
    EXPECT_STREQ(getVhostUriMatcher(vhost.get())->name, "Shop:80");
    EXPECT_STREQ(getVhostUriMatcher(any.get())->name, "*:-1");
    EXPECT_STREQ(getKey(vhost.get()), "shop");
    EXPECT_EQ(matchAndgetURIMatcher(vhost.get(), "shop", 80, "/a/x"), target);
    EXPECT_EQ(matchAndgetURIMatcher(vhost.get(), "shop", 80, "/b"), nullptr);
    EXPECT_EQ(matchAndgetURIMatcher(vhost.get(), "shop", 81, "/a/x"), nullptr);
    EXPECT_EQ(compare(any.get(), vhost.get()), -1);
    EXPECT_EQ(compare(vhost.get(), vhost.get()), 0);
    EXPECT_EQ(compare(vhost.get(), any.get()), 1);
}

} // namespace
