#include "tavUtil/tavTime.h"

#include <gtest/gtest.h>

namespace {

TavTime now;
TavTime testClock() { return now; }

struct TimeTest : testing::Test {
    TimeTest() { tavSetClock(testClock); }
    ~TimeTest() override { tavSetClock(nullptr); }
};

} // namespace

TEST_F(TimeTest, ArithmeticWraps) {
    EXPECT_EQ(tavTimeFromSeconds(4294968), 704U);
    now = 5;
    EXPECT_EQ(tavTimeElapsedMilliSeconds(0xfffffffbU), 10U);
    EXPECT_EQ(tavTimeAdd(0xfffffffbU, 5), 1U) << "0 means never";
    const struct {
        TavTime cur, end;
        bool before;
    } cases[] = {
        {10, 11, true},          {10, 10, false},         {11, 10, false}, {0xfffffff0U, 5, true},
        {5, 0xfffffff0U, false}, {0x90000000U, 0, false}, {1, 0, false}, // never set is over, whatever the clock says
    };
    for (const auto &c : cases) EXPECT_EQ(tavTimeIsBefore(c.cur, c.end), c.before) << c.cur << " " << c.end;
}

TEST_F(TimeTest, AveragesOverIntervals) {
    for (const TavTime start : {1000U, 0xc0000000U, 0xffffff80U}) { // near and across the wrap too
        SCOPED_TRACE(start);
        TavAvgCalc calc;
        tavAvgCalcInit(&calc, 100);
        const struct {
            TavTime after, sample, expected;
        } steps[] = {
            // a gap of more than half a turn of the clock, and the clock set back
            {0, 7, 7},    {1, 10, TAV_NO_VALUE}, {99, 11, TAV_NO_VALUE},         {100, 13, 11},         {199, 5, TAV_NO_VALUE},
            {5000, 6, 5}, {0xb0000000U, 8, 8},   {0xb0000001U, 9, TAV_NO_VALUE}, {0xa0000000U, 11, 10},
        };
        for (const auto &s : steps) EXPECT_EQ(tavAvgCalcAddSample(&calc, start + s.after, s.sample), s.expected) << s.after;
    }
}

TEST_F(TimeTest, TimeoutRatioIsAnIntegerPercent) {
    TavTimeoutCalc calc;
    tavTimeoutCalcInit(&calc, 100);
    const struct {
        TavTime cur;
        Boolean timeout;
        int expected;
    } steps[] = {
        {50, TRUE, 100}, {60, TRUE, -1}, {70, FALSE, -1}, {150, FALSE, 33}, {151, FALSE, -1}, {250, FALSE, 0},
    };
    for (const auto &s : steps) EXPECT_EQ(tavTimeoutCalcAddSample(&calc, s.cur, s.timeout), s.expected) << s.cur;
}

