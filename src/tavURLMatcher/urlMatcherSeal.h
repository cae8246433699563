// The memory of sealed patterns. Only for this folder.
#ifndef TAVURLMATCHER_URLMATCHERSEAL_H
#define TAVURLMATCHER_URLMATCHERSEAL_H

#include "tavURLMatcher/tavURLMatcher.h"

// After the groups are gone.
void urlMatcherFreeBlocks(URLMatcher *urlMatcher) noexcept;

#endif
