#include "matchingFakes.h"

#include "tavInstance/tavInstance.h"
#include "tavURLMatcher/tavHttpContextForMatching.h"

const char *wmGetName(const WebModule *webModule) noexcept { return webModule->name.c_str(); }
const char *wmGetContextRoot(const WebModule *webModule) noexcept { return webModule->contextRoot.c_str(); }

Boolean tavHttpContextSetMatchedVHostName(TavHttpContext *, const char *) noexcept { return TRUE; }
TrContext *tavHttpContextGetTrContext(TavHttpContext *) noexcept { return nullptr; }

Boolean tavRoutingInfoIsPublished(TavRoutingInfo *) noexcept { return FALSE; }
Tav *tavRoutingInfoGetTav(TavRoutingInfo *) noexcept { return nullptr; }
TrMgr *getTavTrMgr(Tav *) noexcept { return nullptr; }
TrContext *tavGetTrContext(Tav *) noexcept { return nullptr; }
TrRecord *GET_TRREC() noexcept { return nullptr; }
