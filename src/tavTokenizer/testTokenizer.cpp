// The tokenizer's own check, for a host that wants to see it on its console.
#include <cstdio>

#include "tavTokenizer/tavTokenizer.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

struct Sample {
    const char *expression;
    bool parses;
};

constexpr Sample samples[] = {
    {"A=2", true},
    {"A='a quoted literal'", true},
    {R"(A='it\'s a \"quoted\" literal')", true},
    {"A='no end", false},
    {R"(A='ends in an escaped quote\')", false},
    {R"(A='ends in a backslash\)", false},
    {R"(A='a\ b\ c')", true},
    {"('(a), b; [c]!')", true},
    {"('(a), b; [c]!', \")?{d}(*\")", true},
    {"123,123L", true},
    {"node1$server1:colony1", true},
    {"1node1$server1:colony1", true},
};

// 1 when the outcome is not the expected one.
int runSample(const Sample &sample) noexcept {
    const TokenizerPtr tokenizer(tokenizerCreate(sample.expression));
    const bool failed = tokenizerIsError(tokenizer.get()) != 0;
    if (failed && tokenizer) {
        std::printf("SYNTAX ERROR: %s\n%s\n%s\n", tavOrNull(tokenizerGetErrorMessage(tokenizer.get())),
                    tavOrNull(tokenizerGetExpressionString(tokenizer.get())),
                    tavOrNull(tokenizerGetErrorPositionIndicatorString(tokenizer.get())));
    }
    if (!failed) tokenizerPrint(tokenizer.get());
    if (failed && sample.parses) std::printf("TEST FAIL: Unexpected Syntax Error: expr={%s}\n", sample.expression);
    if (!failed && !sample.parses) {
        std::printf("TEST FAIL: Expecting syntax error, but string parsed OK. expr={%s}\n", sample.expression);
    }
    if (failed == sample.parses) return 1;
    std::printf(sample.parses ? "TEST PASS: expr={%s}\n" : "TEST PASS: (Expected syntax error) expr={%s}\n", sample.expression);
    return 0;
}

} // namespace

int testTokenizer() noexcept {
    std::printf("\n**********  TOKENIZER TESTS ***********\n");
    const int before = tavGetMemCount();
    int errors = 0;
    for (const Sample &sample : samples) errors += runSample(sample);
    if (tavGetMemCount() != before) {
        std::printf("\n!!!!  ERROR! **** MEMORY LEAK ****\n");
        ++errors;
    }
    std::printf("\n*********  TOKENIZER TESTS FINISHED WITH %d ERRORS ***********\n", errors);
    return errors;
}
