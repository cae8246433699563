// Sealing: the patterns of all groups move into one block, side by side, so that matches among thousands of groups stay within few pages.
//
// A block lives as long as the URL matcher: what a group puts or replaces later has memory of its own, and its old place stays unused.
#include "tavURLMatcher/urlMatcherSeal.h"

#include "tavURLMatcher/urlMatcherIndex.h"
#include "tavUtil/tavMemory.h"

struct UrlMatcherBlock {
    UrlMatcherBlock *next; // older
};

void urlMatcherFreeBlocks(URLMatcher *urlMatcher) noexcept {
    while (UrlMatcherBlock *block = urlMatcher->blocks) {
        urlMatcher->blocks = block->next;
        tavFree(block);
    }
}

// Returns the aligned room behind a new block's head; null without memory.
static char *addBlock(URLMatcher *urlMatcher, size_t size) noexcept {
    auto *block = static_cast<UrlMatcherBlock *>(tavMalloc(sizeof(UrlMatcherBlock) + URI_PLACE_ALIGNMENT + size));
    if (!block) return nullptr;
    block->next = urlMatcher->blocks;
    urlMatcher->blocks = block;
    const auto start = reinterpret_cast<uintptr_t>(block + 1);
    return reinterpret_cast<char *>(block + 1) + (-start & (URI_PLACE_ALIGNMENT - 1));
}

static bool isPlaced(const URIMatcher *patterns) noexcept { return patterns->sealed && patterns->placedSize; }

// FALSE without memory: some or all groups keep what they have.
static bool placeAll(URLMatcher *urlMatcher) noexcept {
    size_t total = 0;
    for (const VHostMatcher *group : TavListRange<const VHostMatcher>(urlMatcher->vhostMatcherList)) {
        if (isPlaced(getURIMatcher(group))) continue;
        const size_t size = URIMatcherPlaceSize(getURIMatcher(group));
        if (!size) return false;
        total += size;
    }
    char *memory = total ? addBlock(urlMatcher, total) : nullptr;
    if (total && !memory) return false;
    for (VHostMatcher *group : TavListRange<VHostMatcher>(urlMatcher->vhostMatcherList)) {
        if (isPlaced(getURIMatcher(group))) continue;
        if (!vhostMatcherPlacePatterns(group, memory)) return false;
        memory += getURIMatcher(group)->placedSize;
    }
    return true;
}

Boolean tavURLMatcherSeal(URLMatcher *urlMatcher) noexcept {
    if (!urlMatcher) return FALSE;
    const bool placed = placeAll(urlMatcher);
    if (!urlMatcher->index) {
        urlMatcher->index = urlMatcherIndexCreate(urlMatcher->vhtMatchersArray, tavListGetCount(urlMatcher->vhostMatcherList));
    }
    return placed && urlMatcher->index;
}
