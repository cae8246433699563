// Host and port to the groups that select them. Only for this folder.
#ifndef TAVURLMATCHER_URLMATCHERINDEX_H
#define TAVURLMATCHER_URLMATCHERINDEX_H

#include "VHostMatcher/hostKey.h"
#include "tavURLMatcher/keyTable.h"
#include "tavURLMatcher/tavURLMatcher.h"

// Returns new; null without memory. The groups keep the index up to date when their patterns are replaced.
UrlMatcherIndex *urlMatcherIndexCreate(VHostMatcher *const *groups, int count) noexcept;
void urlMatcherIndexDelete(UrlMatcherIndex *index, VHostMatcher *const *groups, int count) noexcept; // null ignored

// The selecting groups of one request, in the order of insertion, each once. Borrows the index.
class GroupWalk {
public:
    // `host` must fit; the key of a null host is none's.
    GroupWalk(const UrlMatcherIndex *index, const HostKey &host, int port) noexcept;
    const URIMatcher *next() noexcept; // the patterns of the next one; null at the end

private:
    int nextPosition() noexcept; // -1 at the end

    const UrlMatcherIndex *index_;
    static constexpr int RANGES = 4; // any, port, host, host and port
    GroupRange ranges_[RANGES];
};

#endif
