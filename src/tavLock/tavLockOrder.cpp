// The check looks before the thread blocks, so an inversion is told even when it would not have deadlocked this time. It compares with
// every held lock and not with the last one only, because locks need not be released in the opposite order.
#include "tavLock/tavLockOrder.h"

#if defined(TAV_CHECK_LOCK_ORDER) && TAV_CHECK_LOCK_ORDER

#include <cstdio>
#include <cstdlib>

namespace {

struct Held {
    const TavLock *lock;
    const char *who;
};

constexpr int DEEPEST = 32; // locks beyond are not checked; the ranks alone allow fewer

struct HeldLocks {
    Held locks[DEEPEST];
    int count;
};
thread_local constinit HeldLocks held{};

const char *nameOf(const char *who) noexcept { return who ? who : "null"; }

} // namespace

void tavLockOrderCheck(const TavLock *lock, const char *who) noexcept {
    if (lock->rank == TavLockRank::Unranked) return;
    for (int i = 0; i < held.count; i++) {
        const Held &other = held.locks[i];
        if (lock->rank > other.lock->rank) continue;
        std::fprintf(stderr, "ERROR: lock order: \"%s\" obtains rank %d while \"%s\" holds rank %d\n", nameOf(who),
                     static_cast<int>(lock->rank), nameOf(other.who), static_cast<int>(other.lock->rank));
        std::abort();
    }
}

void tavLockOrderPush(const TavLock *lock, const char *who) noexcept {
    if (lock->rank == TavLockRank::Unranked || held.count == DEEPEST) return;
    held.locks[held.count++] = {lock, who};
}

void tavLockOrderPop(const TavLock *lock) noexcept {
    for (int i = held.count - 1; i >= 0; i--) {
        if (held.locks[i].lock != lock) continue;
        for (held.count--; i < held.count; i++) held.locks[i] = held.locks[i + 1];
        return;
    }
}

#endif
