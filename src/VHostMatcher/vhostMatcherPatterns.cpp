// Linking a web module to a group: its patterns go into the group's matcher, or into a copy of it when requests read that one.
#include "URIMatcher/matchTrace.h"
#include "VHostMatcher/VHostMatcher.h"

// FALSE when a pattern was lost for want of memory.
static bool putAll(URIMatcher *uriMatcher, const char *const *patterns, int count, void *webModule) noexcept {
    const Boolean failedBefore = uriMatcher->failed;
    uriMatcher->failed = FALSE;
    for (int i = 0; i < count; ++i) URIMatcherPut(uriMatcher, patterns[i], webModule, TRUE);
    const bool complete = !uriMatcher->failed;
    if (failedBefore) uriMatcher->failed = TRUE;
    return complete;
}

static void setURIMatcher(VHostMatcher *matcher, URIMatcher *uriMatcher) noexcept {
    matcher->uriMatcher.store(uriMatcher, std::memory_order_release);
    if (matcher->mirror) matcher->mirror->store(uriMatcher, std::memory_order_release);
}

static bool putIntoCopy(VHostMatcher *matcher, const char *const *patterns, int count, void *webModule) noexcept {
    URIMatcher *old = getURIMatcher(matcher);
    URIMatcher *changed = URIMatcherClone(old);
    if (!changed) return false;
    if (!putAll(changed, patterns, count, webModule) || !URIMatcherSeal(changed)) {
        URIMatcherDelete(changed);
        return false;
    }
    setURIMatcher(matcher, changed);
    old->next = matcher->retired; // requests do not read `next`
    matcher->retired = old;
    return true;
}

Boolean vhostMatcherPutPatterns(VHostMatcher *matcher, const char *const *patterns, int count, void *webModule) noexcept {
    const bool published = matcher->ri && tavRoutingInfoIsPublished(matcher->ri);
    const bool done =
        published ? putIntoCopy(matcher, patterns, count, webModule) : putAll(getURIMatcher(matcher), patterns, count, webModule);
    if (!done) {
        TR_DEBUG(matcher->trCtx, matcher->debugCtl, "vhostMatcherPutPatterns: vHostGroup %s: out of memory\n", matcher->name);
    }
    return done;
}

Boolean vhostMatcherPlacePatterns(VHostMatcher *matcher, void *memory) noexcept {
    URIMatcher *old = getURIMatcher(matcher);
    URIMatcher *placed = URIMatcherPlace(old, memory);
    if (!placed) return FALSE;
    setURIMatcher(matcher, placed);
    URIMatcherDelete(old);
    return TRUE;
}
