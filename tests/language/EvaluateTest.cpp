#include <sstream>

#include "LanguageFixture.h"
#include "tavLanguage/conditionProgram.h"

namespace {

using EvaluateTest = LanguageTest;

TEST_F(EvaluateTest, ComputesOperators) {
    request.name = "/shop/cart";
    // Whole words are compared, not their low half; what is made for a list is no text member; null equals nothing.
    const std::pair<const char *, std::string> all[] = {
        {"TRUE",
         "1 = 1;1 <> 2;80L = port;2 > 1;1 < 2;1 >= 1;1 <= 1;5 BETWEEN 5 AND 5;9 BETWEEN 5 AND 9;'a' <> 'A';'' = '';twofold = 2;"
         "'aB' EQUALSIGNORECASE 'Ab';name = '/shop/cart';name LIKE '/shop/%';'ABC' LIKEIGNORECASE 'a%';true = true;true <> false;"
         "true AND true;false OR true;NOT false;'b' IN ('a', 'b');'abc' LIKEIN ('x%', '*c');2 IN (1, 2);twofold = 'two';"
         "'ab' IN (('a' + 'b'), ('c' + 'd'));name IS NOT NULL;nulloperand IS NULL;(1, 2) IS NOT NULL;level = 'high';"
         "99999999999999999999 = 99999999999999999999;"},
        {"FALSE",
         "1 = 2;1 <> 1;4294967376L = port;1 > 1;1 < 1;1 >= 2;2 <= 1;4 BETWEEN 5 AND 9;5 BETWEEN 9 AND 1;'a' = 'A';'ABC' LIKE 'a%';"
         "'a' EQUALSIGNORECASE 'b';true = false;true AND false;false OR false;NOT true;'B' IN ('a', 'b');'b' IN (1, 2);3 IN (1, 2);"
         "'abc' LIKEIN ('x%', '*C');80 IN (80L);'/shop/cart' IN (name);name IS NULL;'' IS NULL;nulloperand IS NOT NULL;"
         "(1, 2) IS NULL;nulloperand = nulloperand;nulloperand <> 'x';nulloperand LIKE '%';nulloperand IN ('a');"
         "nulloperand LIKEIN ('%');(1 = 2);0;"},
    };
    for (const auto &[expected, expressions] : all) {
        std::istringstream stream(expressions);
        for (std::string expression; std::getline(stream, expression, ';');) EXPECT_EQ(value(expression), expected) << expression;
    }
    const struct {
        const char *expression, *value;
    } cases[] = {
        {"'a' + 'b'", "'ab'"},         {"'' + ''", "''"},        {"'a' + nulloperand", "null"},
        {"nulloperand + 'a'", "null"}, {"((1 = 2))", "(list)"},  {"pair(right='2', left='1')", "'1|2'"},
        {"echo(a) + echo(b)", "'ab'"}, {"name", "'/shop/cart'"}, {"nulloperand", "null"},
        {"twofold", "'two'"}, // returns no boolean: its first type decides
    };
    for (const auto &test : cases) EXPECT_EQ(value(test.expression), test.value) << test.expression;
}

TEST_F(EvaluateTest, EvaluatesEveryInput) {
    EXPECT_EQ(value("false AND name = 'x' OR true OR name = 'y'"), "TRUE");
    EXPECT_EQ(request.asked, 4 * 2) << "by value, for the truth, by cell and by program";
}

TEST_F(EvaluateTest, StopsAtTheFirstConditionThatHolds) {
    std::string deep = "name = '/a'"; // higher than short forms go
    for (int i = 0; i < 100; ++i) deep = "NOT (NOT (" + deep + "))";
    const Parsed no(language.get(), "name = '/b'"), tree(language.get(), "name IN ('/c')"), yes(language.get(), deep);
    const struct {
        std::vector<Expression *> conditions;
        int first, asked;
    } cases[] = {
        {{}, -1, 0},
        {{nullptr, no.expr.get(), tree.expr.get()}, -1, 2},
        {{no.expr.get(), nullptr, yes.expr.get(), tree.expr.get()}, 2, 2},
        {{tree.expr.get(), no.expr.get(), yes.expr.get(), yes.expr.get()}, 2, 3},
    };
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, &request);
    for (const auto &test : cases) {
        request.asked = 0;
        ConditionProgram *program = conditionProgramCreate(test.conditions.data(), static_cast<int>(test.conditions.size()));
        EXPECT_EQ(conditionProgramFirst(program, &evalCtx), test.first);
        EXPECT_EQ(request.asked, test.asked);
        conditionProgramFree(program);
    }
}

