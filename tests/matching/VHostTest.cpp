#include <gtest/gtest.h>
#include <jansson.h>

#include <memory>
#include <string>

#include "base/FailEachAllocation.h"
#include "vHost/vHost.h"

namespace {

struct VHostDeleter {
    void operator()(VHost *vhost) const { vHostDelete(vhost); }
};
typedef std::unique_ptr<VHost, VHostDeleter> VHostPtr;

TEST(VHost, Matching) {
    const struct {
        const char *host;
        int port;
        const char *askHost;
        int askPort;
        bool matches, equal;
    } cases[] = {
        {"Shop", 80, "sHOP", 80, true, true},    {"shop", 80, "shop", 81, false, false},
        {"shop", 80, "shops", 80, false, false}, {"shop", 80, "sho", 80, false, false},
        {"shop", -1, "shop", 81, true, false},   {"shop", -1, "shop", -1, true, true},
        {nullptr, 80, "any", 80, true, false},   {"*", 80, "any", 80, true, false},
        {"*", 80, nullptr, 80, true, true},      {nullptr, 80, "*", 80, true, true},
        {"shop", 80, nullptr, 80, false, false}, {"shop", 80, "*", 80, false, false},
        {nullptr, -1, nullptr, 5, true, false},  {"sh\xD6p", 80, "sh\xF6p", 80, false, false},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(testing::Message() << (test.host ? test.host : "null") << ":" << test.port << " asked "
                                        << (test.askHost ? test.askHost : "null") << ":" << test.askPort);
        const VHostPtr vhost(VHostCreate(nullptr, test.host, test.port, FALSE));
        EXPECT_EQ(match(vhost.get(), test.askHost, test.askPort), test.matches);
        EXPECT_EQ(equals(vhost.get(), test.askHost, test.askPort), test.equal);
    }
    const VHostPtr star(VHostCreate(nullptr, "*", 80, FALSE));
    EXPECT_FALSE(matchHost(star.get(), "*"));
    EXPECT_FALSE(matchHost(star.get(), "x"));
}

TEST(VHost, OwnMatcher) {
    const VHostPtr vhost(VHostCreateWithURIMatcher(nullptr, "Shop", 80));
    const VHostPtr plain(VHostCreate(nullptr, "Shop", 80, FALSE));
    const VHostPtr any(VHostCreateWithURIMatcher(nullptr, nullptr, -1));
    char target[] = "t";
    URIMatcherPut(getVhostUriMatcher(vhost.get()), "/a/*", target, FALSE);
    EXPECT_STREQ(getVhostUriMatcher(vhost.get())->name, "Shop:80");
    EXPECT_STREQ(getVhostUriMatcher(any.get())->name, "*:-1");
    EXPECT_STREQ(getKey(vhost.get()), "shop");
    EXPECT_STREQ(getKey(any.get()), "*");
    EXPECT_EQ(matchAndgetURIMatcher(vhost.get(), "shop", 80, "/a/x"), target);
    EXPECT_EQ(matchAndgetURIMatcherDebugCtx(vhost.get(), "shop", 80, "/a/x", nullptr), target);
    EXPECT_EQ(matchAndgetURIMatcher(vhost.get(), "shop", 80, "/b"), nullptr);
    EXPECT_EQ(matchAndgetURIMatcher(vhost.get(), "shop", 81, "/a/x"), nullptr);
    EXPECT_EQ(matchAndgetURIMatcher(vhost.get(), "other", 80, "/a/x"), nullptr);
    EXPECT_EQ(matchAndgetURIMatcher(plain.get(), "shop", 80, "/a/x"), nullptr);
    EXPECT_EQ(compare(any.get(), vhost.get()), -1);
    EXPECT_EQ(compare(vhost.get(), plain.get()), 0);
    EXPECT_EQ(compare(vhost.get(), any.get()), 1);
}

TEST(VHost, JsonTextMendsBytes) {
    const struct {
        const char *text, *expected;
    } cases[] = {
        {nullptr, ""},
        {"shop", "shop"},
        {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"a\xFF\x62", "a?b"},
        {"\xC3", "?"},
        {"\xC3(", "?("},
        {"\xE2\x82", "??"},
        {"\x80\xC3\xA4", "?\xC3\xA4"},
        {"\xC0\xAF", "??"},
        {"\xED\xA0\x80", "???"},
    };
    for (const auto &test : cases) {
        json_t *json = vhostJsonText(test.text);
        EXPECT_STREQ(json_string_value(json), test.expected);
        json_decref(json);
    }
    const VHostPtr vhost(VHostCreate(nullptr, "h\xFF", 80, FALSE));
    json_t *json = vhostToJSON(vhost.get());
    EXPECT_STREQ(json_string_value(json_object_get(json, "host")), "h?");
    EXPECT_STREQ(json_string_value(json_object_get(json, "port")), "80");
    json_decref(json);
}

TEST(VHost, MemoryRunsOut) {
    failEachAllocation([](auto failed) {
        VHost *vhost = VHostCreateWithURIMatcher(nullptr, "h", 80);
        EXPECT_EQ(vhost == nullptr, failed());
        vHostDelete(vhost);
    });
}

} // namespace
