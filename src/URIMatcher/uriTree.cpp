// Insertion into one compressed prefix tree, and the walk of a path through it.
//
// Every step of an insertion (growing a child array, splitting an edge, adding a node) takes its memory before it changes anything, so a
// tree is whole after each of them. A node without targets left by a failed put does not change what matches.
#include <algorithm>

#include "URIMatcher/uriTree.h"

static constexpr int MAX_CHILDREN = 255; // one per first byte; no text holds a NUL

void uriNodeInit(Node *node, std::string_view name, int depth) noexcept {
    *node = {};
    node->depth = depth;
    node->name = name.data();
    node->nameLength = static_cast<uint32_t>(name.size());
    node->origin = ORIGIN_UNSPECIFIED;
}

void uriMoveNodes(Node *to, const Node *from, int count) noexcept {
    memmove(to, from, static_cast<size_t>(count) * sizeof(Node));
    for (Node *node = to; node < to + count; ++node) {
        for (Suffix *suffix = node->suffixes; suffix; suffix = suffix->next) suffix->node = node;
    }
}

// Room for one more child; the node's children move to a larger array when there is none.
static bool reserveChild(UriArena *arena, Node *node) noexcept {
    if (node->childCount < node->childCapacity) return true;
    const int capacity = std::clamp(node->childCapacity * 2, 1, MAX_CHILDREN);
    const bool many = capacity > NODE_FEW_CHILDREN;
    Node *children = uriArenaNew<Node>(arena, static_cast<size_t>(capacity));
    unsigned char *bytes = many ? uriArenaNew<unsigned char>(arena, static_cast<size_t>(capacity)) : nullptr;
    if (!children || (many && !bytes)) return false;
    if (node->childCount) uriMoveNodes(children, node->children, node->childCount);
    if (many) {
        memcpy(bytes, uriFirstBytes(node), node->childCount);
        node->firstBytes.many = bytes;
    }
    node->children = children;
    node->childCapacity = static_cast<uint8_t>(capacity);
    return true;
}

static unsigned char *firstBytesOf(Node *node) noexcept { return uriNodeHasMany(node) ? node->firstBytes.many : node->firstBytes.few; }

// The new last child; room must have been reserved.
static Node *appendChild(UriArena *arena, Node *parent, std::string_view name) noexcept {
    Node *child = &parent->children[parent->childCount];
    uriNodeInit(child, name, parent->depth + 1);
    firstBytesOf(parent)[parent->childCount++] = static_cast<unsigned char>(name[0]);
    ++arena->nodeCount;
    return child;
}

static Node *addChild(UriArena *arena, Node *parent, std::string_view name) noexcept {
    return reserveChild(arena, parent) ? appendChild(arena, parent, name) : nullptr;
}

static void removeChild(Node *parent, int position) noexcept {
    const int after = --parent->childCount - position;
    uriMoveNodes(&parent->children[position], &parent->children[position + 1], after);
    memmove(firstBytesOf(parent) + position, firstBytesOf(parent) + position + 1, static_cast<size_t>(after));
}

// Puts a new node between the parent and a child: it takes the first `length` characters of the child's name and becomes the last child.
static Node *splitChild(UriArena *arena, Node *parent, int position, size_t length) noexcept {
    Node *room = uriArenaNew<Node>(arena, 1);
    if (!room) return nullptr;
    const std::string_view name = uriNodeName(&parent->children[position]);
    uriMoveNodes(room, &parent->children[position], 1);
    removeChild(parent, position);
    Node *upper = appendChild(arena, parent, name.substr(0, length));
    upper->children = room;
    upper->childCount = upper->childCapacity = 1;
    upper->firstBytes.few[0] = static_cast<unsigned char>(name[length]);
    room->name += length;
    room->nameLength -= static_cast<uint32_t>(length);
    room->depth = upper->depth + 1;
    return upper;
}

static size_t commonLength(std::string_view a, std::string_view b) noexcept {
    const size_t limit = std::min(a.size(), b.size());
    return static_cast<size_t>(std::mismatch(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(limit), b.begin()).first - a.begin());
}

// The node of the key, made if need be; null without memory.
static Node *nodeForKey(UriArena *arena, Node *root, std::string_view key) noexcept {
    Node *node = root;
    while (!key.empty()) {
        const int position = uriFindChild(node, static_cast<unsigned char>(key[0]));
        if (position < 0) return addChild(arena, node, key);
        Node *child = &node->children[position];
        const size_t shared = commonLength(uriNodeName(child), key);
        key.remove_prefix(shared);
        node = shared == child->nameLength ? child : splitChild(arena, node, position, shared);
        if (!node) return nullptr;
    }
    return node;
}

// The first target of a suffix stays.
static bool addSuffix(UriArena *arena, Node *node, std::string_view text, void *target) noexcept {
    Suffix **end = &node->suffixes;
    for (; *end; end = &(*end)->next) {
        if (uriSuffixText(*end) == text) return true;
    }
    auto *suffix = uriArenaNew<Suffix>(arena, 1);
    if (!suffix) return false;
    *suffix = {node, text.data(), target, nullptr, static_cast<uint32_t>(text.size())};
    *end = suffix;
    return true;
}

static void setExact(Node *node, void *target, Origin origin) noexcept {
    if (node->exactTarget && origin <= node->origin) return;
    node->exactTarget = target;
    node->origin = origin;
}

Boolean uriTreePut(UriArena *arena, Node *root, const Pattern &pattern, Origin origin) noexcept {
    Node *node = nodeForKey(arena, root, pattern.lhs);
    if (!node) return FALSE;
    void *target = pattern.targetInfo.object;
    if (pattern.wildcardIdx < 0) {
        setExact(node, target, origin);
    } else if (!pattern.rhs.empty()) {
        return addSuffix(arena, node, pattern.rhs, target);
    } else if (!node->prefixTarget) {
        node->prefixTarget = target;
    }
    return TRUE;
}

static const Suffix *longestSuffix(const Node *node, const UriPath &path) noexcept {
    const Suffix *best = nullptr;
    for (const Suffix *suffix = node->suffixes; suffix; suffix = suffix->next) {
        if ((!best || suffix->suffixLength > best->suffixLength) && path.endsWith(uriSuffixText(suffix))) best = suffix;
    }
    return best;
}

// The child that the path runs through completely, or null.
static const Node *childOnPath(const Node *node, const UriPath &path, size_t offset) noexcept {
    const int position = uriFindChild(node, static_cast<unsigned char>(path.at(offset)));
    if (position < 0) return nullptr;
    // The first byte is compared already; many an edge has no other.
    const Node *child = &node->children[position];
    const size_t rest = child->nameLength - 1;
    return rest < path.length - offset && (rest == 0 || path.has(offset + 1, child->name + 1, rest)) ? child : nullptr;
}

// The deepest node with a matching suffix or a prefix target decides; at one node the suffix comes first.
void *matchPattern(const Node *root, const UriPath &path) noexcept {
    void *found = nullptr;
    size_t offset = 0;
    const Node *node = root;
    while (offset < path.length) {
        node = childOnPath(node, path, offset);
        if (!node) break;
        offset += node->nameLength;
        if (node->exactTarget && offset == path.length) return node->exactTarget;
        const Suffix *suffix = longestSuffix(node, path);
        if (suffix) {
            found = suffix->target;
        } else if (node->prefixTarget) {
            found = node->prefixTarget;
        }
    }
    return found;
}
