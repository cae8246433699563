// The trees inside a matcher: arena, insertion, walk, sealing. Only for this folder.
#ifndef URIMATCHER_URITREE_H
#define URIMATCHER_URITREE_H

#include <cstring>

#include "URIMatcher/URIMatcher.h"

// ---- arena ----
struct _UriChunk {
    UriChunk *next; // older
    size_t size;    // usable bytes, which follow
    size_t used;
};

// Zero-filled, aligned to `alignment` (a power of two); null without memory. Lives as long as the arena.
void *uriArenaAlloc(UriArena *arena, size_t size, size_t alignment) noexcept;
// Makes one chunk of exactly `size` bytes in an empty arena. FALSE without memory.
Boolean uriArenaReserve(UriArena *arena, size_t size) noexcept;
size_t uriArenaSize(const UriArena *arena) noexcept;
void uriArenaFree(UriArena *arena) noexcept;

template <typename T>
T *uriArenaNew(UriArena *arena, size_t count) noexcept {
    return static_cast<T *>(uriArenaAlloc(arena, count * sizeof(T), alignof(T)));
}

// ---- nodes ----
void uriNodeInit(Node *node, std::string_view name, int depth) noexcept;
inline std::string_view uriNodeName(const Node *node) noexcept { return {node->name, node->nameLength}; }
inline bool uriNodeHasMany(const Node *node) noexcept { return node->childCapacity > NODE_FEW_CHILDREN; }
inline const unsigned char *uriFirstBytes(const Node *node) noexcept {
    return uriNodeHasMany(node) ? node->firstBytes.many : node->firstBytes.few;
}

// Copies nodes, which may overlap, and tells their suffixes the new owner.
void uriMoveNodes(Node *to, const Node *from, int count) noexcept;

inline std::string_view uriSuffixText(const Suffix *suffix) noexcept { return {suffix->suffix, suffix->suffixLength}; }

// Position of the child whose name begins with `first`, or -1.
inline int uriFindChild(const Node *node, unsigned char first) noexcept {
    if (uriNodeHasMany(node)) {
        const void *hit = memchr(node->firstBytes.many, first, node->childCount);
        return hit ? static_cast<int>(static_cast<const unsigned char *>(hit) - node->firstBytes.many) : -1;
    }
    for (int i = 0; i < node->childCount; ++i) {
        if (node->firstBytes.few[i] == first) return i;
    }
    return -1;
}

// ---- trees ----
// Inserts one pattern whose texts live in the arena. FALSE without memory: the tree is consistent, the pattern may be missing.
Boolean uriTreePut(UriArena *arena, Node *root, const Pattern &pattern, Origin origin) noexcept;

// A path as the trees see it: with a "/" in front, which need not be there in the text.
struct UriPath {
    explicit UriPath(const char *path) noexcept : text(path ? path : ""), length(strlen(text)), implied(length > 0 && text[0] != '/') {
        length += implied;
    }
    char at(size_t offset) const noexcept { return offset < implied ? '/' : text[offset - implied]; }
    bool has(size_t offset, const char *part, size_t n) const noexcept {
        if (offset >= implied) return memcmp(text + (offset - implied), part, n) == 0;
        return n == 0 || (part[0] == '/' && memcmp(text, part + 1, n - 1) == 0);
    }
    bool endsWith(std::string_view suffix) const noexcept {
        return suffix.size() <= length && has(length - suffix.size(), suffix.data(), suffix.size());
    }

    const char *text;
    size_t length;  // the implied "/" included
    size_t implied; // 1 when the "/" in front is implied
};

void *matchPattern(const Node *root, const UriPath &path) noexcept;

// ---- whole trees ----
// A stack for walks without recursion; it never grows past the number of nodes.
struct UriWalkStack {
    explicit UriWalkStack(int capacity) noexcept;
    ~UriWalkStack() noexcept;
    UriWalkStack(const UriWalkStack &) = delete;
    UriWalkStack &operator=(const UriWalkStack &) = delete;
    bool ok() const noexcept { return frames != nullptr; }
    bool empty() const noexcept { return count == 0; }
    struct Frame {
        Node *node;
        int level;
    };
    void pushChildren(const Node *node, int level) noexcept; // the first child is popped first
    Frame pop() noexcept { return frames[--count]; }

    Frame *frames;
    int count;
};

// Copies both trees of `from` into one new block and makes them the trees of `to`, whose arena must be empty. FALSE without memory.
Boolean uriCopyTrees(URIMatcher *to, const URIMatcher *from) noexcept;

#endif
