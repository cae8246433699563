#include "LanguageFixture.h"

namespace {

ExpressionContext *plainContext() { return expressionContextCreate(EXPR_UNKNOWN, nullptr, nullptr, nullptr, 2, 7, "text"); }

TEST(ExpressionTest, HoldsConstants) {
    const int before = tavGetMemCount();
    ExpressionPtr text(stringConstantExpressionCreate(plainContext())), large(longConstantExpressionCreate(plainContext()));
    expressionSetLongValue(large.get(), 5000000000L);
    for (const char *value : {"old", "value"}) expressionSetStringValue(text.get(), value);
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, nullptr);
    intptr_t *word = expressionEvaluate(large.get(), &evalCtx);
    intptr_t *first = expressionEvaluate(text.get(), &evalCtx), *second = expressionEvaluate(text.get(), &evalCtx);
    EXPECT_EQ(*word, 5000000000L);
    EXPECT_NE(*first, *second) << "each a copy";
    expressionCellFree(text.get(), first);
    EXPECT_STREQ(reinterpret_cast<char *>(*second), "value");
    expressionCellFree(text.get(), second);
    expressionCellFree(large.get(), word);
    expressionSetStringValue(text.get(), nullptr);
    EXPECT_FALSE(expressionIsTrue(text.get(), &evalCtx));
    for (const char *error : {"one", "two"}) expressionSetError(text.get(), error);
    EXPECT_STREQ(expressionGetErrorMessage(text.get()), "two");
    text.reset(); // with its error
    large.reset();
    EXPECT_EQ(tavGetMemCount(), before);
}

TEST(ExpressionTest, AnswersForNull) {
    EXPECT_TRUE(expressionIsError(nullptr) == 1 && expressionGetType(nullptr) == EXPR_UNKNOWN && !expressionIsList(nullptr));
    EXPECT_TRUE(!stringConstantExpressionCreate(nullptr) && !operatorCreateExpression(nullptr, nullptr));
    EXPECT_TRUE(!operandCreateExpression(nullptr, nullptr) && !operandContextGetArgument(nullptr, 0) &&
                !expressionEvaluate(nullptr, nullptr));
    expressionFree(nullptr);
    EXPECT_STREQ(expressionTypeToString(static_cast<ExpressionType>(6)), "EXPR_UNKNOWN");
}

TEST(EvaluationContextTest, KeepsProperties) {
    const int before = tavGetMemCount();
    EvaluationContext *ctx = evaluationContextCreate(nullptr, nullptr);
    char *value = tavStrdup("two");
    evaluationContextSetProp(ctx, "a", tavStrdup("one"));
    EvaluationContextProp *prop = evaluationContextSetProp(ctx, "a", value); // frees the first
    EXPECT_EQ(evaluationContextSetProp(ctx, "a", value), prop);              // the same pointer stays
    evaluationContextSetProp(ctx, "A", nullptr);
    EXPECT_EQ(tavListGetCount(ctx->properties), 2);
    EXPECT_STREQ(static_cast<char *>(evaluationContextFindPropVal(ctx, "a")), "two");
    EXPECT_EQ(evaluationContextFindPropVal(ctx, "A"), nullptr);
    EXPECT_EQ(evaluationContextFindProp(ctx, nullptr), tavListGetHead(ctx->properties));
    EXPECT_EQ(evaluationContextFindProp(ctx, "b"), nullptr);
    evaluationContextFree(ctx);
    EXPECT_EQ(tavGetMemCount(), before);
}

TEST_F(LanguageTest, WalksTrees) {
    const Parsed tree(language.get(), "NOT pair(a, b) IN ('x', 'y') AND port = 80L");
    std::string seen;
    EXPECT_TRUE(expressionWalk(
        tree.expr.get(),
        [](const ExpressionNode *node, void *passback) {
            *static_cast<std::string *>(passback) +=
                std::to_string(node->level) + node->name + "/" + std::to_string(node->numChildren) + " ";
        },
        &seen));
    EXPECT_EQ(seen, "0AND/2 1NOT/1 2STRING_IN_LIST/2 3pair/0 3list/2 4x/0 4y/0 1IntEqualsInt/2 2port/0 280L/0 ");
}

} // namespace
