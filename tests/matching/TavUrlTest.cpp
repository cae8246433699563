#include "tavUrl/tavUrl.h"

#include <gtest/gtest.h>

#include "base/FailEachAllocation.h"

namespace {

TEST(TavUrl, Parses) {
    const struct {
        const char *text, *protocol, *host;
        int port;
        const char *path;
    } cases[] = {
        {"http://h", "http", "h", 80, "/"},
        {"https://h", "https", "h", 443, "/"},
        {"http://h:8080/a/b?c=d:e", "http", "h", 8080, "/a/b?c=d:e"},
        {"ftp://h:21", "ftp", "h", 21, "/"},
        {"http://h/a://b:1", "http", "h", 80, "/a://b:1"},
        {"http://h:80x/p", "http", "h", -1, "/p"},
        {"http://h:-1/p", "http", "h", -1, "/p"},
        {"http://h:1:2", "http", "h", -1, "/"},
        {"http://h:/p", "http", "h", -1, "/p"},
        {"http://h:2147483647", "http", "h", 2147483647, "/"},
        {"http://h:2147483648", "http", "h", -1, "/"},
        {"http:///p", "http", "", 80, "/p"},
        {"://h:1", "", "h", 1, "/"},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.text);
        TavUrl *url = tavUrlCreate(test.text);
        ASSERT_TRUE(url);
        EXPECT_STREQ(tavUrlGetProtocol(url), test.protocol);
        EXPECT_STREQ(tavUrlGetHost(url), test.host);
        EXPECT_EQ(tavUrlGetPort(url), test.port);
        EXPECT_STREQ(tavUrlGetPath(url), test.path);
        tavUrlDelete(url);
    }
}

TEST(TavUrl, Refuses) {
    const int before = tavGetMemCount();
    for (const char *text : {static_cast<const char *>(nullptr), "", "h", "http:/h", "http//h:80", "ftp://h", "HTTP://h", "://h"}) {
        EXPECT_EQ(tavUrlCreate(text), nullptr) << (text ? text : "null");
    }
    EXPECT_EQ(tavGetMemCount(), before);
    failEachAllocation([](auto failed) {
        TavUrl *url = tavUrlCreate("http://h:1/p");
        EXPECT_EQ(url == nullptr, failed());
        tavUrlDelete(url);
    });
}

} // namespace
