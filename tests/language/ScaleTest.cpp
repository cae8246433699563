// Depth, length and memory: nothing recurses with the text, nothing leaks, whatever allocation fails.
#include <pthread.h>

#include "LanguageFixture.h"
#include "base/FailEachAllocation.h"
#include "support/FailingNew.h"

namespace {

std::string repeated(const std::string &piece, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += piece;
    return all;
}

using ScaleTest = LanguageTest;

void *runHuge(void *language);

TEST_F(ScaleTest, HandlesHugeExpressionsOnASmallStack) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 256 * 1024);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attr, runHuge, language.get()), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

void *runHuge(void *language) {
    constexpr int n = 100000;
    const struct {
        std::string expression;
        const char *value;
    } cases[] = {
        {repeated("(", n), "Expecting right parentheses@100001"},
        {repeated("(", n) + "'a'" + repeated(")", n), "(list)"},
        {"'a' = " + repeated("(", n) + "'a'" + repeated(")", n), "TRUE"},
        {repeated("(", n) + repeated(")", n), "List types must be homogeneous.@0"},
        {repeated("port = 80 AND ", n) + "port = 80", "TRUE"},
        {repeated("port = 80 AND (", n) + "port = 1" + repeated(")", n), "FALSE"},
        {repeated("NOT ", n) + "true", "TRUE"},
        {repeated("1 ", n), "unreduced"},
        {repeated("AND ", n), "unreduced"},
        {"'x' IN (" + repeated("'a', ", n) + "'x')", "TRUE"},
        {"'" + repeated("\\", 300000) + "' IS NULL", "FALSE"},
        {repeated("'a' + ", 5000) + "'a' IS NULL", "FALSE"},
    };
    for (const auto &test : cases) {
        TestRequest request;
        EXPECT_EQ(valueOf(static_cast<Language *>(language), test.expression, &request), test.value) << test.expression.substr(0, 40);
    }
    const Parsed nested(static_cast<Language *>(language), repeated("(", n) + "1" + repeated(")", n));
    EXPECT_EQ(nested.tree(), repeated("[", n) + "1" + repeated("]", n));
    return nullptr;
}

TEST(ScaleOutOfMemoryTest, FailsCleanly) {
    testing::internal::CaptureStderr();
    failEachAllocation([](auto failed) {
        const LanguagePtr language(createTestLanguage());
        EXPECT_TRUE(language || failed());
    });
    const LanguagePtr language(createTestLanguage());
    const std::string rule = "NOT pair$a$b = 'x' AND (port IN (80, 1) OR 'a' + name IS NULL) AND level = 'low' AND ('a') = (('b'))";
    TestRequest request;
    failEachAllocation([&](auto failed) {
        const NewFails guard;
        const Parsed parsed(language.get(), rule);
        if (!parsed.expr) { // whatever it was that lacked memory, it is not blamed on the text
            EXPECT_TRUE(failed());
            EXPECT_TRUE(!parsed.tokenizer || parsed.tokenizer->outOfMemory);
            EXPECT_FALSE(tokenizerHasMoreTokens(parsed.tokenizer.get()));
            return;
        }
        EvaluationContext evalCtx;
        evaluationContextInit(&evalCtx, nullptr, nullptr, &request);
        EXPECT_FALSE(expressionIsTrue(parsed.expr.get(), &evalCtx));
        expressionCellFree(parsed.expr.get(), expressionEvaluate(parsed.expr.get(), &evalCtx));
        const TavStringBufferPtr sb(sbCreate(4));
        EXPECT_TRUE(expressionDescribe(parsed.expr.get(), sb.get()) || failed());
    });
    failEachAllocation([](auto failed) {
        EvaluationContext *ctx = evaluationContextCreate(nullptr, nullptr);
        char *value = tavStrdup("v");
        if (!evaluationContextSetProp(ctx, "p", value)) {
            EXPECT_TRUE(failed());
            tavFree(value);
        }
        evaluationContextFree(ctx);
    });
    (void)testing::internal::GetCapturedStderr();
}

} // namespace
