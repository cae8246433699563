// The texts that a context owns. They lie in the context's arena, which is used up front to back and emptied at the release, so that a
// usual request copies its names without touching the allocator. What no longer fits comes from counted memory.
#include <cstdint>
#include <cstring>

#include "tavHttpContext/hcInternal.h"
#include "tavUtil/tavMemory.h"

static bool inArena(const TavHttpContext *ctx, const char *text) noexcept {
    return reinterpret_cast<uintptr_t>(text) - reinterpret_cast<uintptr_t>(ctx->arena) < sizeof ctx->arena;
}

static char *copyText(TavHttpContext *ctx, const char *value) noexcept {
    size_t size = strlen(value) + 1;
    if (size > sizeof ctx->arena - ctx->arenaUsed) {
        ctx->textsOutside = TRUE;
        return tavStrdup(value);
    }
    char *copy = ctx->arena + ctx->arenaUsed;
    ctx->arenaUsed += size;
    memcpy(copy, value, size);
    return copy;
}

static void freeText(TavHttpContext *ctx, char **text) noexcept {
    if (*text && !inArena(ctx, *text)) tavFree(*text);
    *text = nullptr;
}

Boolean hcSetText(TavHttpContext *ctx, char **text, const char *value) noexcept {
    // A request that is mapped again while it waits for a rollout sets the same names: they take no further room.
    if (tavStrEquals(*text, value)) return TRUE;
    char *copy = value ? copyText(ctx, value) : nullptr;
    if (value && !copy) return FALSE;
    freeText(ctx, text);
    *text = copy;
    return TRUE;
}

void hcClearTexts(TavHttpContext *ctx) noexcept {
    for (char **text : {&ctx->errorMsg, &ctx->redirectURL, &ctx->applicationName, &ctx->moduleName, &ctx->editionName, &ctx->vHostName,
                        &ctx->contextRoot, &ctx->url}) {
        if (ctx->textsOutside) freeText(ctx, text);
        *text = nullptr;
    }
    ctx->textsOutside = FALSE;
    ctx->arenaUsed = 0;
}
