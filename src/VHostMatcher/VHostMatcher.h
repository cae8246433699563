// One virtual-host group: the host:port pairs that select it, and the patterns of every web module linked to it.
//
// Hosts and ports change only while the snapshot is built. Patterns may be added later: requests follow `uriMatcher`, which is replaced
// by one release store and never changed once the snapshot is published.
#ifndef VHOSTMATCHER_VHOSTMATCHER_H
#define VHOSTMATCHER_VHOSTMATCHER_H

#include <atomic>

#include "tavHash/tavHash.h"
#include "tavList/tavList.h"
#include "vHost/vHost.h"

typedef struct _VHostMatcher VHostMatcher;

// Who holds the group; both calls may be null.
typedef struct _VHostMatcherOwner {
    void *owner;
    void (*changed)(void *owner) noexcept;                        // a host or port of the group changed
    void (*deleted)(void *owner, VHostMatcher *matcher) noexcept; // the group is about to go
} VHostMatcherOwner;

struct _VHostMatcher {
    TavRoutingInfo *ri; // borrowed; may be null
    TavHashMap *vhMap;  // key "host:port" (lower case) to the first VHost of that pair; the list owns it
    TavList *vhostList; // specific host:port VHosts, owned
    VHost **vhostArray; // the list as an array
    char *name;
    Boolean any;  // every host and port
    char **hosts; // accepted on any port; owned texts
    int noOfhosts;
    int *ports; // accepted for any host
    int noOfports;
    std::atomic<URIMatcher *> uriMatcher;
    TrContext *trCtx;
    TrRecord *debugCtl;  // "control.mapper"
    TrRecord *debugReq;  // "http.request.map.url"
    int noOfvhosts;      // length of vhostArray
    URIMatcher *retired; // replaced matchers that requests may still read
    VHostMatcherOwner owner;
    Boolean failed;                    // a put found no memory
    std::atomic<URIMatcher *> *mirror; // the holder's copy of `uriMatcher`, replaced along with it; null: none
};

VHostMatcher *createVHostMatcher(TavRoutingInfo *ri, const char *name) noexcept; // returns new, null without memory
void deleteVHostMatcher(VHostMatcher *matcher) noexcept;                         // null ignored; tells the owner first

// Adds a pair. Returns the VHost made for it, borrowed until the group drops it; null when none was made: the pair is covered already,
// its host or port is any, or there was no memory (vhostMatcherIsComplete).
VHost *putVHost(VHostMatcher *matcher, const char *host, int port) noexcept;
void delVHost(VHostMatcher *matcher, VHost *vhost) noexcept;                  // deletes it when it is one of the list
Boolean containsHost(const VHostMatcher *matcher, const char *host) noexcept; // among the hosts for any port
Boolean containsPort(const VHostMatcher *matcher, int port) noexcept;         // among the ports for any host
void pruneByHost(VHostMatcher *matcher, const char *host) noexcept;
void pruneByPort(VHostMatcher *matcher, int port) noexcept;
char *createKey(const char *host) noexcept; // returns new: lower case, "*" for null; null without memory

// Does the group select the host and port? `requestContext` (may be null) is for tracing.
Boolean matchVHost(const VHostMatcher *matcher, const char *host, int port, TavHttpContext *requestContext) noexcept;
// The group's target for the path, borrowed, or null.
void *matchVHostURI(const VHostMatcher *matcher, const char *path, TavHttpContext *requestContext) noexcept;

// Adds the patterns (URIMatcherMakePattern) of one web module, which is borrowed until the group is deleted. One thread at a time, while
// requests match. On a published snapshot all patterns appear at once in a changed copy; FALSE without memory, and nothing changes. On a
// snapshot under construction they go in place; FALSE without memory, and the group is incomplete.
Boolean vhostMatcherPutPatterns(VHostMatcher *matcher, const char *const *patterns, int count, void *webModule) noexcept;
// Moves the patterns, which no request may be reading, into `memory` of the holder (URIMatcherPlace), sealed. FALSE without memory: they
// stay where they were.
Boolean vhostMatcherPlacePatterns(VHostMatcher *matcher, void *memory) noexcept;
// FALSE once a pair or a pattern was lost for want of memory.
Boolean vhostMatcherIsComplete(const VHostMatcher *matcher) noexcept;

const char *getVHostMatcherName(const VHostMatcher *matcher) noexcept;
TavRoutingInfo *vhostMatcherGetRoutingInfo(const VHostMatcher *matcher) noexcept;
URIMatcher *getURIMatcher(const VHostMatcher *matcher) noexcept; // borrowed until the group is deleted

// Appends the text form to the text in `buffer`, which has room for vhostMatcherInfoLength more characters and the terminator.
void addInfoVHostMatcher(const VHostMatcher *matcher, char *buffer) noexcept;
size_t vhostMatcherInfoLength(const VHostMatcher *matcher) noexcept;
// {"VHostGroup": name, "VHosts": [...]}: the list, then one entry with host "*" for each port. Returns new, null without memory.
json_t *vhostMatcherToJSON(const VHostMatcher *matcher) noexcept;

#endif
