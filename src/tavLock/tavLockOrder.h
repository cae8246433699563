// The order check of debug builds: each thread remembers the ranked locks that it holds. Without TAV_CHECK_LOCK_ORDER all of it is empty.
#ifndef TAVLOCK_TAVLOCKORDER_H
#define TAVLOCK_TAVLOCKORDER_H

#include "tavLock/tavLock.h"

#if defined(TAV_CHECK_LOCK_ORDER) && TAV_CHECK_LOCK_ORDER
inline constexpr bool TAV_LOCK_ORDER_IS_CHECKED = true;
// Call before obtaining: ends the process when the thread holds a lock of the same or a higher rank.
void tavLockOrderCheck(const TavLock *lock, const char *who) noexcept;
void tavLockOrderPush(const TavLock *lock, const char *who) noexcept; // after obtaining
void tavLockOrderPop(const TavLock *lock) noexcept;                   // before releasing
#else
inline constexpr bool TAV_LOCK_ORDER_IS_CHECKED = false;
inline void tavLockOrderCheck(const TavLock *, const char *) noexcept {}
inline void tavLockOrderPush(const TavLock *, const char *) noexcept {}
inline void tavLockOrderPop(const TavLock *) noexcept {}
#endif

#endif
