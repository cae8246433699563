#include "tavUtil/tavString.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "base/FailEachAllocation.h"
#include "tavLibUtil/tavObjectName.h"

namespace {

// What a function gave, as text; "<null>" for null. Frees it.
std::string taken(char *text) {
    const TavText owner(text);
    return text ? text : "<null>";
}

using StringTest = LeakFree;

} // namespace

TEST_F(StringTest, ComparesAndJoins) {
    const struct {
        const char *a, *b;
        int expected;
    } cases[] = {
        {nullptr, nullptr, 0}, {nullptr, "", 1}, {"", nullptr, -1}, {"Abc", "aBC", 0}, {"abc", "abcd", -1}, {"abcd", "ABC", 1},
        {"a", "Z", -1},        {"_", "A", -1},   {"\xe9", "z", 1},  {"z", "\xe9", -1}, // '_' lies between the cases; bytes are unsigned
    };
    for (const auto &c : cases) EXPECT_EQ(tavStrCmpIgnoreCase(c.a, c.b), c.expected) << tavOrNull(c.a) << " ? " << tavOrNull(c.b);
    EXPECT_FALSE(tavStrEquals(nullptr, nullptr));
    EXPECT_FALSE(tavStrEquals("a", "A"));
    char a[] = "a";
    for (const char *none : {static_cast<const char *>(nullptr), ""}) EXPECT_EQ(tavStringCat(a, none), a) << "no copy";
    EXPECT_EQ(taken(tavStringCat(a, "b")), "ab");
    EXPECT_EQ(taken(tavStrJoin(a, nullptr)), "a");
    EXPECT_EQ(taken(tavStrJoin(nullptr, "b")), "b");
    EXPECT_EQ(taken(tavStrJoin(nullptr, nullptr)), "<null>");
    for (const auto &[text, part] : {std::pair<const char *, const char *>(nullptr, "a"), {"a", nullptr}}) {
        EXPECT_TRUE(!tavStartsWith(text, part) && !tavEndsWith(text, part) && tavIndexOfString(text, part) == -1);
        EXPECT_EQ(tavStrSplit(text, part), nullptr);
    }
    EXPECT_FALSE(tavStartsWith("ba", "a") || tavEndsWith("b", "ab"));
}

TEST_F(StringTest, CutsByPositionAndAtTheLastCharacter) {
    const struct {
        const char *text;
        int begin, end;
        const char *expected;
    } cases[] = {{"abc", 0, 3, "abc"},    {"abc", 1, 2, "b"},   {"abc", 3, 3, ""},        {"abc", 2, 1, "<null>"},
                 {"abc", 0, 4, "<null>"}, {"", 0, 0, "<null>"}, {"abc", -1, 2, "<null>"}, {nullptr, 0, 0, "<null>"}};
    for (const auto &c : cases) {
        EXPECT_EQ(taken(tavSubstring(c.text, c.begin, c.end)), c.expected) << tavOrNull(c.text) << " " << c.begin << " " << c.end;
    }
    EXPECT_EQ(taken(tavSubstrSuffix("abc", 2)), "c");
    for (int begin : {3, INT_MAX, -1}) EXPECT_EQ(tavSubstrSuffix("abc", begin), nullptr);
    // behind the last slash, and before it
    for (const std::string row : {"a/b/c c a/b", "a/  a", "/a a <null>", "abc abc <null>", "a\\/b b a\\"}) {
        const std::string path = row.substr(0, row.find(' '));
        EXPECT_EQ(path + " " + tavStrSuffix(path.c_str(), '/') + " " + taken(tavStrPrefix(path.c_str(), '/')), row);
        EXPECT_STREQ(tavPathToName(path.c_str()), tavStrSuffix(path.c_str(), '/'));
    }
    EXPECT_STREQ(tavStrSuffix("abc", '\0'), "abc");
}

TEST_F(StringTest, TakesTheLastPairApart) {
    const struct {
        const char *name, *parent, *type, *value, *asis;
    } cases[] = {
        {"/cell/c1/node/nodeA", "/cell/c1", "node", "nodeA", "nodeA"},
        {"/cell/c1/uri/\\/a\\/*", "/cell/c1", "uri", "/a/*", "\\/a\\/*"},
        {"/cell/a\\/b/node/n", "/cell/a\\/b", "node", "n", "n"},
        {"/cell/c\\", "", "cell", "c", "c\\"},
        {"//", "", "", "", ""},
        {"/cell/c1/node", "/cell", "c1", "node", "node"}, // an odd count still goes by the last two slashes
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(tavOrNull(c.name));
        EXPECT_EQ(taken(tavGetParentName(c.name)), c.parent);
        EXPECT_EQ(taken(tavNameGetType(c.name)), c.type);
        EXPECT_EQ(taken(tavNameGetValue(c.name, FALSE)), c.value);
        EXPECT_EQ(taken(tavNameGetValue(c.name, TRUE)), c.asis);
    }
    for (const char *name : {"/cell", "/cell\\/c1", "/", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(taken(tavGetParentName(name)) + taken(tavNameGetType(name)) + taken(tavNameGetValue(name, FALSE)), "<null><null><null>");
    }
    EXPECT_EQ(taken(tavHackGetParentName("/webModule/m/uri//x/uri/y")), "/webModule/m"); // the first "/uri/" ends a URI's parent
    EXPECT_EQ(taken(tavHackGetParentName("/webModule/m/uris/a")) + taken(tavHackGetParentName("/uri/a")), "/webModule/m");
    EXPECT_EQ(taken(tavHackGetParentName("/uri")), "<null>");
}
