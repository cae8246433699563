// All virtual-host groups of one snapshot, and the choice of the web module with the longest context root.
//
// Built by one thread; once the snapshot is published only the members' patterns change (see VHostMatcher.h) and any number of threads
// may match without a lock.
#ifndef TAVURLMATCHER_TAVURLMATCHER_H
#define TAVURLMATCHER_TAVURLMATCHER_H

#include "VHostMatcher/VHostMatcher.h"

typedef struct _WebModule WebModule;
struct UrlMatcherIndex; // host and port to groups
struct UrlMatcherBlock; // memory of sealed patterns

typedef struct _URLMatcher {
    TavRoutingInfo *ri;              // borrowed; may be null
    TavHashMap *vhostMatcherMap;     // name to group (the latest of a name)
    TavList *vhostMatcherList;       // in the order of insertion; owns the groups
    VHostMatcher **vhtMatchersArray; // the list as an array
    TrContext *trCtx;
    TrRecord *debugCtl;      // "control.mapper"
    TrRecord *debugReq;      // "http.request.map.url"
    UrlMatcherIndex *index;  // null: not sealed, or changed since
    UrlMatcherBlock *blocks; // where the members' sealed patterns lie
} URLMatcher;

URLMatcher *tavURLMatcherCreate(TavRoutingInfo *ri) noexcept; // returns new, null without memory
void tavURLMatcherDestroy(URLMatcher *urlMatcher) noexcept;   // null ignored; deletes the groups
// Takes the group. FALSE (null argument, no memory): the caller keeps it.
Boolean addVHostMatcher(URLMatcher *urlMatcher, VHostMatcher *vhostMatcher) noexcept;
VHostMatcher *getVHostMatcher(const URLMatcher *urlMatcher, const char *name) noexcept; // borrowed; null when absent
void URLMatcherDeleteVHostMatcher(URLMatcher *urlMatcher, const char *name) noexcept;   // removes the group and deletes it
// Call it when the snapshot is complete, before it is published: seals every member and indexes their hosts and ports. Any later change of
// the list or of a member's hosts drops the index. FALSE without memory: matching goes on, slower, with the same results.
Boolean tavURLMatcherSeal(URLMatcher *urlMatcher) noexcept;
// FALSE once a member lost a pair or a pattern for want of memory.
Boolean tavURLMatcherIsComplete(const URLMatcher *urlMatcher) noexcept;
// The web module, borrowed, or null. Stores the supplying group's name (or none) in `requestContext`, which may be null.
WebModule *matchLongestURI(const URLMatcher *urlMatcher, TavHttpContext *requestContext, const char *host, int port,
                           const char *path) noexcept;
// {"VHostGroups": [...]}. Returns new, null without memory.
json_t *urlMatcherToJSON(const URLMatcher *urlMatcher) noexcept;

#endif
