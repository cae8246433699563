// One virtual-host group.
//
// A pair falls into one of four places: `any` (then everything later is ignored), `hosts` (any port), `ports` (any host), or the list of
// specific pairs. A host or port that becomes any takes its specific pairs off the list. `vhMap` finds a listed pair by "host:port"; of a
// pair listed twice it holds the first.
//
// Ownership: the group owns its names, VHosts and matchers; targets, snapshot and owner are borrowed. Replaced matchers stay on `retired`
// until the group is deleted, because a request may be walking one.
// Threads: pairs change only while the snapshot is built. `uriMatcher` is read with acquire and replaced with release; a published
// matcher is never changed (vhostMatcherPatterns.cpp).
#include "VHostMatcher/VHostMatcher.h"

#include <cstring>

#include "URIMatcher/matchTrace.h"
#include "VHostMatcher/hostKey.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

static void deleteListedVHost(void *vhost) { vHostDelete(static_cast<VHost *>(vhost)); }

static bool createParts(VHostMatcher *matcher, const char *name) noexcept {
    matcher->name = tavStrdup(name ? name : "");
    matcher->vhMap = tavHashMapCreate();
    matcher->vhostList = tavListCreate(deleteListedVHost);
    matcher->uriMatcher.store(URIMatcherCreate(matcher->ri, name), std::memory_order_release);
    return matcher->name && matcher->vhMap && matcher->vhostList && getURIMatcher(matcher);
}

VHostMatcher *createVHostMatcher(TavRoutingInfo *ri, const char *name) noexcept {
    auto *matcher = tavNewRecord<VHostMatcher>();
    if (!matcher) return nullptr;
    const MatchTrace trace = matchTraceOf(ri);
    matcher->ri = ri;
    matcher->trCtx = trace.trCtx;
    matcher->debugCtl = trace.debugCtl;
    matcher->debugReq = trace.debugReq;
    if (createParts(matcher, name)) return matcher;
    deleteVHostMatcher(matcher);
    return nullptr;
}

void deleteVHostMatcher(VHostMatcher *matcher) noexcept {
    if (!matcher) return;
    if (matcher->owner.deleted) matcher->owner.deleted(matcher->owner.owner, matcher);
    while (URIMatcher *old = matcher->retired) {
        matcher->retired = old->next;
        URIMatcherDelete(old);
    }
    URIMatcherDelete(getURIMatcher(matcher));
    tavHashMapDestroy(matcher->vhMap);
    tavListDestroy(matcher->vhostList);
    tavFree(matcher->vhostArray);
    for (int i = 0; i < matcher->noOfhosts; ++i) tavFree(matcher->hosts[i]);
    tavFree(matcher->hosts);
    tavFree(matcher->ports);
    tavFree(matcher->name);
    tavDestroyRecord(matcher);
}

const char *getVHostMatcherName(const VHostMatcher *matcher) noexcept { return matcher->name; }
TavRoutingInfo *vhostMatcherGetRoutingInfo(const VHostMatcher *matcher) noexcept { return matcher->ri; }
URIMatcher *getURIMatcher(const VHostMatcher *matcher) noexcept { return matcher->uriMatcher.load(std::memory_order_acquire); }
char *createKey(const char *host) noexcept { return makeKey(host); }

Boolean vhostMatcherIsComplete(const VHostMatcher *matcher) noexcept {
    return !matcher->failed && URIMatcherIsComplete(getURIMatcher(matcher));
}

static void tellChanged(VHostMatcher *matcher) noexcept {
    if (matcher->owner.changed) matcher->owner.changed(matcher->owner.owner);
}

// Appends a slot. The room doubles, so it is full exactly when the count is a power of two.
template <typename T>
static bool appendSlot(T **array, int *count, T value) noexcept {
    const size_t used = static_cast<size_t>(*count);
    if ((used & (used - 1)) == 0) {
        auto *larger = static_cast<T *>(tavMalloc(sizeof(T) * (used ? used * 2 : 1)));
        if (!larger) return false;
        if (used) memcpy(larger, *array, used * sizeof(T));
        tavFree(*array);
        *array = larger;
    }
    (*array)[(*count)++] = value;
    return true;
}

Boolean containsHost(const VHostMatcher *matcher, const char *host) noexcept {
    for (int i = 0; i < matcher->noOfhosts; ++i) {
        if (vhostSameHost(matcher->hosts[i], host)) return TRUE;
    }
    return FALSE;
}

Boolean containsPort(const VHostMatcher *matcher, int port) noexcept {
    for (int i = 0; i < matcher->noOfports; ++i) {
        if (matcher->ports[i] == port) return TRUE;
    }
    return FALSE;
}

static VHost *findListed(const VHostMatcher *matcher, const char *host, int port) noexcept {
    const HostKey key(host, port);
    if (key.fits()) return static_cast<VHost *>(tavHashGet(matcher->vhMap, key.text()));
    for (int i = 0; i < matcher->noOfvhosts; ++i) {
        VHost *vhost = matcher->vhostArray[i];
        if (vhost->port == port && vhostSameHost(vhost->host, host)) return vhost;
    }
    return nullptr;
}

