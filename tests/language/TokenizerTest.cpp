#include "tavTokenizer/tavTokenizer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tavUtil/tavMemory.h"

namespace {

std::string tokensOf(const std::string &expression) {
    const TokenizerPtr tokenizer(tokenizerCreate(expression.c_str()));
    if (tokenizerIsError(tokenizer.get())) {
        EXPECT_EQ(tokenizerHasMoreTokens(tokenizer.get()), 0);
        EXPECT_EQ(tokenizerConsumeNextToken(tokenizer.get()), nullptr);
        return std::string("! ") + tokenizerGetErrorMessage(tokenizer.get()) + " " +
               tokenizerGetErrorPositionIndicatorString(tokenizer.get()) + std::to_string(tokenizerGetErrorPosition(tokenizer.get()));
    }
    std::string all;
    while (const Token *token = tokenizerConsumeNextToken(tokenizer.get())) {
        all += std::string(tokenTypeToString(tokenGetType(token))) + ":" + tokenGetString(token) + "@" +
               std::to_string(tokenGetPosition(token)) + " ";
    }
    return all;
}

TEST(TokenizerTest, CutsTextsIntoTokens) {
    const struct {
        const char *expression;
        const char *tokens;
    } cases[] = {
        {" \t\n", "EOF:@4 "},
        {"uri =", "Subexpression:uri@3 Subexpression:=@5 EOF:@6 "}, // a sign at the very end
        {"\"it's\"", "Literal:it's@6 EOF:@7 "},
        {"'\"'\"'\"", "Literal:\"@3 Literal:'@6 EOF:@7 "},
        {R"('it\'s' x)", "Literal:it's@6 Subexpression:x@8 EOF:@9 "},
        {R"('a \ b\\')", "Literal:a  b\\@7 EOF:@8 "},
        {"'a\rb\x80'", "Literal:a\rb\x80@6 EOF:@7 "},
        {"123,123L", "Integer:123@3 Comma:,@4 Long:123L@8 EOF:@9 "},
        {"12l3 9LL", "Long:12l@3 Integer:3@4 Long:9L@7 Subexpression:L@8 EOF:@9 "},
        {"1node1", "Integer:1@1 Subexpression:node1@6 EOF:@7 "},
        {"a<=b<>c++",
         "Subexpression:a@1 Subexpression:<=@3 Subexpression:b@4 Subexpression:<>@6 Subexpression:c@7 Subexpression:++@9 EOF:@10 "},
        {"node1$server1:colony1/[x]._-", "Subexpression:node1$server1:colony1/[x]._-@28 EOF:@29 "},
        {"'abc\"", "! Literal has no terminating character.      ^6"},
        {R"('ab\'c)", "! Literal has no terminating character.      ^6"},
        {"'abc\\", "! Last character in expression may not be an escape character.     ^5"},
        {R"('a\'b\)", "! Last character in expression may not be an escape character.     ^5"},
        {"\ra", "! Syntax error - unrecognized string. ^1"},
        {"a \xc3\xa4", "! Syntax error - unrecognized string.   ^3"},
    };
    for (const auto &test : cases) EXPECT_EQ(tokensOf(test.expression), test.tokens) << test.expression;
}

TEST(TokenizerTest, TakesEscapesOutOfTheExpression) {
    const struct {
        const char *expression;
        const char *stripped;
    } cases[] = {
        {R"('it\'s' = x\)", R"('it's' = x\)"}, // a scan that fails later keeps the rest
        {R"('\a\b\\c' + '\d')", R"('ab\c' + 'd')"}, {R"('\a')", "'a'"}, {R"('\a\)", "'a"}, {R"('\a*)", "'a*"},
    };
    for (const auto &test : cases) {
        const TokenizerPtr tokenizer(tokenizerCreate(test.expression));
        EXPECT_STREQ(tokenizerGetExpressionString(tokenizer.get()), test.stripped);
    }
    const std::string many = "'" + std::string(600000, '\\') + "'";
    const TokenizerPtr tokenizer(tokenizerCreate(many.c_str()));
    ASSERT_FALSE(tokenizerIsError(tokenizer.get()));
    EXPECT_EQ(std::strlen(tokenGetString(tokenizerPeekNextToken(tokenizer.get()))), 300000u);
}

TEST(TokenizerTest, ConsumesPeeksRewindsAndKeepsTheFirstError) {
    const TokenizerPtr owner(tokenizerCreate("a"));
    Tokenizer *tokenizer = owner.get();
    EXPECT_STREQ(tokenGetString(tokenizerPeekNextToken(tokenizer)), "a");
    EXPECT_STREQ(tokenGetString(tokenizerConsumeNextToken(tokenizer)), "a");
    EXPECT_EQ(tokenizerHasMoreTokens(tokenizer), 1); // the end is a token
    EXPECT_EQ(tokenGetType(tokenizerConsumeNextToken(tokenizer)), TOKEN_EOF);
    EXPECT_EQ(tokenizerHasMoreTokens(tokenizer), 0);
    tokenizerRewind(tokenizer);
    EXPECT_STREQ(tokenGetString(tokenizerPeekNextToken(tokenizer)), "a");
    syntaxError(tokenizer, "first", 0);
    syntaxError(tokenizer, "second", 4);
    EXPECT_STREQ(tokenizerGetErrorMessage(tokenizer), "first");
    EXPECT_STREQ(tokenizerGetErrorPositionIndicatorString(tokenizer), "^");
    EXPECT_EQ(tokenizerPeekNextToken(tokenizer), nullptr);
    EXPECT_TRUE(!tokenizerCreate(nullptr) && tokenizerIsError(nullptr) == 1 && tokenizerGetErrorPosition(nullptr) == -1);
    EXPECT_EQ(tokenGetType(nullptr), TOKEN_UNKNOWN);
    for (int outside : {23, -1}) EXPECT_STREQ(tokenTypeToString(static_cast<TOKEN_TYPE>(outside)), "Unknown");
}

TEST(TokenizerTest, PassesItsOwnCheck) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(testTokenizer(), 0);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(printed.find("SYNTAX ERROR: Literal has no terminating character.\nA='no end\n         ^\n"), std::string::npos);
    EXPECT_NE(printed.find("\n*********  TOKENIZER TESTS FINISHED WITH 0 ERRORS ***********\n"), std::string::npos);
}

} // namespace
