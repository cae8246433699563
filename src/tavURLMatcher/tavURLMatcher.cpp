// Which group, and so which web module, serves a request.
//
// Every group that selects host and port may offer a web module; the longest context root wins, the earlier group among equals, unless
// its module is a generic application. The groups are walked in the order of insertion: all of them, or (sealed) those that an index of
// hosts and ports names. Both walks give the same answer.
//
// Ownership: the list owns the groups; map and array borrow them. A group that is deleted by its own function leaves first
// (VHostMatcherOwner). Locks: none; see the header.
#include "tavURLMatcher/tavURLMatcher.h"

#include <cstring>

#include "URIMatcher/WebModuleForMatching.h"
#include "URIMatcher/matchTrace.h"
#include "tavURLMatcher/tavHttpContextForMatching.h"
#include "tavURLMatcher/urlMatcherIndex.h"
#include "tavURLMatcher/urlMatcherSeal.h"
#include "tavUtil/tavJson.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

static void dropIndex(void *owner) noexcept {
    auto *urlMatcher = static_cast<URLMatcher *>(owner);
    urlMatcherIndexDelete(urlMatcher->index, urlMatcher->vhtMatchersArray, tavListGetCount(urlMatcher->vhostMatcherList));
    urlMatcher->index = nullptr;
}

static void deleteOwnedGroup(void *object) {
    auto *group = static_cast<VHostMatcher *>(object);
    group->owner = {};
    deleteVHostMatcher(group);
}

URLMatcher *tavURLMatcherCreate(TavRoutingInfo *ri) noexcept {
    auto *urlMatcher = tavNewRecord<URLMatcher>();
    if (!urlMatcher) return nullptr;
    const MatchTrace trace = matchTraceOf(ri);
    urlMatcher->ri = ri;
    urlMatcher->trCtx = trace.trCtx;
    urlMatcher->debugCtl = trace.debugCtl;
    urlMatcher->debugReq = trace.debugReq;
    urlMatcher->vhostMatcherMap = tavHashMapCreate();
    urlMatcher->vhostMatcherList = tavListCreate(deleteOwnedGroup);
    if (urlMatcher->vhostMatcherMap && urlMatcher->vhostMatcherList) return urlMatcher;
    tavURLMatcherDestroy(urlMatcher);
    return nullptr;
}

void tavURLMatcherDestroy(URLMatcher *urlMatcher) noexcept {
    if (!urlMatcher) return;
    dropIndex(urlMatcher);
    tavHashMapDestroy(urlMatcher->vhostMatcherMap);
    tavListDestroy(urlMatcher->vhostMatcherList);
    tavFree(urlMatcher->vhtMatchersArray);
    urlMatcherFreeBlocks(urlMatcher); // the groups' patterns lay there
    tavDestroyRecord(urlMatcher);
}

// Takes a group out of map, array and list without deleting it.
static void forgetGroup(void *owner, VHostMatcher *group) noexcept {
    auto *urlMatcher = static_cast<URLMatcher *>(owner);
    TavListEle *ele = tavListFind(urlMatcher->vhostMatcherList, group);
    if (!ele) return;
    dropIndex(urlMatcher);
    group->owner = {};
    VHostMatcher **end = urlMatcher->vhtMatchersArray + tavListGetCount(urlMatcher->vhostMatcherList);
    VHostMatcher **slot = urlMatcher->vhtMatchersArray;
    while (slot < end && *slot != group) ++slot;
    memmove(slot, slot + 1, static_cast<size_t>(end - slot - 1) * sizeof *slot);
    tavListRemove(urlMatcher->vhostMatcherList, ele);
    if (tavHashGet(urlMatcher->vhostMatcherMap, group->name) == group) tavHashPut(urlMatcher->vhostMatcherMap, group->name, nullptr);
}

// Room in the array for one more group; it doubles, so it is full exactly when the count is a power of two.
static bool reserveGroup(URLMatcher *urlMatcher) noexcept {
    const auto count = static_cast<size_t>(tavListGetCount(urlMatcher->vhostMatcherList));
    if ((count & (count - 1)) != 0) return true;
    auto **larger = static_cast<VHostMatcher **>(tavMalloc(sizeof(VHostMatcher *) * (count ? count * 2 : 1)));
    if (!larger) return false;
    if (count) memcpy(larger, urlMatcher->vhtMatchersArray, count * sizeof *larger);
    tavFree(urlMatcher->vhtMatchersArray);
    urlMatcher->vhtMatchersArray = larger;
    return true;
}

