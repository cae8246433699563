// A language with the common words and a few operands that read from a TestRequest.
#ifndef LANGUAGE_LANGUAGEFIXTURE_H
#define LANGUAGE_LANGUAGEFIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavUtil/tavMemory.h"

struct TestRequest {
    const char *name = "/a";                   // operand "name"; null: the operand delivers no cell
    int port = 80;                             // operand "port"
    const char *groups = "('admins','users')"; // operand "groups(realm)", typed as a list
    int asked = 0;                             // evaluations of "name"
};

// name STRING, port INT (cells only), groups(realm) LIST (delivers a text cell), echo(text) STRING, pair(left, right) STRING,
// level INT with the named values low (1) and high (9), twofold STRING or INT. Null without memory.
Language *createTestLanguage();
// How often "level" was shown an expression beside it.
int validatedInputs();

// One parse: the tree or the error, with what it needs to be evaluated.
struct Parsed {
    Parsed(Language *language, const std::string &text);
    std::string error() const; // "message@position", or "unreduced", or empty
    std::string tree() const;  // as expressionDescribe writes it
    TokenizerPtr tokenizer;
    ExpressionPtr expr;
};

// The value of `text` for `request`: "TRUE"/"FALSE" for other than texts and lists, "'text'", "null", "(list)", "missing", or the parse
// error. Evaluates by value, by cell and by program and expects the same.
std::string valueOf(Language *language, const std::string &text, TestRequest *request);

class LanguageTest : public testing::Test {
protected:
    void SetUp() override {
        before_ = tavGetMemCount();
        testing::internal::CaptureStderr(); // unreduced expressions report there
        language.reset(createTestLanguage());
        ASSERT_NE(language, nullptr);
    }
    void TearDown() override {
        language.reset();
        (void)testing::internal::GetCapturedStderr();
        EXPECT_EQ(tavGetMemCount(), before_);
    }
    std::string value(const std::string &text) { return valueOf(language.get(), text, &request); }

    LanguagePtr language;
    TestRequest request;

private:
    int before_ = 0;
};

#endif
