#include <gtest/gtest.h>
#include <jansson.h>

#include <memory>
#include <string>

#include "vHost/vHost.h"

namespace {

using VHostPtr = std::unique_ptr<VHost, decltype([](VHost *vhost) { vHostDelete(vhost); })>;

TEST(VHost, Matching) {
    const struct {
        const char *host;
        int port;
        const char *askHost;
        int askPort;
        bool matches, equal;
    } cases[] = {
        {"Shop", 80, "sHOP", 80, true, true}, {"shop", -1, "shop", 81, true, false}, {nullptr, 80, "any", 80, true, false},
        {"*", 80, nullptr, 80, true, true},   {"shop", 80, "*", 80, false, false},   {"sh\xD6p", 80, "sh\xF6p", 80, false, false},
    };
    for (const auto &test : cases) {
        const VHostPtr vhost(VHostCreate(nullptr, test.host, test.port, FALSE));
        EXPECT_EQ(match(vhost.get(), test.askHost, test.askPort), test.matches) << getKey(vhost.get());
        EXPECT_EQ(equals(vhost.get(), test.askHost, test.askPort), test.equal) << getKey(vhost.get());
    }
}

TEST(VHost, OwnMatcher) {
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

TEST(VHost, JsonTextMendsBytes) {
    const std::pair<const char *, const char *> cases[] = {
        {nullptr, ""},      {"a\xFF\x62", "a?b"},    {"\xC3", "?"},
        {"\xC3(", "?("},    {"\xE2\x82", "??"},      {"\x80\xC3\xA4", "?\xC3\xA4"},
        {"\xC0\xAF", "??"}, {"\xED\xA0\x80", "???"}, {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
    };
    for (const auto &[text, expected] : cases) {
        json_t *json = vhostJsonText(text);
        EXPECT_STREQ(json_string_value(json), expected);
        json_decref(json);
    }
}

} // namespace
