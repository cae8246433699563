// Locks that remember who holds them, a condition with its own lock, a counter with its own lock.
//
// No lock is recursive. Every obtain names its caller ("who", a constant text). A lock made with a rank is checked in debug builds: a
// thread may obtain it only while it holds no lock of the same or a higher rank; an inversion prints both names and aborts the (debug)
// process. The order is told in docs/locking.md.
#ifndef TAVLOCK_TAVLOCK_H
#define TAVLOCK_TAVLOCK_H

#include <pthread.h>

#include <atomic>

#include <tav/types.h>

#if defined(__clang__)
#define TAV_THREAD_ATTR(x) __attribute__((x))
#else
#define TAV_THREAD_ATTR(x)
#endif
#define TAV_CAPABILITY(name) TAV_THREAD_ATTR(capability(name))
#define TAV_SCOPED_CAPABILITY TAV_THREAD_ATTR(scoped_lockable)
#define TAV_GUARDED_BY(lock) TAV_THREAD_ATTR(guarded_by(lock))
#define TAV_PT_GUARDED_BY(lock) TAV_THREAD_ATTR(pt_guarded_by(lock))
#define TAV_ACQUIRES(...) TAV_THREAD_ATTR(acquire_capability(__VA_ARGS__))
#define TAV_RELEASES(...) TAV_THREAD_ATTR(release_capability(__VA_ARGS__))
#define TAV_REQUIRES(...) TAV_THREAD_ATTR(requires_capability(__VA_ARGS__))
#define TAV_EXCLUDES(...) TAV_THREAD_ATTR(locks_excluded(__VA_ARGS__))
#define TAV_NO_ANALYSIS TAV_THREAD_ATTR(no_thread_safety_analysis)

// Outer to inner; equal ranks are never held together.
enum class TavLockRank : int {
    Unranked = 0, // not checked
    Control = 10,
    Stop = 20,
    HealthMonitor = 30,
    RequestMapper = 40,
    Rules = 40,
    TargetSelector = 50,
    RoutingInfo = 60,
    ContextPool = 60,
    TraceSpec = 60,
    PartitionData = 60,
    AsyncWork = 60,
    EndPointRefs = 60,
    Connector = 60,
    Properties = 60,
    ClientSocketList = 60,
    SocketWrite = 70,
    ContextSpec = 80,
    DeathRow = 90,
    Leaf = 100,
};

typedef struct TAV_CAPABILITY("lock") _TavLock {
    char *name; // not used
    std::atomic<const char *> heldBy;
    pthread_mutex_t lock;
    TavLockRank rank;
} TavLock;

TavLock *tavLockCreate() noexcept; // unranked; returns new, null without memory
TavLock *tavLockCreateRanked(TavLockRank rank) noexcept;
void tavLockObtain(TavLock *lock, const char *who) noexcept TAV_ACQUIRES(lock);
void tavLockRelease(TavLock *lock) noexcept TAV_RELEASES(lock);
void tavLockDestroy(TavLock *lock) noexcept; // null ignored

// For locks that are part of a record or static.
void tavLockInit(TavLock *lock, TavLockRank rank) noexcept;
void tavLockFini(TavLock *lock) noexcept;

// TRUE when this build checks the order of ranked locks.
Boolean tavLockChecksOrder() noexcept;

// Holds a lock for a scope.
class TAV_SCOPED_CAPABILITY TavLockGuard {
public:
    TavLockGuard(TavLock *lock, const char *who) noexcept TAV_ACQUIRES(lock) : lock_(lock) { tavLockObtain(lock_, who); }
    ~TavLockGuard() noexcept TAV_RELEASES() { tavLockRelease(lock_); }
    TavLockGuard(const TavLockGuard &) = delete;
    TavLockGuard &operator=(const TavLockGuard &) = delete;

private:
    TavLock *lock_;
};

// A read/write lock is the same exclusive lock, on purpose.
typedef TavLock TavRWLock;
TavRWLock *tavRWLockCreate() noexcept;
void tavRWLockObtainRead(TavRWLock *lock, const char *who) noexcept TAV_ACQUIRES(lock);
void tavRWLockReleaseRead(TavRWLock *lock) noexcept TAV_RELEASES(lock);
void tavRWLockObtainWrite(TavRWLock *lock, const char *who) noexcept TAV_ACQUIRES(lock);
void tavRWLockReleaseWrite(TavRWLock *lock) noexcept TAV_RELEASES(lock);
void tavRWLockDestroy(TavRWLock *lock) noexcept;

typedef struct _TavCondition {
    TavLock *lock;
    pthread_cond_t condition;
} TavCondition;

TavCondition *tavConditionCreate() noexcept; // its lock has rank AsyncWork; returns new, null without memory
void tavConditionObtainLock(TavCondition *cond, const char *who) noexcept TAV_ACQUIRES(cond->lock);
void tavConditionReleaseLock(TavCondition *cond) noexcept TAV_RELEASES(cond->lock);
void tavConditionWait(TavCondition *cond) noexcept TAV_REQUIRES(cond->lock); // may wake for no reason
void tavConditionSignal(TavCondition *cond) noexcept;                        // wakes one waiter
void tavConditionDestroy(TavCondition *cond) noexcept;                       // null ignored

typedef struct _TavAtomicCounter {
    int count;
    TavLock lock;
} TavAtomicCounter;

TavAtomicCounter *tavAtomicCounterCreate(const char *name, int initialValue) noexcept;
int tavAtomicCounterIncrement(TavAtomicCounter *counter, const char *who) noexcept; // the new value
int tavAtomicCounterDecrement(TavAtomicCounter *counter, const char *who) noexcept; // the new value
int tavAtomicCounterGetValue(TavAtomicCounter *counter) noexcept;
void tavAtomicCounterDestroy(TavAtomicCounter *counter) noexcept; // null ignored

#endif
