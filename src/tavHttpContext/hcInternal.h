// What the sources of this module share. Private to the module.
#ifndef TAVHTTPCONTEXT_HCINTERNAL_H
#define TAVHTTPCONTEXT_HCINTERNAL_H

#include <type_traits>

#include "tavHttpContext/tavHttpContext.h"
#include "tavUtil/tavString.h"

using HcHttpCalls = decltype(EnvCallBacks::http);

inline constexpr const char *HC_PARTITION_VERSION_HEADER = "_ZV_HAPRT_WLMVERSION";
inline constexpr const char *HC_SET_COOKIE_HEADER = "Set-Cookie";

inline const HcHttpCalls &hcHost(const TavHttpContext *ctx) noexcept { return tavGetEnvCallBacks(ctx->tav)->http; }

// Calls a slot of the host with the request's handle; a slot that is not set gives `missing`.
template <typename Result, typename... Args>
Result hcCall(const TavHttpContext *ctx, Result (*slot)(EnvHttpContext *, Args...), std::type_identity_t<Result> missing,
              std::type_identity_t<Args>... args) noexcept {
    return slot ? slot(ctx->envHttpContext, args...) : missing;
}

// The host's slots take names as char * but do not write to them.
inline char *hcName(const char *name) noexcept { return const_cast<char *>(name); }

// Replaces one of the context's texts by a copy (null: none). FALSE without memory: the old text stays. `value` may be the old text.
Boolean hcSetText(TavHttpContext *ctx, char **text, const char *value) noexcept;
// Forgets every text.
void hcClearTexts(TavHttpContext *ctx) noexcept;
// Chooses the request's trace specification: a matching trace rule's, else the instance's.
void hcInitRequestTraceSpec(TavHttpContext *ctx) noexcept;

#endif
