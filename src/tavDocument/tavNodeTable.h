// A hash table of small nodes that come from slabs: one allocation for many nodes, none for a removal. Not locked.
#ifndef TAV_TAVNODETABLE_H
#define TAV_TAVNODETABLE_H

#include <cstddef>
#include <cstdint>

#include "tavUtil/tavMemory.h"

// `Node` is trivial and has `Node *chain` and `uint32_t hash`. Nodes of equal hash are found newest first.
template <typename Node>
class NodeTable {
public:
    // A zeroed node that is not in the table yet; null without memory. Either insert() or give() it back.
    Node *take() noexcept {
        if (!free_ && !addSlab()) return nullptr;
        Node *node = free_;
        free_ = node->chain;
        *node = Node{};
        return node;
    }
    void give(Node *node) noexcept {
        node->chain = free_;
        free_ = node;
    }
    // FALSE only without memory for the first buckets: the node is then still the caller's.
    bool insert(Node *node) noexcept {
        if (count_ >= bucketCount_ && !grow() && !buckets_) return false;
        Node **head = bucketOf(node->hash);
        node->chain = *head;
        *head = node;
        count_++;
        return true;
    }
    void remove(Node *node) noexcept {
        Node **link = bucketOf(node->hash);
        while (*link != node) link = &(*link)->chain;
        *link = node->chain;
        count_--;
        give(node);
    }
    // The first node of that hash that `matches`, or null.
    template <typename Matches>
    Node *find(uint32_t hash, Matches matches) const noexcept {
        for (Node *node = buckets_ ? buckets_[hash & (bucketCount_ - 1)] : nullptr; node; node = node->chain) {
            if (node->hash == hash && matches(node)) return node;
        }
        return nullptr;
    }
    void clear() noexcept {
        while (Slab *slab = slabs_) {
            slabs_ = slab->next;
            tavFree(slab);
        }
        tavFree(buckets_);
        *this = NodeTable{};
    }

private:
    static constexpr size_t SLAB_NODES = 256;
    struct Slab {
        Slab *next;
        Node nodes[SLAB_NODES];
    };

    Node **bucketOf(uint32_t hash) const noexcept { return &buckets_[hash & (bucketCount_ - 1)]; }
    bool addSlab() noexcept {
        auto *slab = static_cast<Slab *>(tavMalloc(sizeof(Slab)));
        if (!slab) return false;
        slab->next = slabs_;
        slabs_ = slab;
        for (size_t i = SLAB_NODES; i-- > 0;) give(&slab->nodes[i]);
        return true;
    }
    bool grow() noexcept {
        const size_t newCount = bucketCount_ ? bucketCount_ * 4 : 64;
        auto **newBuckets = static_cast<Node **>(tavMalloc(newCount * sizeof(Node *)));
        if (!newBuckets) return false;
        for (size_t i = 0; i < bucketCount_; i++) {
            for (Node *node = buckets_[i], *next; node; node = next) {
                next = node->chain;
                Node **head = &newBuckets[node->hash & (newCount - 1)];
                node->chain = *head;
                *head = node;
            }
        }
        tavFree(buckets_);
        buckets_ = newBuckets;
        bucketCount_ = newCount;
        return true;
    }

    Node **buckets_ = nullptr;
    size_t bucketCount_ = 0; // a power of two
    size_t count_ = 0;
    Node *free_ = nullptr;
    Slab *slabs_ = nullptr;
};

#endif
