#include "LanguageFixture.h"

namespace {

class ParseTest : public LanguageTest {
protected:
    // The tree of each text, or its error.
    void expectOutcomes(const std::vector<std::pair<std::string, std::string>> &cases) {
        for (const auto &[text, outcome] : cases) {
            const Parsed parsed(language.get(), text);
            EXPECT_EQ(parsed.expr ? parsed.tree() : parsed.error(), outcome) << text;
        }
    }
};

TEST_F(ParseTest, GroupsByRegistrationOrderAndArrival) {
    expectOutcomes({
        {"port=80 and name likein ('x')", R"(AND(IntEqualsInt(port, 80), STRING_LIKE_IN_LIST(name, ["x"])))"},
        {"true OR true AND false", "AND(OR(true, true), false)"}, // left to right
        {"NOT true AND false", "AND(NOT(true), false)"},
        {"NOT NOT port = 1", "NOT(NOT(IntEqualsInt(port, 1)))"},
        {"port BETWEEN 1 AND 5 AND true", "AND(IntBetweenInt(port, 1, 5), true)"},
        {"'a' + 'b' + name = 'c'", R"(StringEqualsString(StringConcatString(StringConcatString("a", "b"), name), "c"))"},
        {"port = (((80)))", "IntEqualsInt(port, 80)"},
        {"((1)) = ((2))", "IntEqualsInt(1, 2)"},
        {"port = 80L", "IntEqualsInt(port, 80L)"},
        {"(port = 80) = (true = false)", "BooleanEqualsBoolean(IntEqualsInt(port, 80), BooleanEqualsBoolean(true, false))"},
        {"port IN (1,)", "INT_IN_LIST(port, [1])"},
        {"name IN (('a'+'b'), ('c'+'d'))", R"(STRING_IN_LIST(name, [StringConcatString("a", "b"), StringConcatString("c", "d")]))"},
        {"groups(r) IS NOT NULL", R"(IsNotNullList(groups("r")))"},
        {"('a') IS NULL", R"(IsNull("a"))"},
        {"('a', 'b') IS NULL", R"(IsNullList(["a", "b"]))"},
        {"(1) IS NULL", R"(IsNullList([1]))"}, // a failed promotion leaves the list alone
        {"twofold = 2 AND twofold = 'two'", R"(AND(IntEqualsInt(twofold, 2), StringEqualsString(twofold, "two")))"},
        {"level = 'HIGH'", "IntEqualsInt(level, 9)"},
        {"port = 80 AND (port = 80 name) port = 1",
         "AND(IntEqualsInt(port, 80), IntEqualsInt(port, 1))"}, // a group of nothing is passed over
        // the whole may have any type
        {"'abc'", R"("abc")"},
        {"1, 2", "[1, 2]"},
        {"((port = 80))", "[IntEqualsInt(port, 80)]"},
        {"name", "name"},
        {"(name)", "[name]"},
        {"(1, 2 3)", "[1]"}, // keeps the list, loses the rest
    });
}

TEST_F(ParseTest, ReportsErrorsWithPosition) {
    expectOutcomes({
        {"foo = 1", "Identifier is unknown to language @3"},
        {"$name = 'a'", "Identifier is unknown to language @5"},
        {"port == 80", "Identifier is unknown to language @7"},
        {")", "Unmatched right parentheses@1"},
        {"(name = '/a'", "Expecting right parentheses@13"},
        {"(port = 1, port = 2)", "Found an operator when expecting a list.@0"},
        {"1 2, 3", "Unresolved list element@4"},
        {"(, 1)", "Unresolved list element@2"},
        {"(AND, 1)", "Empty expression before comma@5"},
        {"name = 'a", "Literal has no terminating character.@10"}, // the scan's error stands
    });
    // (name, name): only the last is made for a list
    for (const std::string expression : {"()", "('a' 'b')", "name IN ('/a', 1)", "(name, name)", "name IN (('a'+'b'), ('c'))"}) {
        EXPECT_EQ(Parsed(language.get(), expression).error(), "List types must be homogeneous.@0") << expression;
    }
    // alone in parentheses it was made for a list; taken out of a list the types must be equal
    for (const char *expression :
         {"", "AND", "port = 80 name", "port = 'http'", "level = 'middle'", "(true) AND true", "(name) = '/a'", "name = 'a' + 'b'",
          "name = ('a', 'b')", "port = (80L)", "'a' IN name", "name (1)", "pair(left=a, left=b)", "pair()", "echo() = 'x'", "time('a')"}) {
        EXPECT_EQ(Parsed(language.get(), expression).error(), "unreduced") << expression;
    }
}

TEST_F(ParseTest, ReadsOperandArguments) {
    const std::string fields99(99, '$'), fields100(100, '$');
    expectOutcomes({
        {"ECHO$x", R"(echo("x"))"},
        {"echo(x)", R"(echo("x"))"},
        {"echo('a b')", R"(echo("a b"))"},
        {"echo(text=x)", R"(echo("x"))"},
        {"echo('TEXT' == 'x y')", R"(echo("x y"))"},
        {"echo$", R"(echo(""))"},
        {"pair$$b", R"(pair("", "b"))"},
        {"pair(a, b)", R"(pair("a", "b"))"},
        {"pair(right=b, left=a)", R"(pair("a", "b"))"},
        {"percentage$100", R"(percentage("100"))"},
        {"echo", "Missing arguments@5"},
        {"echo = 'x'", "Missing arguments@6"},
        {"name$x", "Too many arguments for operand.@6"},
        {"pair$a", "Missing arguments for operand.@6"},
        {"pair$a$b$c", "Too many arguments for operand.@10"},
        {"name" + fields99, "Too many arguments for operand.@103"},
        {"name" + fields100, "Too many fields in this expression token.@104"},
        {"echo(a", "Expression has no end@7"}, // the end is skipped like any other token
        {"echo(1)", "Invalid argument list@6"},
        {"echo(a,)", "Expression has no end@7"},
        {"pair(a,)", "Missing argument after comma@8"},
        {"pair(a, right=b)", "Mixed format argument lists are not allowed@14"},
        {"pair(left=a, b)", "Mixed format argument lists are not allowed@15"},
        {"pair(a b, c)", "Expecting = in expression@8"},
        {"echo(text=)", "Invalid right-hand side in argument list@11"},
        {"echo(other=x)", "Unrecognized argument name.@12"},
        {"echo(text=x y)", "Expecting a comma@13"},
        {"echo(a, b)", "Expression has no end@7"},
        {"echo(a 5)", "Expression has no end@8"}, // skips the number, and its turn is gone
        {"percentage(100)", "Invalid argument list@14"},
    });
}

TEST_F(ParseTest, SplitsAtTheFieldSeparatorOfTheLanguage) {
    langSetFieldSeparator(language.get(), "::");
    EXPECT_EQ(Parsed(language.get(), "pair::a::b").tree(), R"(pair("a", "b"))");
    EXPECT_EQ(Parsed(language.get(), "echo$x").error(), "Identifier is unknown to language @6");
    for (const char *none : {static_cast<const char *>(nullptr), ""}) {
        langSetFieldSeparator(language.get(), none);
        EXPECT_EQ(Parsed(language.get(), "echo(a$b)").tree(), R"(echo("a$b"))");
    }
}

} // namespace
