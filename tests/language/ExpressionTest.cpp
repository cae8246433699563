#include "LanguageFixture.h"
#include "trace/TraceFixture.h"

namespace {

ExpressionContext *plainContext() { return expressionContextCreate(EXPR_UNKNOWN, nullptr, nullptr, nullptr, 2, 7, "text"); }

TEST(ExpressionTest, HoldsConstants) {
    const int before = tavGetMemCount();
    ExpressionPtr text(stringConstantExpressionCreate(plainContext())), large(longConstantExpressionCreate(plainContext()));
    expressionSetLongValue(large.get(), 5000000000L);
    expressionSetStringValue(text.get(), "old");
    expressionSetStringValue(text.get(), "value");
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
    EXPECT_EQ(expressionEvaluate(text.get(), nullptr), nullptr);
    expressionSetStringValue(text.get(), nullptr);
    EXPECT_FALSE(expressionIsTrue(text.get(), &evalCtx));
    EXPECT_EQ(expressionIsError(text.get()), 0);
    expressionSetError(text.get(), "one");
    expressionSetError(text.get(), "two");
    EXPECT_STREQ(expressionGetErrorMessage(text.get()), "two");
    text.reset(); // with its error
    large.reset();
    EXPECT_EQ(tavGetMemCount(), before);
}

TEST(ExpressionTest, AnswersForNull) {
    EXPECT_EQ(expressionIsError(nullptr), 1);
    EXPECT_EQ(expressionGetType(nullptr), EXPR_UNKNOWN);
    EXPECT_FALSE(expressionIsList(nullptr));
    EXPECT_EQ(stringConstantExpressionCreate(nullptr), nullptr);
    EXPECT_EQ(operatorCreateExpression(nullptr, nullptr), nullptr);
    EXPECT_EQ(operandCreateExpression(nullptr, nullptr), nullptr);
    EXPECT_EQ(operandContextGetArgument(nullptr, 0), nullptr);
    EXPECT_EQ(expressionEvaluate(nullptr, nullptr), nullptr);
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

using EvaluationTraceTest = TraceTest;

TEST_F(EvaluationTraceTest, WritesDebugLines) {
    load(
        "<group name=\"http\"><group name=\"request\"><group name=\"rules\"><record name=\"process\" "
        "level=DEBUG/></group></group></group>");
    trContextSetSpec(trMgrGetDefaultContext(mgr), trSpecCreate(mgr, "http.request.rules:DEBUG"));
    const LanguagePtr language(createTestLanguage());
    TestRequest request;
    EvaluationContext *evalCtx = evaluationContextCreate(trMgrGetDefaultContext(mgr), &request);
    EXPECT_EQ(evaluationContextGetTrRecord(evalCtx), trMgrGetRecord(mgr, "http.request.rules.process"));
    const struct {
        const char *expression;
        const char *line; // what follows the last "|"
    } cases[] = {
        {"port = 80", "IntEqualsInt 80=80 --> TRUE\n"},
        {"port >= 81", "IntGreaterthanEqualToInt 80>=81 --> FALSE\n"},
        {"port BETWEEN 1 AND 5", "IntBetweenInt 1<=80<=5 --> FALSE\n"},
        {"true AND false", "operatorEvaluate_AND (TRUE AND FALSE) --> FALSE"},
        {"NOT true", "operatorEvaluate_NOT (TRUE) --> FALSE"},
        {"nulloperand = nulloperand", "StringEqualsString: [(nil)]null=[(nil)]null -> FALSE"},
        {"name IN ('/a')", "EXIT: operatorEvaluate_STRINGINLIST: /a IN (list) --> TRUE"},
        {"port IN (1)", "EXIT: operatorEvaluate_INTINLIST: 80 IN (list) --> FALSE"},
        {"name IS NULL", "operatorEvaluate_IsNull: '/a'"},
        {"nulloperand IS NOT NULL", "operatorEvaluate_IsNotNull: 'null'"},
        {"percentage$100", "operandEvaluate_Percent: allow debug trace--> TRUE"},
    };
    for (const auto &test : cases) {
        const Parsed parsed(language.get(), test.expression);
        expressionIsTrue(parsed.expr.get(), evalCtx);
        EXPECT_EQ(trace::printed.substr(trace::printed.rfind('|') + 1), test.line);
    }
    request.name = nullptr;
    expressionIsTrue(Parsed(language.get(), "name = 'x'").expr.get(), evalCtx);
    EXPECT_EQ(trace::printed.substr(trace::printed.rfind('|') + 1), "StringEqualsString: INTERNAL ERROR: NULL parameter!");
    evaluationContextFree(evalCtx);
}

} // namespace
