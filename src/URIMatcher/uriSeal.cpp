// Sealing: both trees move into one block of the exact size. The children of a node lie side by side and a subtree follows its node, so
// that a walk touches few cache lines; suffixes, first bytes and texts come behind, in the same order.
#include <new>
#include <type_traits>
#include <utility>

#include "URIMatcher/uriTree.h"
#include "tavUtil/tavMemory.h"

static constexpr size_t CACHE_LINE = URI_PLACE_ALIGNMENT;
static_assert(sizeof(Node) <= CACHE_LINE);
static_assert(std::is_trivially_copyable_v<URIMatcher>); // a placed one is copied and forgotten

static constexpr size_t wholeLines(size_t bytes) noexcept { return (bytes + CACHE_LINE - 1) & ~(CACHE_LINE - 1); }

UriWalkStack::UriWalkStack(int capacity) noexcept
    : frames(static_cast<Frame *>(tavMalloc(sizeof(Frame) * (static_cast<size_t>(capacity) + 1)))), count(0) {}

UriWalkStack::~UriWalkStack() noexcept { tavFree(frames); }

void UriWalkStack::pushChildren(const Node *node, int level) noexcept {
    for (int i = node->childCount; i-- > 0;) frames[count++] = {&node->children[i], level};
}

struct TreeSize {
    size_t nodes;
    size_t suffixes;
    size_t texts; // names, suffix texts and the first bytes of large nodes
};

static void addNodeSize(TreeSize *size, const Node *node) noexcept {
    size->nodes += node->childCount;
    size->texts += node->nameLength + (node->childCount > NODE_FEW_CHILDREN ? node->childCount : 0U);
    for (const Suffix *suffix = node->suffixes; suffix; suffix = suffix->next) {
        ++size->suffixes;
        size->texts += suffix->suffixLength;
    }
}

static void addTreeSize(TreeSize *size, UriWalkStack *stack, const Node *root) noexcept {
    addNodeSize(size, root);
    stack->pushChildren(root, 0);
    while (!stack->empty()) {
        const Node *node = stack->pop().node;
        addNodeSize(size, node);
        stack->pushChildren(node, 0);
    }
}

// The parts of the block, each with its next free place.
struct Block {
    Node *nodes;
    Suffix *suffixes;
    char *texts;

    const char *copyText(const char *text, size_t n) noexcept {
        if (n) memcpy(texts, text, n);
        texts += n;
        return texts - n;
    }
};

static size_t blockBytes(const TreeSize &size) noexcept { return size.nodes * sizeof(Node) + size.suffixes * sizeof(Suffix) + size.texts; }

static Block blockAt(void *memory, const TreeSize &size) noexcept {
    Block block{};
    block.nodes = static_cast<Node *>(memory);
    block.suffixes = reinterpret_cast<Suffix *>(block.nodes + size.nodes);
    block.texts = reinterpret_cast<char *>(block.suffixes + size.suffixes);
    return block;
}

static Boolean makeBlock(Block *block, UriArena *arena, const TreeSize &size) noexcept {
    if (!size.nodes && !size.suffixes) return TRUE; // only the roots, which have the empty name
    const size_t bytes = blockBytes(size);
    if (!uriArenaReserve(arena, bytes + CACHE_LINE)) return FALSE;
    *block = blockAt(uriArenaAlloc(arena, bytes, CACHE_LINE), size);
    return TRUE;
}

static void moveSuffixes(Block *block, Node *node) noexcept {
    Suffix **end = &node->suffixes;
    for (const Suffix *from = *end; from; from = from->next) {
        Suffix *to = block->suffixes++;
        *to = {node, block->copyText(from->suffix, from->suffixLength), from->target, nullptr, from->suffixLength};
        *end = to;
        end = &to->next;
    }
}

static void moveChildren(Block *block, Node *node) noexcept {
    const Node *from = node->children;
    const unsigned char *bytes = uriFirstBytes(node);
    if (node->childCount > NODE_FEW_CHILDREN) {
        node->firstBytes.many = reinterpret_cast<unsigned char *>(block->texts);
        block->copyText(reinterpret_cast<const char *>(bytes), node->childCount);
    } else if (uriNodeHasMany(node)) {
        memcpy(node->firstBytes.few, bytes, node->childCount);
    }
    node->children = block->nodes;
    node->childCapacity = node->childCount;
    block->nodes += node->childCount;
    for (int i = 0; i < node->childCount; ++i) {
        node->children[i] = from[i];
        node->children[i].depth = node->depth + 1;
    }
}

