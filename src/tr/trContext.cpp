// Contexts: a manager with the specification that is in force, and the emitters, which hand a message to the manager's hook.
#include "tavUtil/tavMemory.h"
#include "tr/trPriv.h"

namespace {

int emit(const TrContext *ctx, const TrRecord *record, const char *format, int level, va_list args) {
    TrPrintf hook = ctx->mgr->printf;
    if (!hook) return 0;
    const TrContext message{ctx->mgr, ctx->spec.load(), nullptr, format, record->messageId, trLevelIndexToName(level)};
    return hook(&message, args);
}

} // namespace

TrContext *trContextCreate(TrMgr *mgr) noexcept {
    TrContext *ctx = mgr ? tavNewRecord<TrContext>() : nullptr;
    if (!ctx) return nullptr;
    ctx->mgr = mgr;
    ctx->specLock = tavLockCreateRanked(TavLockRank::ContextSpec);
    if (ctx->specLock) return ctx;
    trContextDelete(ctx);
    return nullptr;
}

void trContextDelete(TrContext *ctx) noexcept {
    if (!ctx) return;
    trSpecRefRelease(ctx->spec);
    tavLockDestroy(ctx->specLock);
    tavDestroyRecord(ctx);
}

TrMgr *trContextGetMgr(const TrContext *ctx) noexcept { return ctx->mgr; }
const char *trContextGetFormat(const TrContext *ctx) noexcept { return ctx->format; }
const char *trContextGetMessageId(const TrContext *ctx) noexcept { return ctx->messageId; }
const char *trContextGetLevel(const TrContext *ctx) noexcept { return ctx->level; }

// Under the lock: a specification that is being replaced has not lost its last reference yet.
TrSpec *trContextGetSpec(TrContext *ctx) noexcept {
    if (!ctx) return nullptr;
    TavLockGuard guard(ctx->specLock, "trContextGetSpec");
    return trSpecRefObtain(ctx->spec);
}

void trContextSetSpec(TrContext *ctx, TrSpec *spec) noexcept {
    if (!ctx) {
        trSpecRefRelease(spec);
        return;
    }
    TavLockGuard guard(ctx->specLock, "trContextSetSpec");
    trSpecRefRelease(ctx->spec.exchange(spec, std::memory_order_acq_rel));
}

TrSpec *trContextPeekSpec(const TrContext *ctx) noexcept { return ctx ? ctx->spec.load(std::memory_order_acquire) : nullptr; }

void trContextSpecLockObtain(TrContext *ctx, const char *who) noexcept TAV_NO_ANALYSIS {
    if (ctx && ctx->specLock) tavLockObtain(ctx->specLock, who);
}

void trContextSpecLockRelease(TrContext *ctx) noexcept TAV_NO_ANALYSIS {
    if (ctx && ctx->specLock) tavLockRelease(ctx->specLock);
}

int trContextVLog(TrContext *ctx, const TrRecord *record, va_list args) noexcept {
    return ctx && record ? emit(ctx, record, record->format, record->level, args) : 0;
}

int trContextVDebug(TrContext *ctx, const TrRecord *record, const char *format, va_list args) noexcept {
    if (!ctx || !record) return 0;
    return emit(ctx, record, format, record->level < 0 ? record->defaultLevel : record->level, args);
}

int trContextVTrace(TrContext *ctx, const TrRecord *record, int level, const char *format, va_list args) noexcept {
    return ctx && record ? emit(ctx, record, format, level, args) : 0;
}

int trContextLog(TrContext *ctx, const TrRecord *record, ...) noexcept {
    va_list args;
    va_start(args, record);
    int result = trContextVLog(ctx, record, args);
    va_end(args);
    return result;
}

int trContextDebug(TrContext *ctx, const TrRecord *record, const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    int result = trContextVDebug(ctx, record, format, args);
    va_end(args);
    return result;
}

int trContextTrace(TrContext *ctx, const TrRecord *record, int level, const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    int result = trContextVTrace(ctx, record, level, format, args);
    va_end(args);
    return result;
}
