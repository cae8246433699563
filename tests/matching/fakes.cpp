#include "fakes.h"

#include <cstdlib>
#include <new>

int fakeNewCalls = 0;
int fakeNewFails = -1;

void *operator new(size_t size) {
    void *memory = fakeNewCalls++ == fakeNewFails ? nullptr : malloc(size ? size : 1);
    if (!memory) throw std::bad_alloc();
    return memory;
}
void operator delete(void *memory) noexcept { free(memory); }
void operator delete(void *memory, size_t) noexcept { free(memory); }

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
