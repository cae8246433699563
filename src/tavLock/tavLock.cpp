// Locks, the exclusive read/write lock and the locked counter.
//
// A lock is a default mutex that remembers who holds it: `heldBy` is written after locking and cleared before unlocking, atomically only
// so that a debugger's reader never races. Critical sections of this library are short, so on a machine with several CPUs an obtain first
// looks a bounded number of times before it lets the kernel put the thread to sleep.
#include "tavLock/tavLock.h"

#include <unistd.h>

#include "tavLock/tavLockOrder.h"
#include "tavUtil/tavMemory.h"

#if defined(__SANITIZE_THREAD__)
#define TAV_SPINS 0
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TAV_SPINS 0
#endif
#endif
#if !defined(TAV_SPINS)
#define TAV_SPINS 1
#endif

namespace {

constexpr int SPIN_ROUNDS = 100;

void pauseCpu() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

bool hasSeveralCpus() noexcept {
    static constinit std::atomic<int> known{0}; // 0: not asked yet
    int cpus = known.load(std::memory_order_relaxed);
    if (cpus == 0) {
        cpus = sysconf(_SC_NPROCESSORS_ONLN) > 1 ? 2 : 1;
        known.store(cpus, std::memory_order_relaxed);
    }
    return cpus > 1;
}

// The thread sanitizer derives lock order from blocking obtains only, so its builds do not try.
bool obtainWithoutSleeping(TavLock *lock) noexcept {
    if (!TAV_SPINS) return false;
    if (pthread_mutex_trylock(&lock->lock) == 0) return true;
    if (!hasSeveralCpus()) return false;
    for (int round = 0; round < SPIN_ROUNDS; round++) {
        pauseCpu();
        // Look before trying: a failed try takes the cache line away from the holder.
        if (!lock->heldBy.load(std::memory_order_relaxed) && pthread_mutex_trylock(&lock->lock) == 0) return true;
    }
    return false;
}

int addToCounter(TavAtomicCounter *counter, int change, const char *who) noexcept {
    TavLockGuard guard(&counter->lock, who);
    counter->count += change;
    return counter->count;
}

} // namespace

TavLock *tavLockCreate() noexcept { return tavLockCreateRanked(TavLockRank::Unranked); }

TavLock *tavLockCreateRanked(TavLockRank rank) noexcept {
    auto *lock = tavNewRecord<TavLock>();
    if (lock) tavLockInit(lock, rank);
    return lock;
}

void tavLockDestroy(TavLock *lock) noexcept {
    if (!lock) return;
    tavLockFini(lock);
    tavDestroyRecord(lock);
}

void tavLockInit(TavLock *lock, TavLockRank rank) noexcept {
    lock->name = nullptr;
    lock->heldBy.store(nullptr, std::memory_order_relaxed);
    lock->rank = rank;
    pthread_mutex_init(&lock->lock, nullptr); // cannot fail with default attributes here
}

void tavLockFini(TavLock *lock) noexcept { pthread_mutex_destroy(&lock->lock); }

void tavLockObtain(TavLock *lock, const char *who) noexcept TAV_NO_ANALYSIS {
    tavLockOrderCheck(lock, who);
    if (!obtainWithoutSleeping(lock)) pthread_mutex_lock(&lock->lock);
    lock->heldBy.store(who, std::memory_order_relaxed);
    tavLockOrderPush(lock, who);
}

void tavLockRelease(TavLock *lock) noexcept TAV_NO_ANALYSIS {
    tavLockOrderPop(lock);
    lock->heldBy.store(nullptr, std::memory_order_relaxed);
    pthread_mutex_unlock(&lock->lock);
}

Boolean tavLockChecksOrder() noexcept { return TAV_LOCK_ORDER_IS_CHECKED; }

TavRWLock *tavRWLockCreate() noexcept { return tavLockCreate(); }

void tavRWLockObtainRead(TavRWLock *lock, const char *who) noexcept { tavLockObtain(lock, who); }

void tavRWLockReleaseRead(TavRWLock *lock) noexcept { tavLockRelease(lock); }

void tavRWLockObtainWrite(TavRWLock *lock, const char *who) noexcept { tavLockObtain(lock, who); }

void tavRWLockReleaseWrite(TavRWLock *lock) noexcept { tavLockRelease(lock); }

void tavRWLockDestroy(TavRWLock *lock) noexcept { tavLockDestroy(lock); }

TavAtomicCounter *tavAtomicCounterCreate(const char *, int initialValue) noexcept {
    auto *counter = tavNewRecord<TavAtomicCounter>();
    if (!counter) return nullptr;
    counter->count = initialValue;
    tavLockInit(&counter->lock, TavLockRank::Leaf);
    return counter;
}

int tavAtomicCounterIncrement(TavAtomicCounter *counter, const char *who) noexcept { return addToCounter(counter, 1, who); }

int tavAtomicCounterDecrement(TavAtomicCounter *counter, const char *who) noexcept { return addToCounter(counter, -1, who); }

int tavAtomicCounterGetValue(TavAtomicCounter *counter) noexcept { return addToCounter(counter, 0, "tavAtomicCounterGetValue"); }

void tavAtomicCounterDestroy(TavAtomicCounter *counter) noexcept {
    if (!counter) return;
    tavLockFini(&counter->lock);
    tavDestroyRecord(counter);
}
