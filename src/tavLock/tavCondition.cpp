// A condition with a lock of its own. While a thread waits, its lock belongs to others: both the holder's name and the thread's place in
// the lock order are given up before the wait and taken again after it.
#include "tavLock/tavLock.h"
#include "tavLock/tavLockOrder.h"
#include "tavUtil/tavMemory.h"

TavCondition *tavConditionCreate() noexcept {
    auto *cond = tavNewRecord<TavCondition>();
    if (!cond) return nullptr;
    cond->lock = tavLockCreateRanked(TavLockRank::AsyncWork);
    if (cond->lock && pthread_cond_init(&cond->condition, nullptr) == 0) return cond;
    tavLockDestroy(cond->lock);
    tavDestroyRecord(cond);
    return nullptr;
}

void tavConditionObtainLock(TavCondition *cond, const char *who) noexcept { tavLockObtain(cond->lock, who); }

void tavConditionReleaseLock(TavCondition *cond) noexcept { tavLockRelease(cond->lock); }

void tavConditionWait(TavCondition *cond) noexcept {
    TavLock *lock = cond->lock;
    const char *who = lock->heldBy.load(std::memory_order_relaxed);
    tavLockOrderPop(lock);
    lock->heldBy.store(nullptr, std::memory_order_relaxed);
    pthread_cond_wait(&cond->condition, &lock->lock);
    lock->heldBy.store(who, std::memory_order_relaxed);
    tavLockOrderCheck(lock, who);
    tavLockOrderPush(lock, who);
}

void tavConditionSignal(TavCondition *cond) noexcept { pthread_cond_signal(&cond->condition); }

void tavConditionDestroy(TavCondition *cond) noexcept {
    if (!cond) return;
    tavLockDestroy(cond->lock);
    pthread_cond_destroy(&cond->condition);
    tavDestroyRecord(cond);
}
