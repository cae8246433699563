#include "tavUrl/tavUrl.h"

#include <gtest/gtest.h>

#include "base/FailEachAllocation.h"

namespace {

using TavUrlTest = LeakFree;

TEST_F(TavUrlTest, ParsesOrRefuses) {
    const std::pair<const char *, std::string> cases[] = {
        {"http://h", "http|h|80|/"},
        {"https://h", "https|h|443|/"},
        {"http://h:8080/a/b?c=d:e", "http|h|8080|/a/b?c=d:e"},
        {"ftp://h:21", "ftp|h|21|/"},
        {"http://h/a://b:1", "http|h|80|/a://b:1"},
        {"http://h:80x/p", "http|h|-1|/p"},
        {"http://h:1:2", "http|h|-1|/"},
        {"http://h:/p", "http|h|-1|/p"},
        {"http://h:2147483647", "http|h|2147483647|/"},
        {"http://h:2147483648", "http|h|-1|/"},
        {"://h:1", "|h|1|/"},
        {nullptr, "-"},
        {"", "-"},
        {"http//h:80", "-"},
        {"HTTP://h", "-"},
        {"://h", "-"},
    };
    for (const auto &[text, expected] : cases) {
        TavUrl *url = tavUrlCreate(text);
        EXPECT_EQ(!url ? "-"
                       : std::string(tavUrlGetProtocol(url)) + "|" + tavUrlGetHost(url) + "|" + std::to_string(tavUrlGetPort(url)) + "|" +
                             tavUrlGetPath(url),
                  expected)
            << (text ? text : "null");
        tavUrlDelete(url);
    }
    failEachAllocation([](auto failed) {
        TavUrl *url = tavUrlCreate("http://h:1/p");
        EXPECT_EQ(url == nullptr, failed());
        tavUrlDelete(url);
    });
}

} // namespace
