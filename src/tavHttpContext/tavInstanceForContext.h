// What the request context asks of the instance beyond the plain getters of tavInstance/tavInstance.h. Implemented by the core.
#ifndef TAVHTTPCONTEXT_TAVINSTANCEFORCONTEXT_H
#define TAVHTTPCONTEXT_TAVINSTANCEFORCONTEXT_H

#include "tavInstance/tavInstance.h"

// ---- the pool of contexts (each takes the pool lock) ----
// Takes `ctx` over and puts it into CACHED (without memory for its place it is deleted); FALSE when the pool is full or the instance not
// usable: the context stays the caller's, which deletes it.
Boolean addTavHttpContextToPool(Tav *tav, TavHttpContext *ctx) noexcept;
// Returns new (the latest one put back, in INITIAL), null when the pool is empty.
TavHttpContext *removeTavHttpContextFromPool(Tav *tav) noexcept;

// A short cut past pool, stop lock and snapshot counts, which all threads share: each thread leaves the context of its last request in a
// place of its own, still holding the snapshot, as long as that is the current one. Returns new, in INITIAL, `routingInfo` counted and
// current; null: there is none, go the long way.
TavHttpContext *tavTakeIdleContext(Tav *tav) noexcept;
// Takes `ctx` over with its snapshot and puts it into CACHED; FALSE: both stay the caller's, go the long way.
Boolean tavKeepIdleContext(Tav *tav, TavHttpContext *ctx) noexcept;

// ---- the snapshot ----
// The stop lock; a snapshot is only fetched under it, while the instance can route.
void tavStopLock(Tav *tav, const char *who) noexcept;
void tavStopUnlock(Tav *tav) noexcept;
// The current snapshot with one more reference (takes the routing-information lock), or null.
TavRoutingInfo *tavRoutingInfoObtain(Tav *tav) noexcept;
// Gives one reference back; the last one deletes the snapshot and may free the instance. Null ignored. No lock may be held.
void tavRoutingInfoRelease(TavRoutingInfo *ri) noexcept;
// The version of the document that the snapshot took last. Any holder.
long long tavRoutingInfoGetVersion(const TavRoutingInfo *ri) noexcept;

// ---- the trace specification of requests that no trace rule matches ----
// The custom one ("DefaultRequestTraceSpec") if it is set, else the instance's default one; `isCustom` tells which.
// Returns it with a reference that the caller gives back; takes the trace-specification lock inside. Null only without a manager.
TrSpec *tavObtainRequestTraceSpec(Tav *tav, Boolean *isCustom) noexcept;
// The same without a reference, only to compare: most requests find it installed already and touch no shared count.
TrSpec *tavPeekRequestTraceSpec(Tav *tav, Boolean *isCustom) noexcept;
// A ":NOTICE" specification of the instance's manager to copy from, borrowed for the instance's life; null: compile one.
const TrSpec *tavGetNoticeTraceSpec(Tav *tav) noexcept;

#endif
