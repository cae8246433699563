// What single patterns put, which target wins, how patterns are made, and the dump.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "URIMatcher/URIMatcher.h"
#include "fakes.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

char *text(const char *literal) { return const_cast<char *>(literal); }

struct Put {
    const char *pattern;
    const char *target;
};

class Matcher {
public:
    ~Matcher() { URIMatcherDelete(matcher_); }
    operator URIMatcher *() const { return matcher_; }
    std::string match(const char *path) const {
        const auto *target = static_cast<const char *>(URIMatcherMatch(matcher_, path, nullptr));
        return target ? target : "none";
    }
    std::string dump() const {
        std::string buffer(URIMatcherInfoLength(matcher_) + 2, '#');
        buffer.replace(0, 2, ">", 2);
        URIMatcherAddInfo(matcher_, buffer.data());
        return buffer.c_str() + 1;
    }

private:
    URIMatcher *const matcher_ = URIMatcherCreate(nullptr, "m");
};

TEST(URIMatcher, SelfTest) { EXPECT_EQ(URIMatcherTest(), 0); }

// What the random patterns do not reach, and the rule that is easiest to get wrong.
TEST(URIMatcher, WhoWins) {
    const char *const defaultName = "genApp/Default_default_host_HTTP_WC", *const notGeneric = "x/Default_default_host_HTTP_WC";
    const struct {
        std::vector<Put> puts;
        const char *path, *expected;
    } cases[] = {
        {{{"/a", "1"}, {"/a/", "2"}}, "/a/", "2"},        // of the user over implied by exact
        {{{"/a/*", "1"}, {"/a", "2"}}, "/a/", "2"},       // implied by exact over implied by wildcard
        {{{"/a/*", "1"}, {"/a/bcd", "2"}}, "/a/bx", "1"}, // a partly matching edge stops the walk
        {{{"/aba*ba", "1"}}, "/aba", "1"},                // a suffix may overlap its key
        {{{"*/x", "1"}}, "x", "1"},                       // or take the slash put in front
        {{{"/a/*/b*", "1"}}, "/a/x/b", "none"},           // two stars are dropped
        {{{"/a/b", "real"}, {"/*", "genApp1"}}, "/a/b", "genApp1"},
        {{{"/*", defaultName}, {"/a", "1"}}, "/a", "1"}, // the catch-all stands behind both trees
        {{{"/*", defaultName}, {"/a", "1"}}, "/zzz", defaultName},
        {{{"/*", defaultName}}, nullptr, defaultName},
        {{{"/*", "genAppDefault_default_host_HTTP_WC"}, {"/*", defaultName}}, "/q", defaultName}, // the later one
        {{{"/*", notGeneric}, {"/a", "1"}}, "", "none"},
        {{{"*", defaultName}}, "", "none"}, // only the exact pattern makes a catch-all
    };
    for (const auto &test : cases) {
        for (const bool sealed : {false, true}) {
            SCOPED_TRACE(testing::Message() << test.puts[0].pattern << " " << tavOrNull(test.path) << (sealed ? ", sealed" : ""));
            Matcher matcher;
            for (const Put &put : test.puts) EXPECT_EQ(URIMatcherPut(matcher, put.pattern, text(put.target), FALSE), 0);
            ASSERT_TRUE(!sealed || URIMatcherSeal(matcher));
            EXPECT_EQ(matcher.match(test.path), test.expected);
        }
    }
}

TEST(URIMatcher, ToleratesNothing) {
    Matcher matcher;
    for (const char *pattern : {static_cast<const char *>(nullptr), "", "**", "/*/*"}) URIMatcherPut(matcher, pattern, text("t"), FALSE);
    URIMatcherPut(matcher, "/a", nullptr, FALSE);
    EXPECT_EQ(static_cast<URIMatcher *>(matcher)->arena.nodeCount, 0);
    EXPECT_EQ(matcher.match(nullptr), "none");
}

TEST(URIMatcher, MakePattern) {
    const struct {
        const char *root, *uri, *expected;
    } cases[] = {
        {"/app", "*.jsp", "/app/*.jsp"}, {"/app/", "/x", "/app/x"},   {"", "/x", "/x"},     {"/app", "/x", "/app/x"},
        {"/app/", "x", "/app/x"},        {nullptr, "x", "/x"},        {"nUlL", "/x", "/x"}, {"null/", "x", "null/x"},
        {"/app", nullptr, "/app/"},      {"/", nullptr, "/"},         {"/", "//x", "//x"},  {nullptr, nullptr, "/"},
        {"/app", "//x", "/app//x"},      {"/app//", "/x", "/app//x"},
    };
    for (const auto &test : cases) {
        char *pattern = URIMatcherMakePattern(test.root, test.uri);
        EXPECT_STREQ(pattern, test.expected);
        tavFree(pattern);
    }
}

TEST(URIMatcher, Dump) {
    Matcher matcher;
    URIMatcherPut(matcher, "/a/*", text("1"), FALSE);
    URIMatcherPut(matcher, "/a/*.x", text("2"), FALSE);
    URIMatcherPut(matcher, "/a/*.y", text("3"), FALSE);
    URIMatcherPut(matcher, "/ab.c", text("4"), FALSE);
    URIMatcherPut(matcher, "/q.", text("genApp5"), FALSE);
    const std::string expected =
        "\ngenAppTree:"
        "\n    chars='/q.' exact=genApp5"
        "\nrealAppTree:"
        "\n    chars='/a' exact=1"
        "\n      chars='/' exact=1 prefix=1 suffixes=(.x->2,.y->3)"
        "\n      chars='b.c' exact=4";
    EXPECT_EQ(matcher.dump(), expected);
    ASSERT_TRUE(URIMatcherSeal(matcher));
    EXPECT_EQ(matcher.dump(), expected) << "sealing keeps the order";
    WebModule webModule{"/cell/c/webModule/w", "/"};
    URIMatcherPut(matcher, "/w.", &webModule, TRUE);
    EXPECT_NE(matcher.dump().find("exact=?"), std::string::npos) << "no guess about the kind of a target";
}

} // namespace
