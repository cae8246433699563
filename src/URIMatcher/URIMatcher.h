// Maps a request path to a target by servlet-style URI patterns: "/a/b" (exact), "/a/*" (prefix), "/a/*.jsp" (suffix).
//
// Targets are borrowed until the matcher is deleted: web modules, or (tests, tools) name texts. Building takes one thread; once nothing
// changes it, any number of threads may match without a lock. No operation recurses, so long chains of nodes are harmless.
#ifndef URIMATCHER_URIMATCHER_H
#define URIMATCHER_URIMATCHER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tavInstance/tavInstance.h"

// Priority of an exact target; the higher one stays.
enum Origin : signed char {
    ORIGIN_UNSPECIFIED = -1, // a fresh node
    ORIGIN_AUTO = 0,         // implied by a wildcard pattern
    ORIGIN_AUTO_EXACT = 5,   // implied by an exact pattern
    ORIGIN_USER = 10         // the pattern itself
};

typedef struct _URIMatcher URIMatcher;
typedef struct _Node Node;
typedef struct _Suffix Suffix;

struct _Suffix {
    Node *node;         // owner
    const char *suffix; // text that the path must end with; not terminated
    void *target;
    Suffix *next; // in the order of insertion
    uint32_t suffixLength;
};

inline constexpr int NODE_FEW_CHILDREN = 8;

// One cache line. The names of the children of a node begin with different bytes, so that one byte of the path chooses the child.
struct _Node {
    int depth;        // root 0, child = parent + 1; a split renumbers only the node it moves, sealing all of them
    const char *name; // the edge text from the parent, not terminated
    void *exactTarget;
    void *prefixTarget;
    Node *children; // contiguous
    Suffix *suffixes;
    Origin origin; // of exactTarget
    uint8_t childCount;
    uint8_t childCapacity;
    uint32_t nameLength;
    union {
        unsigned char few[NODE_FEW_CHILDREN]; // the children's first bytes while childCapacity <= NODE_FEW_CHILDREN
        unsigned char *many;                  // else
    } firstBytes;
};

// Nodes and texts of one matcher: chunks that are only freed together.
typedef struct _UriChunk UriChunk;
typedef struct _UriArena {
    UriChunk *chunks; // newest first
    int nodeCount;    // nodes below both roots
} UriArena;

enum class UriTargetKind : uint8_t { None, Text, WebModule, Mixed };

struct _URIMatcher {
    TavRoutingInfo *ri; // borrowed; may be null
    char *name;
    Node genAppTree;  // generic applications
    Node realAppTree; // all others
    void *catchAllTarget;
    TrContext *trCtx;   // the library's default trace context
    TrRecord *debugCtl; // "control.mapper"
    TrRecord *debugReq; // "http.request.map.url"
    UriArena arena;
    UriTargetKind targetKind; // what the dump prints
    Boolean sealed;           // nothing was put since the last seal
    Boolean failed;           // a put found no memory
    URIMatcher *next;         // for a holder that keeps replaced matchers
    size_t placedSize;        // bytes of a holder's block that the matcher lies in; 0: it has memory of its own
};

// A pattern cut at its wildcard. The texts are borrowed for the call.
typedef struct _TargetInfo {
    void *object;
} TargetInfo;
typedef struct _Pattern {
    std::string_view pattern;
    std::string_view lhs; // before the "*", or all of it
    std::string_view rhs; // after it
    int wildcardIdx;      // -1 without one
    TargetInfo targetInfo;
} Pattern;

// `routingInfo` is borrowed and may be null (no tracing); `name` is copied, null counts as "". Returns new, null without memory.
URIMatcher *URIMatcherCreate(TavRoutingInfo *routingInfo, const char *name) noexcept;
// Borrows `target`; a name text unless `targetIsWebModule`. An invalid pattern (null, empty, two "*") and a null target are ignored.
// Always 0: a put that found no memory shows in URIMatcherIsComplete. Not on a matcher that requests read.
int URIMatcherPut(URIMatcher *matcher, const char *pattern, void *target, Boolean targetIsWebModule) noexcept;
// FALSE once a put lost a pattern for want of memory.
Boolean URIMatcherIsComplete(const URIMatcher *matcher) noexcept;
// Lays the trees out in one block of the exact size, in walking order; a later put opens it again. Matches do not change. FALSE without
// memory: the matcher stays as it was, and works.
Boolean URIMatcherSeal(URIMatcher *matcher) noexcept;
// A sealed copy in a holder's block: record, trees and name side by side, so that a match touches few cache lines. URIMatcherPlaceSize says
// how much room it takes (a multiple of URI_PLACE_ALIGNMENT; 0 without memory), `memory` is aligned to that. Returns the copy, which the
// holder's block must outlive and which is deleted like any other; null without memory.
inline constexpr size_t URI_PLACE_ALIGNMENT = 64;
size_t URIMatcherPlaceSize(const URIMatcher *matcher) noexcept;
URIMatcher *URIMatcherPlace(const URIMatcher *matcher, void *memory) noexcept;
// Asks for the first cache lines of a matcher that is about to be matched.
inline void URIMatcherPrefetch(const URIMatcher *matcher) noexcept {
    constexpr size_t LINES = 7; // record, a few nodes and their texts when the matcher is placed
    for (size_t i = 0; i < LINES; ++i) __builtin_prefetch(reinterpret_cast<const char *>(matcher) + i * URI_PLACE_ALIGNMENT);
}
// Returns a new sealed matcher with the same targets; null without memory.
URIMatcher *URIMatcherClone(const URIMatcher *matcher) noexcept;
// The target, borrowed, or null. A null matcher or path matches as no patterns and "". Allocates nothing. `requestContext` may be null.
void *URIMatcherMatch(const URIMatcher *matcher, const char *path, TavHttpContext *requestContext) noexcept;
// Returns new: context root and uri joined by one "/". Null or "null" (any case) as root and a null uri count as "". Null without memory.
char *URIMatcherMakePattern(const char *contextRoot, const char *uri) noexcept;
// Appends the text dump to the text in `buffer`, which has room for URIMatcherInfoLength more characters and the terminator.
void URIMatcherAddInfo(const URIMatcher *matcher, char *buffer) noexcept;
size_t URIMatcherInfoLength(const URIMatcher *matcher) noexcept;
size_t URIMatcherMemorySize(const URIMatcher *matcher) noexcept; // bytes, record included
void URIMatcherDelete(URIMatcher *matcher) noexcept;             // null ignored; the targets stay
// Built-in self-test: the number of failed cases, each told on standard error.
int URIMatcherTest() noexcept;

#endif
