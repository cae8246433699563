// Idle contexts: each thread's last one, with its snapshot.
//
// A request thread mostly finds the context that it released before, in a place that no other thread writes to, and with it a count on the
// current snapshot. So the requests of several threads share neither the pool nor the locks and counts behind a snapshot.
//
// Invariant: once tavSweepIdleContexts has returned, no place holds a context with a snapshot that was replaced before it was called.
// Whoever keeps a context marks the place as busy first and then looks whether its snapshot is still the current one; the sweeper changed
// that before it looks at the places. In the total order of these four accesses one of the two sees the other: either nothing is kept, or
// the sweeper waits the few instructions until it is and takes it out.
//
// A kept context is the keeper's last touch of the instance: the sweeper may drop the last snapshot, and the instance with it, at once.
//
// A place holds one context. A second one pushes the first to the pool, so that the latest released is the first taken, as in the pool.
// With a limit on the pool, or while the snapshot's trace lines are written, nothing is kept here.
#include <sched.h>

#include "tavHttpContext/tavHttpContext.h"
#include "tavHttpContext/tavInstanceForContext.h"
#include "tavRecord.h"
#include "tavSnapshot/tavRoutingInfo.h"

namespace {

std::atomic<TavHttpContext *> &placeOfThread(Tav *tav) noexcept {
    static constinit std::atomic<unsigned> next{0};
    thread_local constinit unsigned own = TAV_IDLE_CONTEXTS;
    if (own == TAV_IDLE_CONTEXTS) own = next.fetch_add(1, std::memory_order_relaxed) % TAV_IDLE_CONTEXTS;
    return tav->idleContexts[own].ctx;
}

// Marks a place in which somebody is about to keep a context. Never followed.
TavHttpContext *busy() noexcept { return reinterpret_cast<TavHttpContext *>(alignof(TavHttpContext)); }

void moveToPool(Tav *tav, TavHttpContext *ctx) noexcept {
    TavRoutingInfo *ri = ctx->routingInfo;
    ctx->routingInfo = nullptr;
    if (!addTavHttpContextToPool(tav, ctx)) tavHttpContextDelete(ctx);
    tavRoutingInfoRelease(ri); // may free the instance
}

bool isTraced(const Tav *tav) noexcept { return trContextLogEnabled(tav->trCtx, tav->processRec); }

} // namespace

TavHttpContext *tavTakeIdleContext(Tav *tav) noexcept {
    std::atomic<TavHttpContext *> &place = placeOfThread(tav);
    TavHttpContext *ctx = place.load(std::memory_order_relaxed);
    if (!ctx || ctx == busy() || !place.compare_exchange_strong(ctx, nullptr, std::memory_order_acq_rel)) return nullptr;
    if (ctx->routingInfo != tav->routingInfo.load(std::memory_order_acquire) || isTraced(tav)) {
        moveToPool(tav, ctx);
        return nullptr;
    }
    static char reason[] = "from pool";
    tavHttpContextSetState(ctx, INITIAL, 0, reason);
    return ctx;
}

Boolean tavKeepIdleContext(Tav *tav, TavHttpContext *ctx) noexcept {
    if (tav->maxHttpContextPoolSize >= 0 || !tavIsUsable(tav) || isTraced(tav)) return FALSE;
    std::atomic<TavHttpContext *> &place = placeOfThread(tav);
    TavHttpContext *older = place.load(std::memory_order_relaxed);
    if (older == busy() || !place.compare_exchange_strong(older, busy(), std::memory_order_seq_cst)) return FALSE;
    if (tav->routingInfo.load(std::memory_order_seq_cst) != ctx->routingInfo) {
        place.store(older, std::memory_order_release);
        return FALSE;
    }
    tavHttpContextSetState(ctx, CACHED, 0, nullptr);
    place.store(ctx, std::memory_order_release);
    if (older) moveToPool(tav, older); // its snapshot keeps the instance until then
    return TRUE;
}

void tavSweepIdleContexts(Tav *tav) noexcept {
    for (TavIdleContext &idle : tav->idleContexts) {
        TavHttpContext *ctx = idle.ctx.load(std::memory_order_seq_cst);
        while (ctx && (ctx == busy() || !idle.ctx.compare_exchange_strong(ctx, nullptr, std::memory_order_seq_cst))) {
            sched_yield();
            ctx = idle.ctx.load(std::memory_order_seq_cst);
        }
        if (ctx) moveToPool(tav, ctx);
    }
}
