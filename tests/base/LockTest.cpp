#include "tavLock/tavLock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "base/FailEachAllocation.h"

namespace {

using LockPtr = std::unique_ptr<TavLock, decltype([](TavLock *lock) { tavLockDestroy(lock); })>;

const char *holderOf(const TavLock *lock) { return lock->heldBy.load(); }

void obtainInOrder(TavLockRank first, TavLockRank second) TAV_NO_ANALYSIS {
    const LockPtr a(tavLockCreateRanked(first)), b(tavLockCreateRanked(second));
    tavLockObtain(a.get(), "the first");
    tavLockObtain(b.get(), "the second");
    tavLockRelease(a.get()); // not in reverse
    tavLockRelease(b.get());
}

} // namespace

TEST(Lock, ExcludesThreadsAndCounterCounts) {
    const LockPtr lock(tavRWLockCreate());
    TavAtomicCounter *counter = tavAtomicCounterCreate("not kept", 5);
    long guarded = 0;
    const auto work = [&]() TAV_NO_ANALYSIS {
        for (int i = 0; i < 2000; i++) {
            i % 2 ? tavRWLockObtainRead(lock.get(), "reader") : tavRWLockObtainWrite(lock.get(), "writer");
            guarded++;
            i % 2 ? tavRWLockReleaseRead(lock.get()) : tavRWLockReleaseWrite(lock.get());
            tavAtomicCounterIncrement(counter, "test");
            if (i % 2) tavAtomicCounterDecrement(counter, "test");
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) threads.emplace_back(work);
    for (auto &thread : threads) thread.join();
    EXPECT_EQ(guarded, 8000) << "readers exclude each other too";
    EXPECT_EQ(tavAtomicCounterDecrement(counter, "test"), 5 + 4000 - 1);
    EXPECT_EQ(tavAtomicCounterIncrement(counter, "test"), 4005);
    tavAtomicCounterDestroy(counter);
}

TEST(Condition, HandsItsLockOverWhileItWaits) TAV_NO_ANALYSIS {
    TavCondition *cond = tavConditionCreate();
    bool waiting = false, signalled = false;
    std::thread waiter([&]() TAV_NO_ANALYSIS {
        tavConditionObtainLock(cond, "waiter");
        waiting = true;
        while (!signalled) tavConditionWait(cond);
        EXPECT_STREQ(holderOf(cond->lock), "waiter") << "the wait names its holder again";
        tavConditionReleaseLock(cond);
    });
    for (bool seen = false; !seen;) {
        std::this_thread::yield();
        tavConditionObtainLock(cond, "signaller");
        EXPECT_STREQ(holderOf(cond->lock), "signaller");
        seen = waiting; // only visible once the waiter gave the lock up inside its wait
        signalled = seen;
        if (seen) tavConditionSignal(cond);
        tavConditionReleaseLock(cond);
    }
    waiter.join();
    EXPECT_EQ(holderOf(cond->lock), nullptr);
    tavConditionDestroy(cond);
}

TEST(LockOrderDeathTest, InversionsNameBothHolders) {
    if (!tavLockChecksOrder()) GTEST_SKIP() << "this build does not check";
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const char *both = "\"the second\" obtains .* while \"the first\" holds";
    EXPECT_DEATH(obtainInOrder(TavLockRank::DeathRow, TavLockRank::Stop), both);
    EXPECT_DEATH(obtainInOrder(TavLockRank::ContextPool, TavLockRank::RoutingInfo), both) << "equal ranks are never held together";
    obtainInOrder(TavLockRank::Stop, TavLockRank::DeathRow);
    obtainInOrder(TavLockRank::DeathRow, TavLockRank::Unranked);
    obtainInOrder(TavLockRank::Unranked, TavLockRank::Control);
    obtainInOrder(TavLockRank::Control, TavLockRank::Stop); // nothing of the pairs before is still held
}
