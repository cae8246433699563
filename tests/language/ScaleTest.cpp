// Depth and length: nothing recurses with the text.
#include <pthread.h>

#include "LanguageFixture.h"

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

} // namespace
