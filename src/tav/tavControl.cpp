// The process-wide control lock and the per-instance stop lock.
//
// The control lock serialises everything that changes an instance's life or configuration. Property setters may be reached with it (a
// document carries server properties) and without it (the host sets one), so a thread knows whether it holds the lock.
#include "tavControl.h"

#include "tavRecord.h"

namespace {

constinit TavLock controlLock = {nullptr, {nullptr}, PTHREAD_MUTEX_INITIALIZER, TavLockRank::Control};
thread_local bool holdsControl = false;

} // namespace

void tavControlLock(const char *who) noexcept TAV_NO_ANALYSIS {
    tavLockObtain(&controlLock, who);
    holdsControl = true;
}

void tavControlUnlock() noexcept TAV_NO_ANALYSIS {
    holdsControl = false;
    tavLockRelease(&controlLock);
}

bool tavHoldsControlLock() noexcept { return holdsControl; }

TavControlScope::TavControlScope(const char *who) noexcept : obtained_(!holdsControl) {
    if (obtained_) tavControlLock(who);
}

TavControlScope::~TavControlScope() noexcept {
    if (obtained_) tavControlUnlock();
}

TavControlPause::TavControlPause(const char *who) noexcept : who_(who) { tavControlUnlock(); }

TavControlPause::~TavControlPause() noexcept { tavControlLock(who_); }

void tavStopLock(Tav *tav, const char *who) noexcept TAV_NO_ANALYSIS { tavLockObtain(tav->stopLock, who); }

void tavStopUnlock(Tav *tav) noexcept TAV_NO_ANALYSIS { tavLockRelease(tav->stopLock); }
