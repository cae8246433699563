// Where the matching modules trace to: the library's default context and two records. All null without a snapshot.
#ifndef URIMATCHER_MATCHTRACE_H
#define URIMATCHER_MATCHTRACE_H

#include <tav/context.h>

#include "tavInstance/tavInstance.h"
#include "tr/tr.h"

struct MatchTrace {
    TrContext *trCtx = nullptr;
    TrRecord *debugCtl = nullptr;
    TrRecord *debugReq = nullptr;
};

inline MatchTrace matchTraceOf(TavRoutingInfo *ri) noexcept {
    Tav *tav = ri ? tavRoutingInfoGetTav(ri) : nullptr;
    if (!tav) return {};
    TrMgr *mgr = getTavTrMgr(tav);
    return {tavGetTrContext(tav), trRecordGet(mgr, "control.mapper"), trRecordGet(mgr, "http.request.map.url")};
}

// A request traces to its own context and the request record, everything else to the owner's.
template <typename Owner>
void matchTraceFor(const Owner *owner, TavHttpContext *request, TrContext **ctx, TrRecord **record) noexcept {
    *ctx = request ? tavHttpContextGetTrContext(request) : owner->trCtx;
    *record = request ? owner->debugReq : owner->debugCtl;
}

#endif