TEST_F(EvaluateTest, KeepsLongTextsAndManyOfThem) {
    const std::string large(2000, 'x'), middle(300, 'y');
    request.name = large.c_str();
    EXPECT_EQ(value("name = '" + large + "'"), "TRUE");
    request.name = middle.c_str();
    EXPECT_EQ(value("name + name + name"), "'" + middle + middle + middle + "'");
    const Parsed parsed(language.get(), "name = '" + middle + "' AND name = name");
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, &request);
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(expressionIsTrue(parsed.expr.get(), &evalCtx));
    EXPECT_EQ(evalCtx.scratchUsed, 0u); // the room is given back after each rule
}

// A language author's own operator that knows only cells, within and around common ones.
intptr_t *bothCell(Expression *expr, EvaluationContext *evalCtx) {
    intptr_t sum = 0;
    for (Expression *input : reinterpret_cast<Expr_Operator_AND *>(expr)->inputs) {
        intptr_t *cell = expressionEvaluate(input, evalCtx);
        sum += cell ? *cell : 0;
        expressionCellFree(input, cell);
    }
    return expressionCellCreate(sum == 2);
}

TEST_F(EvaluateTest, MixesWithOperatorsThatOnlyKnowCells) {
    langRegisterOperator(language.get(), operatorCreate("BOTH", EXPR_BOOLEAN, operatorCreateExpression_AND, operatorDestroyExpression_AND,
                                                        bothCell, 3, typeInputElementCreate(EXPR_BOOLEAN), tokenInputElementCreate("BOTH"),
                                                        typeInputElementCreate(EXPR_BOOLEAN)));
    EXPECT_EQ(value("name = '/a' BOTH port = 80"), "TRUE");
    EXPECT_EQ(value("name = '/a' BOTH false AND true"), "FALSE");
}

Expression *refuse(Operator *, OperatorContext *) { return nullptr; }

TEST_F(EvaluateTest, TakesARefusingCreatorForNoMatch) {
    langRegisterOperator(language.get(), operatorCreate("TWICE", EXPR_BOOLEAN, refuse, nullptr, nullptr, 2,
                                                        tokenInputElementCreate("TWICE"), typeInputElementCreate(EXPR_INT)));
    EXPECT_EQ(value("TWICE port"), "unreduced");
    EXPECT_EQ(value("TWICE (1)"), "unreduced");
}

TEST(WildcardTest, WalksWithOneRestart) {
    const struct {
        const char *text, *pattern;
        int sensitive, any;
    } cases[] = {
        {"abc", "a%", 1, 1},       {"abc", "*c", 1, 1},  {"abc", "abc%", 1, 1},  {"", "%", 1, 1},       {"", "", 1, 1},
        {"", "a", 0, 0},           {"abc", "ab", 0, 0},  {"abc", "bc", 0, 0},    {"abc", "%b%", 1, 1},  {"abc", "%%", 1, 1},
        {"abc", "a?c", 0, 0},      {"ABC", "a%", 0, 1},  {"abc", "%b", 0, 0},    {"abab", "%ab", 1, 1}, {"aab", "*ab", 1, 1},
        {"a*c", "a*", 0, 0},       {"a*b", "a*b", 1, 1}, {"\xc4", "\xe4", 0, 0}, // only A to Z are folded
        {"a*xb", "a*b", 0, 0},     // "*" meets "*", and the rest then finds no wildcard to start again from
        {"ababac", "%abac", 0, 0}, // a backtracking matcher would find it
    };
    for (const auto &test : cases) {
        EXPECT_EQ(wildcardTextCompare(test.text, test.pattern, 1), test.sensitive) << test.text << " " << test.pattern;
        EXPECT_EQ(wildcardTextCompare(test.text, test.pattern, 0), test.any) << test.text << " " << test.pattern;
    }
}

} // namespace
