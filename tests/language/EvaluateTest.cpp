#include "LanguageFixture.h"

namespace {

using EvaluateTest = LanguageTest;

TEST_F(EvaluateTest, ComputesOperators) {
    request.name = "/shop/cart";
    const struct {
        const char *expression;
        const char *value;
    } cases[] = {
        {"1 = 1", "TRUE"},
        {"1 = 2", "FALSE"},
        {"1 <> 2", "TRUE"},
        {"1 <> 1", "FALSE"},
        {"80L = port", "TRUE"},
        {"4294967376L = port", "FALSE"}, // whole words, not their low half
        {"2 > 1", "TRUE"},
        {"1 > 1", "FALSE"},
        {"1 < 1", "FALSE"},
        {"1 < 2", "TRUE"},
        {"1 >= 1", "TRUE"},
        {"1 >= 2", "FALSE"},
        {"1 <= 1", "TRUE"},
        {"2 <= 1", "FALSE"},
        {"5 BETWEEN 5 AND 5", "TRUE"},
        {"4 BETWEEN 5 AND 9", "FALSE"},
        {"9 BETWEEN 5 AND 9", "TRUE"},
        {"5 BETWEEN 9 AND 1", "FALSE"},
        {"'a' = 'a'", "TRUE"},
        {"'a' = 'A'", "FALSE"},
        {"'a' <> 'A'", "TRUE"},
        {"'' = ''", "TRUE"},
        {"'aB' EQUALSIGNORECASE 'Ab'", "TRUE"},
        {"'a' EQUALSIGNORECASE 'b'", "FALSE"},
        {"name = '/shop/cart'", "TRUE"},
        {"name LIKE '/shop/%'", "TRUE"},
        {"'ABC' LIKE 'a%'", "FALSE"},
        {"'ABC' LIKEIGNORECASE 'a%'", "TRUE"},
        {"true = true", "TRUE"},
        {"true = false", "FALSE"},
        {"true <> false", "TRUE"},
        {"true AND false", "FALSE"},
        {"true AND true", "TRUE"},
        {"false OR true", "TRUE"},
        {"false OR false", "FALSE"},
        {"NOT true", "FALSE"},
        {"NOT false", "TRUE"},
        {"'b' IN ('a', 'b')", "TRUE"},
        {"'B' IN ('a', 'b')", "FALSE"},
        {"'b' IN (1, 2)", "FALSE"},
        {"'abc' LIKEIN ('x%', '*c')", "TRUE"},
        {"'abc' LIKEIN ('x%', '*C')", "FALSE"},
        {"2 IN (1, 2)", "TRUE"},
        {"3 IN (1, 2)", "FALSE"},
        {"80 IN (80L)", "FALSE"},
        {"'ab' IN (('a' + 'b'), ('c' + 'd'))", "TRUE"},
        {"'x' IN (name)", "FALSE"},
        {"'/shop/cart' IN (name)", "FALSE"}, // made for a list, so it is no text member
        {"'a' + 'b'", "'ab'"},
        {"'' + ''", "''"},
        {"'a' + nulloperand", "null"},
        {"nulloperand + 'a'", "null"},
        {"name IS NULL", "FALSE"},
        {"name IS NOT NULL", "TRUE"},
        {"'' IS NULL", "FALSE"},
        {"nulloperand IS NULL", "TRUE"},
        {"nulloperand IS NOT NULL", "FALSE"},
        {"(1, 2) IS NULL", "FALSE"},
        {"(1, 2) IS NOT NULL", "TRUE"},
        {"nulloperand = nulloperand", "FALSE"},
        {"nulloperand <> 'x'", "FALSE"},
        {"nulloperand LIKE '%'", "FALSE"},
        {"nulloperand IN ('a')", "FALSE"},
        {"nulloperand LIKEIN ('%')", "FALSE"},
        {"level = 'high'", "TRUE"},
        {"twofold = 2", "TRUE"},
        {"twofold = 'two'", "TRUE"},
        {"pair(right='2', left='1')", "'1|2'"},
        {"echo(a) + echo(b)", "'ab'"},
        {"99999999999999999999 = 99999999999999999999", "TRUE"},
        // roots of other types count as true when the delivered word is not 0
        {"(1 = 2)", "FALSE"},
        {"((1 = 2))", "(list)"},
        {"name", "'/shop/cart'"},
        {"nulloperand", "null"},
        {"twofold", "'two'"}, // returns no boolean: its first type decides
        {"0", "FALSE"},
    };
    for (const auto &test : cases) EXPECT_EQ(value(test.expression), test.value) << test.expression;
}

TEST_F(EvaluateTest, TreatsWhatTheHostDoesNotSupplyAsFalse) {
    request.name = nullptr; // no cell at all
    for (const char *expression : {"name = '/a'", "name <> '/a'", "name IS NULL", "name IS NOT NULL", "name LIKE '%'", "name IN ('a')",
                                   "name EQUALSIGNORECASE '/a'", "name LIKEIN ('%')"}) {
        EXPECT_EQ(value(expression), "FALSE") << expression;
    }
    EXPECT_EQ(value("NOT name IS NULL"), "TRUE");
    EXPECT_EQ(value("name + 'x'"), "null");
    EXPECT_EQ(value("name"), "missing");
}

TEST_F(EvaluateTest, TakesATextTypedAsListForWhatItIs) {
    for (const char *expression : {"'admins' IN groups(r)", "'admins' LIKEIN groups(r)", "1 IN groups(r)", "groups(r) IS NULL"}) {
        EXPECT_EQ(value(expression), "FALSE") << expression;
    }
    EXPECT_EQ(value("groups(r) IS NOT NULL"), "TRUE");
    EXPECT_EQ(value("groups(r)"), "'('admins','users')'"); // its text is freed although it is typed as a list, or as a boolean here
    EXPECT_EQ(value("(groups(r))"), "(list)");
    request.groups = nullptr;
    EXPECT_EQ(value("groups(r) IS NULL"), "TRUE");
    EXPECT_EQ(value("groups(r) IS NOT NULL"), "FALSE");
}

TEST_F(EvaluateTest, EvaluatesEveryInput) {
    const Parsed parsed(language.get(), "false AND name = 'x' OR true OR name = 'y'");
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, &request);
    EXPECT_TRUE(expressionIsTrue(parsed.expr.get(), &evalCtx));
    EXPECT_EQ(request.asked, 2);
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

TEST_F(EvaluateTest, AnswersForNull) {
    const Parsed parsed(language.get(), "true AND true");
    EXPECT_EQ(expressionEvaluate(parsed.expr.get(), nullptr), nullptr);
    EXPECT_EQ(expressionEvaluate(nullptr, nullptr), nullptr);
    EXPECT_EQ(operatorEvaluate_AND(parsed.expr.get(), nullptr), nullptr);
    EXPECT_FALSE(expressionIsTrue(parsed.expr.get(), nullptr));
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
    EXPECT_EQ(operatorCreateExpression_AND(langFindOperator(language.get(), "AND"), nullptr), nullptr);
}

TEST(WildcardTest, WalksWithOneRestart) {
    const struct {
        const char *text;
        const char *pattern;
        int sensitive;
        int any;
    } cases[] = {
        {"abc", "a%", 1, 1},
        {"abc", "*c", 1, 1},
        {"abc", "abc%", 1, 1},
        {"", "%", 1, 1},
        {"", "", 1, 1},
        {"", "a", 0, 0},
        {"abc", "ab", 0, 0},
        {"abc", "bc", 0, 0},
        {"abc", "%b%", 1, 1},
        {"abc", "%%", 1, 1},
        {"abc", "a?c", 0, 0},
        {"ABC", "a%", 0, 1},
        {"abc", "%b", 0, 0},
        {"abab", "%ab", 1, 1},
        {"aab", "*ab", 1, 1},
        {"a*c", "a*", 0, 0},
        {"a*b", "a*b", 1, 1},
        {"a*xb", "a*b", 0, 0},     // "*" meets "*", and the rest then finds no wildcard to
                                   // start again from
        {"ababac", "%abac", 0, 0}, // a backtracking matcher would find it
        {"\xc4", "\xe4", 0, 0},    // only A to Z are folded
    };
    for (const auto &test : cases) {
        EXPECT_EQ(wildcardTextCompare(test.text, test.pattern, 1), test.sensitive) << test.text << " " << test.pattern;
        EXPECT_EQ(wildcardTextCompare(test.text, test.pattern, 0), test.any) << test.text << " " << test.pattern;
    }
}

} // namespace