// The list deletes what it cannot add; here the caller keeps it.
static bool listGroup(URLMatcher *urlMatcher, VHostMatcher *group) noexcept {
    TavList *list = urlMatcher->vhostMatcherList;
    list->destructor = nullptr;
    const bool added = tavListAddTail(list, group) != nullptr;
    list->destructor = deleteOwnedGroup;
    if (added) urlMatcher->vhtMatchersArray[tavListGetCount(list) - 1] = group;
    return added;
}

Boolean addVHostMatcher(URLMatcher *urlMatcher, VHostMatcher *vhostMatcher) noexcept {
    if (!urlMatcher || !vhostMatcher || !reserveGroup(urlMatcher) || !listGroup(urlMatcher, vhostMatcher)) return FALSE;
    dropIndex(urlMatcher);
    tavHashPut(urlMatcher->vhostMatcherMap, vhostMatcher->name, vhostMatcher);
    if (getVHostMatcher(urlMatcher, vhostMatcher->name) != vhostMatcher) {
        forgetGroup(urlMatcher, vhostMatcher);
        return FALSE;
    }
    vhostMatcher->owner = {urlMatcher, dropIndex, forgetGroup};
    return TRUE;
}

VHostMatcher *getVHostMatcher(const URLMatcher *urlMatcher, const char *name) noexcept {
    return static_cast<VHostMatcher *>(tavHashGet(urlMatcher->vhostMatcherMap, name));
}

void URLMatcherDeleteVHostMatcher(URLMatcher *urlMatcher, const char *name) noexcept {
    deleteVHostMatcher(getVHostMatcher(urlMatcher, name));
}

Boolean tavURLMatcherIsComplete(const URLMatcher *urlMatcher) noexcept {
    for (const VHostMatcher *group : TavListRange<const VHostMatcher>(urlMatcher->vhostMatcherList)) {
        if (!vhostMatcherIsComplete(group)) return FALSE;
    }
    return TRUE;
}

// The best offer so far. The supplier's name is its group's.
struct Best {
    WebModule *webModule = nullptr;
    const URIMatcher *supplier = nullptr;
};

static size_t rootLength(const WebModule *webModule) noexcept { return tavView(wmGetContextRoot(webModule)).size(); }

static bool isBetterThan(const WebModule *candidate, const WebModule *best) noexcept {
    const size_t length = rootLength(candidate);
    const size_t bestLength = rootLength(best);
    if (length != bestLength) return length > bestLength;
    return tavIndexOfString(wmGetName(best), "/GenericApplication") >= 0;
}

static void offer(Best *best, const URIMatcher *supplier, const char *path, TavHttpContext *requestContext) noexcept {
    auto *webModule = static_cast<WebModule *>(URIMatcherMatch(supplier, path, requestContext));
    if (!webModule) return;
    if (!best->webModule || isBetterThan(webModule, best->webModule)) *best = {webModule, supplier};
}

WebModule *matchLongestURI(const URLMatcher *urlMatcher, TavHttpContext *requestContext, const char *host, int port,
                           const char *path) noexcept {
    Best best;
    const HostKey key(host);
    if (urlMatcher->index && host && key.fits()) {
        GroupWalk walk(urlMatcher->index, key, port);
        while (const URIMatcher *patterns = walk.next()) offer(&best, patterns, path, requestContext);
    } else {
        const int count = tavListGetCount(urlMatcher->vhostMatcherList);
        VHostMatcher *const *groups = urlMatcher->vhtMatchersArray;
        for (int i = 0; i < count; ++i) {
            if (matchVHost(groups[i], host, port, requestContext)) offer(&best, getURIMatcher(groups[i]), path, requestContext);
        }
    }
    const char *groupName = best.supplier ? best.supplier->name : nullptr;
    if (requestContext) tavHttpContextSetMatchedVHostName(requestContext, groupName);
    TrContext *trCtx;
    TrRecord *record;
    matchTraceFor(urlMatcher, requestContext, &trCtx, &record);
    TR_DEBUG(trCtx, record, "matchLongestURI: host=%s port=%d path=%s vHostGroup=%s web module=%s\n", tavOrNull(host), port,
             tavOrNull(path), tavOrNull(groupName), best.webModule ? tavOrNull(wmGetName(best.webModule)) : "null");
    return best.webModule;
}

json_t *urlMatcherToJSON(const URLMatcher *urlMatcher) noexcept {
    JsonArray groups;
    for (const VHostMatcher *group : TavListRange<const VHostMatcher>(urlMatcher->vhostMatcherList)) groups.add(vhostMatcherToJSON(group));
    JsonObject whole;
    whole.set("VHostGroups", groups.release());
    return whole.release();
}