// Makes a bitwise copy of a node own copies of its name, suffixes and children; the children are bitwise copies then.
static void settle(Block *block, Node *node) noexcept {
    node->name = block->copyText(node->name, node->nameLength);
    moveSuffixes(block, node);
    moveChildren(block, node);
}

static void settleTree(Block *block, UriWalkStack *stack, Node *root) noexcept {
    root->name = ""; // the roots stay outside the block
    moveSuffixes(block, root);
    moveChildren(block, root);
    stack->pushChildren(root, 0);
    while (!stack->empty()) {
        Node *node = stack->pop().node;
        settle(block, node);
        stack->pushChildren(node, 0);
    }
}

static TreeSize sizeOfTrees(const URIMatcher *matcher, UriWalkStack *stack) noexcept {
    TreeSize size{};
    addTreeSize(&size, stack, &matcher->genAppTree);
    addTreeSize(&size, stack, &matcher->realAppTree);
    return size;
}

static void fillTrees(URIMatcher *to, const URIMatcher *from, Block *block, UriWalkStack *stack) noexcept {
    to->arena.nodeCount = from->arena.nodeCount;
    to->genAppTree = from->genAppTree;
    to->realAppTree = from->realAppTree;
    settleTree(block, stack, &to->genAppTree);
    settleTree(block, stack, &to->realAppTree);
    to->sealed = TRUE;
}

Boolean uriCopyTrees(URIMatcher *to, const URIMatcher *from) noexcept {
    UriWalkStack stack(from->arena.nodeCount);
    Block block{};
    if (!stack.ok() || !makeBlock(&block, &to->arena, sizeOfTrees(from, &stack))) return FALSE;
    fillTrees(to, from, &block, &stack);
    return TRUE;
}

// ---- placing: the record, then the trees' block, then the name ----

static constexpr size_t RECORD_ROOM = wholeLines(sizeof(URIMatcher));

static size_t placeSize(const URIMatcher *matcher, const TreeSize &size) noexcept {
    return RECORD_ROOM + wholeLines(blockBytes(size) + strlen(matcher->name) + 1);
}

size_t URIMatcherPlaceSize(const URIMatcher *matcher) noexcept {
    UriWalkStack stack(matcher->arena.nodeCount);
    return stack.ok() ? placeSize(matcher, sizeOfTrees(matcher, &stack)) : 0;
}

URIMatcher *URIMatcherPlace(const URIMatcher *matcher, void *memory) noexcept {
    UriWalkStack stack(matcher->arena.nodeCount);
    if (!stack.ok()) return nullptr;
    const TreeSize size = sizeOfTrees(matcher, &stack);
    auto *copy = new (memory) URIMatcher(*matcher);
    copy->arena = {};
    copy->next = nullptr;
    copy->placedSize = placeSize(matcher, size);
    Block block = blockAt(static_cast<char *>(memory) + RECORD_ROOM, size);
    fillTrees(copy, matcher, &block, &stack);
    copy->name = block.texts;
    memcpy(copy->name, matcher->name, strlen(matcher->name) + 1);
    return copy;
}

Boolean URIMatcherSeal(URIMatcher *matcher) noexcept {
    if (!matcher) return FALSE;
    if (matcher->sealed) return TRUE;
    URIMatcher packed{};
    if (!uriCopyTrees(&packed, matcher)) return FALSE;
    uriArenaFree(&matcher->arena);
    matcher->arena = packed.arena;
    // A root's suffixes name it as their owner.
    uriMoveNodes(&matcher->genAppTree, &packed.genAppTree, 1);
    uriMoveNodes(&matcher->realAppTree, &packed.realAppTree, 1);
    matcher->sealed = TRUE;
    return TRUE;
}

URIMatcher *URIMatcherClone(const URIMatcher *matcher) noexcept {
    if (!matcher) return nullptr;
    URIMatcher *copy = URIMatcherCreate(nullptr, matcher->name);
    if (!copy) return nullptr;
    if (!uriCopyTrees(copy, matcher)) {
        URIMatcherDelete(copy);
        return nullptr;
    }
    copy->ri = matcher->ri;
    copy->catchAllTarget = matcher->catchAllTarget;
    copy->trCtx = matcher->trCtx;
    copy->debugCtl = matcher->debugCtl;
    copy->debugReq = matcher->debugReq;
    copy->targetKind = matcher->targetKind;
    copy->failed = matcher->failed;
    return copy;
}
