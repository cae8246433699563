#include <ctime>

#include "LanguageFixture.h"

namespace {

time_t fixedNow;
int fixedDraw;
time_t givenNow(time_t *) { return fixedNow; }
int givenDraw() { return fixedDraw; }

time_t at(int year, int month, int day, int hour, int minute, int second) {
    struct tm local = {second, minute, hour, day, month - 1, year - 1900, 0, 0, -1, 0, nullptr};
    return mktime(&local);
}

// A time of the day that the tests begin on, a Saturday.
time_t at(int hour, int minute, int second) { return at(2026, 11, 14, hour, minute, second); }

class CommonOperandTest : public LanguageTest {
protected:
    CommonOperandTest() {
        fixedNow = at(12, 30, 15);
        tavCommonLanguageSetNow(givenNow);
        tavCommonLanguageSetRandom(givenDraw);
    }
    ~CommonOperandTest() override {
        tavCommonLanguageSetNow(nullptr);
        tavCommonLanguageSetRandom(nullptr);
    }
};

TEST_F(CommonOperandTest, DrawsPercentages) {
    const struct {
        int draw;
        const char *expression, *value;
    } cases[] = {
        {100, "percentage$100", "TRUE"},   {101, "percentage$0", "TRUE"},           {1, "percentage$0", "FALSE"},
        {151, "percentage('50')", "TRUE"}, {152, "percentage('50')", "FALSE"},      {1, "percentage('abc')", "FALSE"},
        {0, "percentage$-1", "FALSE"},     {3, "percentage('3 and more')", "TRUE"}, {100, "percentage$99999999999", "TRUE"},
    };
    for (const auto &test : cases) {
        fixedDraw = test.draw;
        EXPECT_EQ(value(test.expression), test.value) << test.expression << " drawing " << test.draw;
    }
    tavCommonLanguageSetRandom(nullptr);
    EXPECT_EQ(value("percentage$100 AND NOT percentage$-1"), "TRUE"); // whatever is drawn
}

TEST(TimeOpTest, ParsesPointsInTime) {
    const struct {
        const char *text;
        time_op parsed;
    } cases[] = {
        {"mon/14/Nov/2026/09:30:00", {1, 14, 10, 2026, 9, 30, 0}},
        {"SAT/1/jAN/99/1:2:3", {6, 1, 0, 99, 1, 2, 3}},
        {"sun/-/-/-/09:00:00", {0, -1, -1, -1, 9, 0, 0}},
        {"mon//Nov", {1, -1, 10, -1, -1, -1, -1}}, // empty fields count
        {"Monday/1x/November/+2026/-9:1234567890:5", {-1, -1, -1, -1, -1, -1, 5}},
        {"fri/1/Feb/2026/1/2/3:99:extra", {5, 1, 1, 2026, 1, 2, 3}},
        {nullptr, {-1, -1, -1, -1, -1, -1, -1}},
    };
    for (const auto &test : cases) {
        const time_op op = timeOpParse(test.text);
        const int32_t got[] = {op.wday, op.day, op.month, op.year, op.hour, op.min, op.sec};
        const time_op &want = test.parsed;
        EXPECT_THAT(got, testing::ElementsAre(want.wday, want.day, want.month, want.year, want.hour, want.min, want.sec)) << test.text;
    }
}

TEST_F(CommonOperandTest, OpensTimeWindows) {
    const std::string daily = "time('sun/-/-/-/09:00:00', 'sun/-/-/-/17:00:00')"; // on a Saturday: the weekday does not matter
    const struct {
        time_t now;
        std::string expression;
        const char *value;
    } cases[] = {
        {at(8, 59, 59), daily, "FALSE"},
        {at(9, 0, 0), daily, "TRUE"},
        {at(16, 59, 59), daily, "TRUE"},
        {at(17, 0, 0), daily, "FALSE"},
        {at(12, 0, 0), "time$mon/14/Nov/2026/09:30:00$mon/15/Nov/2026/09:30:00", "TRUE"},
        {at(12, 0, 0), "time(stopTime='/15/Nov/2026', startTime='/13/Nov/2026')", "TRUE"},
        {at(2027, 1, 1, 0, 0, 0), "time('/31/Dec/2026', '/2/Jan/2027')", "TRUE"}, // the year decides before the month
        {at(23, 30, 0), "time('////23:00:00', '////01:00:00')", "FALSE"},         // never over midnight
        {at(12, 30, 15), "time('////12:30', '////12:30')", "FALSE"},
        {at(12, 30, 15), "time('////12:30:16', '////12:31')", "FALSE"},
        {at(12, 30, 15), "time('', '////13')", "TRUE"},
    };
    for (const auto &test : cases) {
        fixedNow = test.now;
        EXPECT_EQ(value(test.expression), test.value) << test.expression;
    }
}

TEST_F(CommonOperandTest, RampsUp) {
    const std::string hour = "rampup('/14/Nov/2026/12:00:00', '/14/Nov/2026/13:00:00')", daily = "rampup('////12:00:00', '////13:00:00')";
    const struct {
        time_t now;
        int draw;
        std::string expression;
        const char *value;
    } cases[] = {
        // The threshold must be passed, the draw is taken modulo the span, and it is off again at the end.
        {at(11, 59, 59), 0, hour, "FALSE"},
        {at(12, 0, 0), 0, hour, "FALSE"},
        {at(12, 0, 1), 0, hour, "TRUE"},
        {at(12, 0, 1), 3600, hour, "TRUE"},
        {at(12, 30, 0), 1799, hour, "TRUE"},
        {at(12, 30, 0), 1800, hour, "FALSE"},
        {at(12, 59, 59), 3598, hour, "TRUE"},
        {at(13, 0, 0), 0, hour, "FALSE"},
        {at(12, 0, 30), 0, "rampup('/14/Nov/2026/12:00', '/14/Nov/2026/12:00:59')", "FALSE"}, // no span
        {at(12, 0, 0), 0, daily, "FALSE"},
        {at(2026, 12, 31, 12, 0, 1), 0, daily, "TRUE"}, // starts on 31 December
    };
    for (const auto &test : cases) {
        fixedNow = test.now;
        fixedDraw = test.draw;
        EXPECT_EQ(value(test.expression), test.value) << test.expression << " drawing " << test.draw;
    }
    const Parsed parsed(language.get(), daily); // keeps the year of its creation
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, nullptr);
    fixedNow = at(2027, 1, 5, 12, 0, 1);
    fixedDraw = 3599;
    EXPECT_TRUE(expressionIsTrue(parsed.expr.get(), &evalCtx)) << "all of the span lies behind";
}

} // namespace
