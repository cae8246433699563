#include "VHostMatcher/VHostMatcher.h"

#include <gtest/gtest.h>
#include <jansson.h>

#include <memory>
#include <thread>
#include <vector>

#include "base/FailEachAllocation.h"
#include "fakes.h"

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

const std::string LONG_HOST(300, 'h');

TEST(VHostMatcher, Pairs) {
    const struct {
        const char *name;
        std::vector<Pair> pairs;
        const char *state;
    } cases[] = {
        {"one of each", {{"a", 1}, {"b", -1}, {"*", 2}}, "any=falseports=(2)hosts=(b)hosts:ports=(a:1)"},
        {"any swallows what follows", {{"a", 1}, {"*", -1}, {"b", 2}, {nullptr, 3}}, "any=trueports=()hosts=()hosts:ports=(a:1)"},
        {"a host for any port covers its pairs", {{"A", 1}, {"b", 1}, {"a", 2}, {"a", -1}}, "any=falseports=()hosts=(a)hosts:ports=(b:1)"},
        {"a port for any host covers its pairs", {{"a", 1}, {"b", 1}, {"a", 2}, {"*", 1}}, "any=falseports=(1)hosts=()hosts:ports=(a:2)"},
        {"covered pairs are not added", {{"a", -1}, {"*", 1}, {"A", 5}, {"b", 1}}, "any=falseports=(1)hosts=(a)hosts:ports=()"},
        {"twice is stored twice",
         {{"a", -1}, {"a", -1}, {"*", 1}, {"*", 1}, {"c", 2}, {"C", 2}},
         "any=falseports=(1,1)hosts=(a,a)hosts:ports=(c:2,C:2)"},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.name);
        const GroupPtr group(createVHostMatcher(nullptr, "g"));
        for (const Pair &pair : test.pairs) putVHost(group.get(), pair.host, pair.port);
        EXPECT_EQ(state(group.get()), test.state);
        EXPECT_TRUE(vhostMatcherIsComplete(group.get()));
    }
}

TEST(VHostMatcher, Selects) {
    const GroupPtr group(createVHostMatcher(nullptr, "g"));
    for (const Pair &pair : {Pair{"a", 1}, {"B", -1}, {"*", 2}, {LONG_HOST.c_str(), 9}}) putVHost(group.get(), pair.host, pair.port);
    const struct {
        const char *host;
        int port;
        bool selected;
    } cases[] = {
        {"a", 1, true},
        {"A", 1, true},
        {"a", 3, false},
        {"aa", 1, false},
        {"b", 77, true},
        {"b", -1, true},
        {"x", 2, true},
        {nullptr, 2, true},
        {nullptr, 1, false},
        {"*", 1, false},
        {LONG_HOST.c_str(), 9, true},
        {LONG_HOST.c_str(), 8, false},
        {"", 1, false},
        {"a", -1, false},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(matchVHost(group.get(), test.host, test.port, nullptr), test.selected)
            << (test.host ? test.host : "null") << ":" << test.port;
    }
    putVHost(group.get(), "*", -1);
    EXPECT_TRUE(matchVHost(group.get(), nullptr, -1, nullptr));
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

// Requests match while patterns are linked one by one: each linked one is found from then on, the first ones always.
TEST(VHostMatcher, LinkingUnderLoad) {
    TavRoutingInfo ri;
    WebModule webModule{"/wm", "/"}, second{"/wm2", "/"};
    const GroupPtr group(createVHostMatcher(nullptr, "g"));
    group->ri = &ri;
    const char *const patterns[] = {"/abc/def/*", "/abc/def/x", nullptr, "bad*bad*"};
    URIMatcher *original = getURIMatcher(group.get());
    ASSERT_TRUE(vhostMatcherPutPatterns(group.get(), patterns, 1, &webModule));
    EXPECT_EQ(getURIMatcher(group.get()), original) << "under construction: in place";
    ri.published = TRUE;
    ASSERT_TRUE(vhostMatcherPutPatterns(group.get(), patterns, 4, &second));
    EXPECT_EQ(matchVHostURI(group.get(), "/abc/def/x", nullptr), &second);
    EXPECT_EQ(URIMatcherMatch(original, "/abc/def/x", nullptr), &webModule) << "a request that walks the old one sees no change";
    std::atomic<bool> done{false};
    std::atomic<int> misses{0};
    std::vector<std::thread> requests;
    for (int i = 0; i < 3; ++i) {
        requests.emplace_back([&] {
            do {
                if (matchVHostURI(group.get(), "/abc/def/ghi", nullptr) != &webModule) ++misses;
            } while (!done);
        });
    }
    for (int i = 0; i < 200; ++i) {
        const std::string text = "/abc/d" + std::to_string(i * 7919 % 1000) + "/*.x";
        const char *pattern = text.c_str();
        EXPECT_TRUE(vhostMatcherPutPatterns(group.get(), &pattern, 1, &webModule));
    }
    done = true;
    for (std::thread &thread : requests) thread.join();
    EXPECT_EQ(misses, 0);
    EXPECT_EQ(matchVHostURI(group.get(), "/abc/d919/a.x", nullptr), &webModule);
}

TEST(VHostMatcher, MemoryRunsOut) {
    WebModule webModule{"/wm", "/"};
    const char *const patterns[] = {"/a/*", "/ab*.x"};
    failEachAllocation([&](auto failed) {
        TavRoutingInfo ri;
        VHostMatcher *group = createVHostMatcher(nullptr, "g");
        if (!group) return;
        group->ri = &ri;
        for (const Pair &pair : {Pair{"a", 1}, {"a", 2}, {"b", 1}, {"b", -1}, {"*", 1}, {"c", 5}}) putVHost(group, pair.host, pair.port);
        const bool paired = !failed();
        EXPECT_EQ(vhostMatcherIsComplete(group), paired);
        EXPECT_TRUE(!paired ||
                    (matchVHost(group, "b", 7, nullptr) && matchVHost(group, "x", 1, nullptr) && matchVHost(group, "c", 5, nullptr)));
        ri.published = TRUE;
        const URIMatcher *before = getURIMatcher(group);
        const bool linked = vhostMatcherPutPatterns(group, patterns, 2, &webModule);
        EXPECT_TRUE(linked || failed());
        EXPECT_EQ(getURIMatcher(group) != before, linked) << "all or nothing";
        EXPECT_EQ(matchVHostURI(group, "/ab.x", nullptr) != nullptr, linked);
        EXPECT_EQ(vhostMatcherIsComplete(group), paired) << "a refused change leaves the group whole";
        deleteVHostMatcher(group);
    });
}

} // namespace
