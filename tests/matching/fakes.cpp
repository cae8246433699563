#include "fakes.h"

const char *wmGetName(const WebModule *webModule) noexcept { return webModule->name.c_str(); }
const char *wmGetContextRoot(const WebModule *webModule) noexcept { return webModule->noRoot ? nullptr : webModule->contextRoot.c_str(); }

Boolean tavHttpContextSetMatchedVHostName(TavHttpContext *ctx, const char *name) noexcept {
    ctx->hasMatchedVHost = name != nullptr;
    ctx->matchedVHost = name ? name : "";
    return TRUE;
}
TrContext *tavHttpContextGetTrContext(TavHttpContext *) noexcept { return nullptr; }

Boolean tavRoutingInfoIsPublished(TavRoutingInfo *ri) noexcept { return ri->published; }
Tav *tavRoutingInfoGetTav(TavRoutingInfo *) noexcept { return nullptr; }
TrMgr *getTavTrMgr(Tav *) noexcept { return nullptr; }
TrContext *tavGetTrContext(Tav *) noexcept { return nullptr; }
TrRecord *GET_TRREC() noexcept { return nullptr; }
