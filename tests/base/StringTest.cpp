#include "tavUtil/tavString.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "base/FailEachAllocation.h"

namespace {

// What a function gave, as text; "<null>" for null. Frees it.
std::string taken(char *text) {
    if (!text) return "<null>";
    std::string copy(text);
    tavFree(text);
    return copy;
}

// Each piece with a ';' behind it.
std::string split(const char *text, const char *delimiter) {
    char **pieces = tavStrSplit(text, delimiter);
    if (!pieces) return "<null>";
    std::string result;
    for (char **piece = pieces; *piece; piece++) result += std::string(*piece) + ";";
    tavFreeStrSplitArray(pieces);
    return result;
}

class StringTest : public testing::Test {
protected:
    ~StringTest() override { EXPECT_EQ(tavGetMemCount(), before_); }

private:
    int before_ = tavGetMemCount();
};

} // namespace

TEST_F(StringTest, ComparesIgnoringCase) {
    const struct {
        const char *a, *b;
        int expected;
    } cases[] = {
        {nullptr, nullptr, 0}, {nullptr, "", 1}, {"", nullptr, -1}, {"Abc", "aBC", 0}, {"abc", "abcd", -1}, {"abcd", "ABC", 1},
        {"a", "Z", -1},        {"_", "A", -1},   {"\xe9", "z", 1},  {"z", "\xe9", -1}, // '_' lies between the cases; bytes are unsigned
    };
    for (const auto &c : cases) {
        EXPECT_EQ(tavStrCmpIgnoreCase(c.a, c.b), c.expected) << tavOrNull(c.a) << " ? " << tavOrNull(c.b);
    }
    EXPECT_FALSE(tavStrEquals(nullptr, nullptr));
    EXPECT_FALSE(tavStrEquals("a", "A"));
    EXPECT_TRUE(tavStrEquals("", ""));
}

TEST_F(StringTest, CatReturnsItsArgumentAndJoinACopy) {
    char a[] = "a";
    for (const char *none : {static_cast<const char *>(nullptr), ""}) EXPECT_EQ(tavStringCat(a, none), a);
    EXPECT_EQ(tavStringCat(nullptr, "b"), nullptr);
    EXPECT_EQ(taken(tavStringCat(a, "b")), "ab");
    EXPECT_EQ(taken(tavStrJoin(a, nullptr)), "a");
    EXPECT_EQ(taken(tavStrJoin(nullptr, "b")), "b");
    EXPECT_EQ(taken(tavStrJoin(nullptr, nullptr)), "<null>");
}

TEST_F(StringTest, FindsPositionsAndEnds) {
    EXPECT_EQ(tavIndexOfChar("abcb", 'b'), 1);
    EXPECT_EQ(tavIndexOfChar("abc", '\0'), -1);
    EXPECT_EQ(tavIndexOfChar(nullptr, 'b'), -1);
    const struct {
        const char *text, *part;
        bool starts, ends;
        int index;
    } cases[] = {{"aba", "ab", true, false, 0},    {"aba", "ba", false, true, 1}, {"aabab", "ab", false, true, 1},
                 {"ab", "aba", false, false, -1},  {"ab", "", true, true, 0},     {nullptr, "a", false, false, -1},
                 {"a", nullptr, false, false, -1}, {"ab", "AB", false, false, -1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << tavOrNull(c.text) << " " << tavOrNull(c.part));
        EXPECT_EQ(tavStartsWith(c.text, c.part), c.starts);
        EXPECT_EQ(tavEndsWith(c.text, c.part), c.ends);
        EXPECT_EQ(tavIndexOfString(c.text, c.part), c.index);
    }
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
    const struct {
        const char *text, *suffix, *prefix;
    } paths[] = {{"a/b/c", "c", "a/b"}, {"a/", "", "a"}, {"/a", "a", "<null>"}, {"abc", "abc", "<null>"}, {"a\\/b", "b", "a\\"}};
    for (const auto &c : paths) {
        EXPECT_STREQ(tavStrSuffix(c.text, '/'), c.suffix);
        EXPECT_STREQ(tavPathToName(c.text), c.suffix);
        EXPECT_EQ(taken(tavStrPrefix(c.text, '/')), c.prefix);
    }
    EXPECT_STREQ(tavStrSuffix("abc", '\0'), "abc");
    EXPECT_EQ(tavPathToName(nullptr), nullptr);
    EXPECT_EQ(tavStrPrefix(nullptr, '/'), nullptr);
}

TEST_F(StringTest, SplitsAndTokenizes) {
    const struct {
        const char *text, *delimiter, *pieces;
    } cases[] = {{"a_b_c", "_", "a;b;c;"}, {"a_", "_", "a;"},   {"a__", "_", "a;;"},  {"_", "_", ";"},
                 {"_a", "_", ";a;"},       {"", "_", ";"},      {"abc", "_", "abc;"}, {"a--b-c", "--", "a;b-c;"},
                 {"aaa", "aa", ";a;"},     {"a_b", "", "a_b;"}, {"", "", ";"},        {nullptr, "_", "<null>"},
                 {"a", nullptr, "<null>"}};
    for (const auto &c : cases) EXPECT_EQ(split(c.text, c.delimiter), c.pieces) << tavOrNull(c.text) << " at " << tavOrNull(c.delimiter);
    failEachAllocation([](auto failed) { EXPECT_EQ(split("a,b,c", ",") == "<null>", failed()); });

    char text[] = ", a,,b c ,", *last = nullptr;
    std::string tokens;
    for (char *token = tavStrtok(text, ", ", &last); token; token = tavStrtok(nullptr, ", ", &last)) tokens += std::string(token) + ";";
    EXPECT_EQ(tokens, "a;b;c;");
    EXPECT_EQ(tavStrtok(nullptr, ", ", &last), nullptr) << "stays at the end";
    char *never = nullptr;
    EXPECT_EQ(tavStrtok(nullptr, ",", &never), nullptr);
}

TEST_F(StringTest, ReadsAndWritesNumbers) {
    const std::pair<const char *, int> cases[] = {{"42", 42},
                                                  {" -7x", -7},
                                                  {"+3", 3},
                                                  {"", 0},
                                                  {"x1", 0},
                                                  {nullptr, 0},
                                                  {"2147483647", INT_MAX},
                                                  {"2147483648", INT_MAX},
                                                  {"-2147483649", INT_MIN},
                                                  {"99999999999999999999999", INT_MAX},
                                                  {"-99999999999999999999999", INT_MIN},
                                                  {"010", 10},
                                                  {"0x10", 0}};
    for (const auto &[text, expected] : cases) EXPECT_EQ(tavParseInt(text), expected) << tavOrNull(text);
    EXPECT_EQ(taken(tavToString(INT_MIN)), "-2147483648");
}
