// References of specifications, and the row on which released ones wait.
//
// The row is a list in order of death, linked through the specifications themselves: putting one there cannot fail, and a specification
// is on it at most once. It is closed (every release frees at once) before the first manager and after trDestroy. Its lock is never
// destroyed, so a late release finds it.
#include "tavUtil/tavMemory.h"
#include "tr/trPriv.h"

namespace {

struct DeathRow {
    TavLock trSpecDeathRowLock;
    TrSpec *head TAV_GUARDED_BY(trSpecDeathRowLock);
    TrSpec *tail TAV_GUARDED_BY(trSpecDeathRowLock);
    bool open TAV_GUARDED_BY(trSpecDeathRowLock);
};
constinit DeathRow trSpecDeathRow{};

TavLock *rowLock() TAV_THREAD_ATTR(lock_returned(trSpecDeathRow.trSpecDeathRowLock)) {
    static const bool ready = (tavLockInit(&trSpecDeathRow.trSpecDeathRowLock, TavLockRank::DeathRow), true);
    static_cast<void>(ready);
    return &trSpecDeathRow.trSpecDeathRowLock;
}

void unlink(TrSpec *spec) TAV_REQUIRES(trSpecDeathRow.trSpecDeathRowLock) {
    (spec->rowPrev ? spec->rowPrev->rowNext : trSpecDeathRow.head) = spec->rowNext;
    (spec->rowNext ? spec->rowNext->rowPrev : trSpecDeathRow.tail) = spec->rowPrev;
    spec->rowPrev = spec->rowNext = nullptr;
    spec->onDeathRow = false;
}

void append(TrSpec *spec) TAV_REQUIRES(trSpecDeathRow.trSpecDeathRowLock) {
    spec->rowPrev = trSpecDeathRow.tail;
    (trSpecDeathRow.tail ? trSpecDeathRow.tail->rowNext : trSpecDeathRow.head) = spec;
    trSpecDeathRow.tail = spec;
    spec->onDeathRow = true;
}

// Takes the head off and frees it, unless it has come back to life.
void removeHead() TAV_REQUIRES(trSpecDeathRow.trSpecDeathRowLock) {
    TrSpec *spec = trSpecDeathRow.head;
    unlink(spec);
    if (spec->refCount < 1) tavDestroyRecord(spec);
}

bool isInFuture(const TrSpec *spec, TavTime now) { return now - spec->timeOfDeath > 0x80000000u; }

// The clock was set back behind the oldest death: those in the future wait from now on.
void restampFuture(TavTime now) TAV_REQUIRES(trSpecDeathRow.trSpecDeathRowLock) {
    for (TrSpec *spec = trSpecDeathRow.head; spec; spec = spec->rowNext) {
        if (isInFuture(spec, now)) spec->timeOfDeath = now;
    }
}

} // namespace

void trOpenDeathRow() noexcept {
    TavLockGuard guard(rowLock(), "trOpenDeathRow");
    trSpecDeathRow.open = true;
}

TrSpec *trSpecRefObtain(TrSpec *spec) noexcept {
    if (spec) spec->refCount++;
    return spec;
}

int trSpecRefRelease(TrSpec *spec) noexcept {
    if (!spec) return -1;
    int count = --spec->refCount;
    if (count < 1) trSpecAddToSpecDeathRow(spec);
    return count;
}

void trSpecAddToSpecDeathRow(TrSpec *spec) noexcept {
    if (!spec) return;
    bool open;
    {
        TavLockGuard guard(rowLock(), "trSpecAddToSpecDeathRow");
        open = trSpecDeathRow.open;
        if (spec->onDeathRow) unlink(spec);
        spec->timeOfDeath = tavGetCurrentTime();
        if (open) append(spec);
    }
    if (open) {
        trCleanUpDeathRow();
    } else {
        trKillSpec(spec);
    }
}

void trCleanUpDeathRow() noexcept {
    TavLockGuard guard(rowLock(), "trCleanUpDeathRow");
    TavTime now = tavGetCurrentTime();
    while (TrSpec *spec = trSpecDeathRow.head) {
        if (isInFuture(spec, now)) restampFuture(now);
        if (spec->refCount < 1 && now - spec->timeOfDeath <= TR_SPEC_DEATH_ROW_TIME) return;
        removeHead();
    }
}

void trPurgeDeathRow() noexcept {
    TavLockGuard guard(rowLock(), "trPurgeDeathRow");
    while (trSpecDeathRow.head) removeHead();
}

void trKillSpec(TrSpec *spec) noexcept {
    if (!spec) return;
    {
        TavLockGuard guard(rowLock(), "trKillSpec");
        if (spec->onDeathRow) unlink(spec);
    }
    tavDestroyRecord(spec);
}

void trDestroy(void) noexcept {
    TavLockGuard guard(rowLock(), "trDestroy");
    trSpecDeathRow.open = false;
    while (trSpecDeathRow.head) removeHead();
}
