#include "TraceFixture.h"
#include "tavSxp/tavSxp.h"

namespace {

std::string tokens(const std::string &text, int maxLength, int state) {
    FILE *file = openText(text);
    TavSXLex *lex = tavLexCreate(file);
    std::string result;
    char buffer[64];
    while (tavLexFile(lex, buffer, maxLength, state)) result += std::string("[") + buffer + "]";
    result += " line " + std::to_string(tavLexGetLineNumber(lex));
    if (tavLexGetError(lex)) result += std::string(" ") + tavLexGetErrorString(lex);
    tavLexDestroy(lex);
    fclose(file);
    return result;
}

TEST(SxLex, CutsTokens) {
    const struct {
        const char *name;
        std::string text;
        int state;
        const char *expected;
    } cases[] = {
        {"a newline that ends a word counts once", "a\nb\n", 1, "[a][b] line 3"},
        {"unfinished quote", "a \"bc", 1, "[a] line 1"},
        {"other characters vanish", "@a#b\xe4$", 1, "[a][b] line 1"},
        {"a word's start is stricter than its rest", "_a .b a_b", 1, "[a][b][a_b] line 1"},
        {"content words run on", "a, b/c 5%-\\n ('x'); d=e", 15, "[a, b/c 5%-\\n ('x'); d][=][e] line 1"},
        {"a content sign before a word vanishes", "(a) %s = %d", 15, "[a) %s ][=][d] line 1"},
        {"NUL ends the input", std::string("a b\0c", 5), 1, "[a][b] line 1"},
        {"word too long", "x 123456789", 1, "[x] line 1 token exceeded maximum token length"},
        {"quoted text too long", "\"123456789\"", 1, " line 1 token exceeded maximum token length"},
    };
    for (const auto &c : cases) EXPECT_EQ(tokens(c.text, 8 + 32 * (c.state == 15), c.state), c.expected) << c.name;
}

std::string events;

Boolean onStart(const char *name, TavList *attributes, void *) {
    events += std::string("<") + name;
    for (const TavNVPair *pair : TavListRange<TavNVPair>(attributes)) {
        events += std::string(" ") + tavNvpairGetName(pair) + "=" + tavNvpairGetValue(pair);
    }
    events += ">";
    return strcmp(name, "refused") != 0;
}

Boolean onEnd(const char *name, const char *text, void *) {
    events += std::string("</") + name + ":" + (text ? text : "(none)") + ">";
    return strcmp(name, "refusedEnd") != 0;
}

int parse(const std::string &text) {
    TavSXParser *parser = tavSxpCreate(openText(text), TRUE);
    if (!parser) return -1;
    tavSxpSetStartFunc(parser, onStart);
    tavSxpSetEndFunc(parser, onEnd);
    int result = tavSxpParse(parser);
    tavSxpDestroy(parser);
    return result;
}

TEST(Sxp, CallsBackInTheOrderOfTheDocument) {
    const std::pair<const char *, const char *> cases[] = {
        {"<?xml a=\"1\" ? b ?><!-- a - b < c > --><a/>", "<a></a:(none)>"},
        {"<a x=\"1\" y=two x=\"\"></a>", "<a x=1 y=two x=></a:(none)>"}, // attributes in order
        {"<Ab></aB>", "<Ab></Ab:(none)>"},                               // names in any case
        {"<a>one, two = \"%s\"\n(x)</a>", "<a></a:one, two =%sx)>"},     // text is joined without blanks
        {"<a>p<b>q</b></a>", "<a><b></b:pq></a:(none)>"},                // text in front of a child goes to the child
        {"<a><b></></a>", "<a><b></b:(none)></a:(none)>"},               // short end tag
        {"<a><b/>", "<a><b></b:(none)>"},                                // an open element at the end
        {"<=></=>", "<=></=:(none)>"},                                   // a sign as a name
    };
    for (const auto &[text, expected] : cases) {
        events.clear();
        EXPECT_EQ(parse(text), 1) << text;
        EXPECT_EQ(events, expected) << text;
    }
}

TEST(Sxp, TellsTokenLineAndFile) {
    const struct {
        std::string text, message;
    } cases[] = {
        {"<a/>\nx", "Expected '<' token; got 'x'. line 2"},
        {"<a><b></a>", "Expected '>' token or b; got 'a'. line 1"},
        {"</a>", "Expected '>' token or ; got 'a'. line 1"},
        {"<a/></>", "Expected '>' token or ; got '>'. line 1"},
        {"<a b \"c\">", "Expected '=' token; got 'c'. line 1"},
        {"<!-x", "Expected second dash of comment start; got 'x'. line 1"},
        {"<!-- a -- b -->", "Expected comment end; got 'b'. line 1"},
        {"<refused/>", "Start element returned FALSE for refused. line 1"},
        {"<refusedEnd/>", "End element returned FALSE for refusedEnd. line 1"},
        {"<a b=\"c\"\n", "Lexer returned NULL. Line 2"},
        {"<a>b", "Lexer returned NULL. Line 1"},
        {"<a>" + std::string(4096, 'x'), "Lexer returned NULL. Line 1"},
        {std::string(4096, 'x'), "Lexer returned NULL. Line 1"},
    };
    for (const auto &c : cases) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(parse(c.text), 0) << c.text;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "tavSxpParse: " + c.message + " of tav-trace.xml\n");
    }
    EXPECT_EQ(parse("<a>" + std::string(4095, 'x') + "</a>"), 1);
}

} // namespace
