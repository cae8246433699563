// Millisecond time, interval averages and ratios, a random number.
//
// TavTime wraps about every 49.7 days; differences are taken in unsigned arithmetic. An end time of 0 means "never set".
#ifndef TAVUTIL_TAVTIME_H
#define TAVUTIL_TAVTIME_H

#include <sys/types.h>
#include <ctime>

#include <tav/types.h>

TavTime tavGetCurrentTime() noexcept; // wall clock, ms
// The same as it stood at the system's last tick, some ms ago, for a fraction of the price. Only to be compared with each other.
TavTime tavGetTickedTime() noexcept;
TavTime tavTimeFromSeconds(unsigned int s) noexcept;
TavTime tavTimeFromMilliSeconds(unsigned int ms) noexcept;
TavTime tavTimeElapsedMilliSeconds(TavTime started) noexcept;
void tavSleep(int seconds) noexcept; // 0 and below: not at all
pid_t tavGetMyPid() noexcept;
Boolean tavLocalTime(const time_t *time, struct tm *tm) noexcept;

// TRUE when `now` lies before `end`, across a wrap too; an `end` of 0 is in no one's future.
constexpr bool tavTimeIsBefore(TavTime now, TavTime end) noexcept { return end != 0 && static_cast<int32_t>(now - end) < 0; }
// now + interval, never the reserved 0.
constexpr TavTime tavTimeAdd(TavTime now, TavTime interval) noexcept { return now + interval ? now + interval : 1; }

// Replaces the clock of both (null: the wall clock again). For tests; not while threads run.
void tavSetClock(TavTime (*clock)()) noexcept;

typedef struct TavAvgCalc {
    TavTime intervalLength;
    TavTime intervalEnd;
    long count;
    TavTime total;
} TavAvgCalc;

typedef struct TavTimeoutCalc {
    TavTime intervalLength;
    TavTime intervalEnd;
    long completionCount;
    long timeoutCount;
} TavTimeoutCalc;

inline constexpr TavTime TAV_NO_VALUE = static_cast<TavTime>(-1);

void tavAvgCalcInit(TavAvgCalc *calc, TavTime intervalLength) noexcept;
// Mean of the interval's samples when the interval has ended (the first sample ever ends one), else TAV_NO_VALUE.
TavTime tavAvgCalcAddSample(TavAvgCalc *calc, TavTime curTime, TavTime sample) noexcept;
void tavTimeoutCalcInit(TavTimeoutCalc *calc, TavTime intervalLength) noexcept;
// Percent of timed-out completions (integer) when the interval has ended, else -1.
int tavTimeoutCalcAddSample(TavTimeoutCalc *calc, TavTime curTime, Boolean timeout) noexcept;

// First value of a generator seeded with time, process and thread: 0 to RAND_MAX; the same within one millisecond on one thread.
int tavRandom() noexcept;

#endif
