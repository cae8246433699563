#include "LanguageFixture.h"
#include "trace/TraceFixture.h"

namespace {

ExpressionContext *plainContext() { return expressionContextCreate(EXPR_UNKNOWN, nullptr, nullptr, nullptr, 2, 7, "text"); }

TEST(ExpressionTest, CopiesStringConstants) {
    const ExpressionPtr expr(stringConstantExpressionCreate(plainContext()));
    expressionSetStringValue(expr.get(), "old");
    expressionSetStringValue(expr.get(), "value");
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, nullptr);
    intptr_t *first = expressionEvaluate(expr.get(), &evalCtx);
    intptr_t *second = expressionEvaluate(expr.get(), &evalCtx);
    EXPECT_NE(*first, *second);
    expressionCellFree(expr.get(), first);
    EXPECT_STREQ(reinterpret_cast<char *>(*second), "value");
    expressionCellFree(expr.get(), second);
    EXPECT_STREQ(expressionGetStringValue(expr.get()), "value");
    EXPECT_EQ(expressionEvaluate(expr.get(), nullptr), nullptr);
    expressionSetStringValue(expr.get(), nullptr);
    EXPECT_FALSE(expressionIsTrue(expr.get(), &evalCtx));
}

TEST(ExpressionTest, HoldsNumbersAndBooleans) {
    const ExpressionPtr number(integerConstantExpressionCreate(plainContext()));
    const ExpressionPtr large(longConstantExpressionCreate(plainContext()));
    const ExpressionPtr truth(booleanConstantExpressionCreate(plainContext()));
    expressionSetIntegerValue(number.get(), -5);
    expressionSetLongValue(large.get(), 5000000000L);
    expressionSetBooleanValue(truth.get(), TRUE);
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, nullptr);
    const std::pair<Expression *, intptr_t> cases[] = {{number.get(), -5}, {large.get(), 5000000000}, {truth.get(), 1}};
    for (const auto &[expr, word] : cases) {
        intptr_t *cell = expressionEvaluate(expr, &evalCtx);
        EXPECT_EQ(*cell, word);
        expressionCellFree(expr, cell);
    }
    EXPECT_EQ(expressionGetType(large.get()), EXPR_LONG);
    EXPECT_FALSE(expressionIsList(number.get()));
}

TEST(ExpressionTest, AnswersForNull) {
    EXPECT_EQ(expressionIsError(nullptr), 1);
    EXPECT_EQ(expressionGetType(nullptr), EXPR_UNKNOWN);
    EXPECT_FALSE(expressionIsList(nullptr));
    EXPECT_EQ(expressionGetStringValue(nullptr), nullptr);
    EXPECT_EQ(expressionGetIntegerValue(nullptr), 0);
    EXPECT_EQ(stringConstantExpressionCreate(nullptr), nullptr);
    EXPECT_EQ(operatorCreateExpression(nullptr, nullptr), nullptr);
    EXPECT_EQ(operandCreateExpression(nullptr, nullptr), nullptr);
    EXPECT_EQ(operatorContextGetNumInputs(nullptr), 0);
    EXPECT_EQ(operandContextGetArgument(nullptr, 0), nullptr);
    expressionSetStringValue(nullptr, "x");
    expressionSetError(nullptr, "x");
    expressionFree(nullptr);
    expressionContextFree(nullptr);
    EXPECT_STREQ(expressionTypeToString(EXPR_LIST), "EXPR_LIST");
    EXPECT_STREQ(expressionTypeToString(static_cast<ExpressionType>(6)), "EXPR_UNKNOWN");
}

TEST(ExpressionTest, KeepsOneError) {
    const int before = tavGetMemCount();
    ExpressionPtr expr(integerConstantExpressionCreate(plainContext()));
    EXPECT_EQ(expressionIsError(expr.get()), 0);
    expressionSetError(expr.get(), "one");
    expressionSetError(expr.get(), "two");
    EXPECT_EQ(expressionIsError(expr.get()), 1);
    EXPECT_STREQ(expressionGetErrorMessage(expr.get()), "two");
    expr.reset(); // with its error
    EXPECT_EQ(tavGetMemCount(), before);
}

TEST(ExpressionTest, CopiesOperandArguments) {
    char text[] = "first";
    const char *args[] = {text, nullptr, "third"};
    OperandContext *ctx = operandContextCreate(EXPR_INT, 1, nullptr, nullptr, 3, args, 4, "word");
    text[0] = 'X';
    EXPECT_STREQ(operandContextGetArgument(ctx, 0), "first");
    EXPECT_EQ(operandContextGetArgument(ctx, 1), nullptr);
    EXPECT_STREQ(operandContextGetArgument(ctx, 2), "third");
    EXPECT_EQ(operandContextGetArgument(ctx, 3), nullptr);
    EXPECT_EQ(operandContextGetArgument(ctx, -1), nullptr);
    EXPECT_EQ(ctx->expressionContext.exprCtxType, EXPRCTX_OPERAND);
    expressionContextFree(&ctx->expressionContext);
}

TEST(EvaluationContextTest, KeepsProperties) {
    const int before = tavGetMemCount();
    int object = 0;
    EvaluationContext *ctx = evaluationContextCreate(nullptr, &object);
    EXPECT_EQ(evaluationContextGetObject(ctx), &object);
    EXPECT_EQ(evaluationContextFindProp(ctx, "a"), nullptr);
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
    EXPECT_STREQ(evaluationContextPropGetName(prop), "a");
    EXPECT_EQ(evaluationContextSetProp(nullptr, "a", value), nullptr);
    evaluationContextFree(ctx);
    evaluationContextFree(nullptr);
    EXPECT_EQ(evaluationContextGetObject(nullptr), nullptr);
    EXPECT_EQ(tavGetMemCount(), before);
}

TEST_F(LanguageTest, WalksTrees) {
    const Parsed parsed(language.get(), "NOT name IN ('a', echo(x)) AND port = 80");
    EXPECT_EQ(parsed.error(), "List types must be homogeneous.@0");
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
    EXPECT_FALSE(expressionWalk(nullptr, nullptr, nullptr));
    EXPECT_FALSE(expressionDescribe(tree.expr.get(), nullptr));
}

class EvaluationTraceTest : public TraceTest {};

TEST_F(EvaluationTraceTest, WritesDebugLines) {
    load(
        "<trace><group name=\"http\"><group name=\"request\"><group name=\"rules\"><record name=\"process\" "
        "level=\"DEBUG\"/></group></group></group>"
        "</trace>");
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