// Lists `vhost` in the map if it is the first of its pair. A host too long for a key is found by walking.
static bool mapVHost(VHostMatcher *matcher, VHost *vhost) noexcept {
    const HostKey key(vhost->host, vhost->port);
    if (!key.fits() || tavHashGet(matcher->vhMap, key.text())) return true;
    tavHashPut(matcher->vhMap, key.text(), vhost);
    return tavHashGet(matcher->vhMap, key.text()) == vhost;
}

// After a pair left the array: the map leads to the next one of the pair, if any. Replacing a value needs no memory.
static void unmapVHost(VHostMatcher *matcher, const VHost *vhost) noexcept {
    const HostKey key(vhost->host, vhost->port);
    if (!key.fits() || tavHashGet(matcher->vhMap, key.text()) != vhost) return;
    VHost *next = nullptr;
    for (int i = 0; i < matcher->noOfvhosts && !next; ++i) {
        VHost *other = matcher->vhostArray[i];
        if (other->port == vhost->port && vhostSameHost(other->host, vhost->host)) next = other;
    }
    tavHashPut(matcher->vhMap, key.text(), next);
}

void delVHost(VHostMatcher *matcher, VHost *vhost) noexcept {
    VHost **end = matcher->vhostArray + matcher->noOfvhosts;
    VHost **slot = matcher->vhostArray;
    while (slot < end && *slot != vhost) ++slot;
    if (slot == end) return;
    memmove(slot, slot + 1, static_cast<size_t>(end - slot - 1) * sizeof *slot);
    --matcher->noOfvhosts;
    unmapVHost(matcher, vhost);
    tavListRemoveObject(matcher->vhostList, vhost);
    tellChanged(matcher);
}

void pruneByHost(VHostMatcher *matcher, const char *host) noexcept {
    VHost *owner = nullptr; // `host` may be the text of one of the pairs: that one goes last
    for (VHost *vhost : TavListRange<VHost>(matcher->vhostList)) {
        if (!vhostSameHost(vhost->host, host)) continue;
        if (vhost->host == host) {
            owner = vhost;
        } else {
            delVHost(matcher, vhost);
        }
    }
    if (owner) delVHost(matcher, owner);
}

void pruneByPort(VHostMatcher *matcher, int port) noexcept {
    for (VHost *vhost : TavListRange<VHost>(matcher->vhostList)) {
        if (vhost->port == port) delVHost(matcher, vhost);
    }
}

static bool addHost(VHostMatcher *matcher, const char *host) noexcept {
    TavText copy(tavStrdup(host));
    if (!copy || !appendSlot(&matcher->hosts, &matcher->noOfhosts, copy.get())) return false;
    copy.release();
    pruneByHost(matcher, host);
    return true;
}

static bool addPort(VHostMatcher *matcher, int port) noexcept {
    if (!appendSlot(&matcher->ports, &matcher->noOfports, port)) return false;
    pruneByPort(matcher, port);
    return true;
}

// The list has the pair already; a failure takes it off again.
static VHost *indexVHost(VHostMatcher *matcher, VHost *vhost) noexcept {
    if (appendSlot(&matcher->vhostArray, &matcher->noOfvhosts, vhost)) {
        if (mapVHost(matcher, vhost)) return vhost;
        --matcher->noOfvhosts;
    }
    tavListRemoveObject(matcher->vhostList, vhost);
    return nullptr;
}

static VHost *addSpecific(VHostMatcher *matcher, const char *host, int port) noexcept {
    VHost *vhost = VHostCreate(matcher->ri, host, port, FALSE);
    if (!vhost || !tavListAddTail(matcher->vhostList, vhost)) return nullptr; // a list that fails has deleted it
    return indexVHost(matcher, vhost);
}

VHost *putVHost(VHostMatcher *matcher, const char *host, int port) noexcept {
    if (matcher->any) return nullptr;
    const bool anyHost = vhostIsAnyHostName(host);
    const bool anyPort = port == VHOST_ANY_PORT;
    VHost *vhost = nullptr;
    bool done = true;
    if (!anyHost && !anyPort) {
        if (containsHost(matcher, host) || containsPort(matcher, port)) return nullptr;
        vhost = addSpecific(matcher, host, port);
        done = vhost != nullptr;
    } else if (!anyHost) {
        done = addHost(matcher, host);
    } else if (!anyPort) {
        done = addPort(matcher, port);
    } else {
        matcher->any = TRUE;
    }
    if (!done) matcher->failed = TRUE;
    tellChanged(matcher);
    return vhost;
}

Boolean matchVHost(const VHostMatcher *matcher, const char *host, int port, TavHttpContext *requestContext) noexcept {
    const Boolean matches =
        matcher->any || containsPort(matcher, port) || containsHost(matcher, host) || (host && findListed(matcher, host, port));
    TrContext *trCtx;
    TrRecord *record;
    matchTraceFor(matcher, requestContext, &trCtx, &record);
    TR_DEBUG(trCtx, record, "matchVHost: vHostGroup %s %s host=%s port=%d\n", matcher->name, matches ? "selects" : "does not select",
             tavOrNull(host), port);
    return matches;
}

void *matchVHostURI(const VHostMatcher *matcher, const char *path, TavHttpContext *requestContext) noexcept {
    return URIMatcherMatch(getURIMatcher(matcher), path, requestContext);
}
