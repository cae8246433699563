// Time, interval calculators, a random number.
//
// The calculators divide what they gathered when a sample arrives at or after the end of the interval; until one was started (end 0) every
// sample is such a one, so the first sample answers at once. They are not locked: their owner's lock covers them.
#include "tavUtil/tavTime.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace {

constinit std::atomic<TavTime (*)()> replacedClock{nullptr};

TavTime inMilliSeconds(time_t seconds, long microseconds) noexcept {
    return static_cast<TavTime>(static_cast<uint64_t>(seconds) * 1000 + static_cast<uint64_t>(microseconds) / 1000);
}

TavTime wallClock() noexcept {
    struct timeval now {};
    gettimeofday(&now, nullptr);
    return inMilliSeconds(now.tv_sec, now.tv_usec);
}

TavTime tickedWallClock() noexcept {
    struct timespec now {};
    if (clock_gettime(CLOCK_REALTIME_COARSE, &now) != 0) return wallClock();
    return inMilliSeconds(now.tv_sec, now.tv_nsec / 1000);
}

// FALSE while the interval runs. Otherwise the next one begins. An end that is further off than an interval is long lies in the past, by
// whatever time: after half a turn of the clock without a sample, or with the clock set back, the interval is over too.
template <typename Calc>
bool intervalEnded(Calc *calc, TavTime curTime) noexcept {
    const TavTime left = calc->intervalEnd - curTime;
    if (calc->intervalEnd != 0 && left != 0 && left - 1 <= calc->intervalLength) return false; // tavTimeAdd may add one
    calc->intervalEnd = tavTimeAdd(curTime, calc->intervalLength);
    return true;
}

} // namespace

TavTime tavGetCurrentTime() noexcept {
    auto *clock = replacedClock.load(std::memory_order_relaxed);
    return clock ? clock() : wallClock();
}

TavTime tavGetTickedTime() noexcept {
    auto *clock = replacedClock.load(std::memory_order_relaxed);
    return clock ? clock() : tickedWallClock();
}

void tavSetClock(TavTime (*clock)()) noexcept { replacedClock.store(clock, std::memory_order_relaxed); }

TavTime tavTimeFromSeconds(unsigned int s) noexcept { return s * 1000U; }

TavTime tavTimeFromMilliSeconds(unsigned int ms) noexcept { return ms; }

TavTime tavTimeElapsedMilliSeconds(TavTime started) noexcept { return tavGetCurrentTime() - started; }

void tavSleep(int seconds) noexcept {
    if (seconds <= 0) return;
    struct timespec rest {};
    rest.tv_sec = seconds;
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) continue; // a host's signal does not shorten it
}

pid_t tavGetMyPid() noexcept { return getpid(); }

Boolean tavLocalTime(const time_t *time, struct tm *tm) noexcept { return time && tm && localtime_r(time, tm) != nullptr; }

void tavAvgCalcInit(TavAvgCalc *calc, TavTime intervalLength) noexcept { *calc = {intervalLength, 0, 0, 0}; }

TavTime tavAvgCalcAddSample(TavAvgCalc *calc, TavTime curTime, TavTime sample) noexcept {
    calc->count++;
    calc->total += sample;
    if (!intervalEnded(calc, curTime)) return TAV_NO_VALUE;
    const auto mean = static_cast<TavTime>(calc->total / calc->count);
    calc->count = 0;
    calc->total = 0;
    return mean;
}

void tavTimeoutCalcInit(TavTimeoutCalc *calc, TavTime intervalLength) noexcept { *calc = {intervalLength, 0, 0, 0}; }

int tavTimeoutCalcAddSample(TavTimeoutCalc *calc, TavTime curTime, Boolean timeout) noexcept {
    calc->completionCount++;
    if (timeout) calc->timeoutCount++;
    if (!intervalEnded(calc, curTime)) return -1;
    const auto percent = static_cast<int>(calc->timeoutCount * 100 / calc->completionCount);
    calc->completionCount = 0;
    calc->timeoutCount = 0;
    return percent;
}

int tavRandom() noexcept {
    // Unsigned on purpose: the product overflows.
    unsigned int seed = tavGetCurrentTime() + static_cast<unsigned int>(getpid()) * static_cast<unsigned int>(pthread_self());
    return rand_r(&seed);
}
