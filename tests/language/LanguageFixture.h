// A language with the common words and a few operands that read from a TestRequest.
#ifndef LANGUAGE_LANGUAGEFIXTURE_H
#define LANGUAGE_LANGUAGEFIXTURE_H

#include <gmock/gmock.h>

#include "base/FailEachAllocation.h"
#include "support/Expressions.h"
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

class LanguageTest : public LeakFree {
protected:
    LanguageTest() {
        testing::internal::CaptureStderr(); // unreduced expressions report there
        language.reset(createTestLanguage());
    }
    ~LanguageTest() override { (void)testing::internal::GetCapturedStderr(); }
    std::string value(const std::string &text) { return valueOf(language.get(), text, &request); }

    LanguagePtr language;
    TestRequest request;
};

#endif
