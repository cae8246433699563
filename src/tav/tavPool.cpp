// The pool of request contexts: last in, first out, so that a busy thread finds the context that is still in its cache.
#include "tavHttpContext/tavHttpContext.h"
#include "tavHttpContext/tavInstanceForContext.h"
#include "tavRecord.h"

Boolean addTavHttpContextToPool(Tav *tav, TavHttpContext *context) noexcept {
    TavLockGuard guard(tav->contextPoolLock, "addTavHttpContextToPool");
    if (!tavIsUsable(tav)) return FALSE;
    const int limit = tav->maxHttpContextPoolSize;
    if (limit >= 0 && tavListGetCount(tav->contextPool) >= limit) return FALSE;
    // An add that finds no memory has deleted the context: it is no longer the caller's either way.
    if (tavListAddHead(tav->contextPool, context)) tavHttpContextSetState(context, CACHED, 0, nullptr);
    return TRUE;
}

TavHttpContext *removeTavHttpContextFromPool(Tav *tav) noexcept {
    static char reason[] = "from pool";
    TavLockGuard guard(tav->contextPoolLock, "removeTavHttpContextFromPool");
    auto *context = static_cast<TavHttpContext *>(tavListRemoveHead(tav->contextPool));
    if (context) tavHttpContextSetState(context, INITIAL, 0, reason);
    return context;
}
