// A text-keyed hash map with chained buckets.
//
// Invariants: the array has max + 1 slots, a power of two; an entry lies in the bucket (hash & max); `count` is the number of entries. The
// table doubles when an insertion meets more than `max` entries and never shrinks; growing pushes each entry at the head of its new chain.
// The order of iteration that follows from this is visible to the outside, which is why no library map stands here.
//
// Keys are copied into the entry's own block. That block stays outside the allocation counter, which counts what callers make. Values
// belong to the caller until the map is cleaned or destroyed; a put hands back what it displaced. Entries are unlinked before their value
// is destroyed, so a value's destructor may use the map. A map may instead link entries that are part of its caller's records
// (tavHashLink). Not locked.
#include "tavHash/tavHash.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tavUtil/tavMemory.h"

namespace {

constexpr int INITIAL_MAX = 15;

void keepValue(void *) noexcept {}

TavHashEle **bucketOf(const TavHashMap *hm, int hash) noexcept { return &hm->array[hash & hm->max]; }

// The link that leads to the key's entry, or the empty one at the end of its chain.
TavHashEle **findLink(const TavHashMap *hm, const char *key, int hash) noexcept {
    TavHashEle **link = bucketOf(hm, hash);
    while (*link && ((*link)->hash != hash || std::strcmp((*link)->key, key) != 0)) link = &(*link)->next;
    return link;
}

// Without memory the table stays as it is: longer chains, nothing lost.
void grow(TavHashMap *hm) noexcept {
    if (hm->max > (INT_MAX - 1) / 2) return;
    const int newMax = hm->max * 2 + 1;
    auto **newArray = reinterpret_cast<TavHashEle **>(tavAllocArray(newMax));
    if (!newArray) return;
    for (int i = 0; i <= hm->max; i++) {
        for (TavHashEle *ele = hm->array[i], *next; ele; ele = next) {
            next = ele->next;
            TavHashEle **head = &newArray[ele->hash & newMax];
            ele->next = *head;
            *head = ele;
        }
    }
    tavFreeArray(hm->array);
    hm->array = newArray;
    hm->max = newMax;
}

TavHashEle *newElement(const char *key, int hash, void *val) noexcept {
    const size_t keySize = std::strlen(key) + 1;
    auto *ele = static_cast<TavHashEle *>(tavMallocUncounted(sizeof(TavHashEle) + keySize));
    if (!ele) return nullptr;
    auto *ownKey = reinterpret_cast<char *>(ele + 1);
    std::memcpy(ownKey, key, keySize);
    *ele = {nullptr, hash, ownKey, val};
    return ele;
}

// Takes the entry out of its chain and frees it; returns its value.
void *removeAt(TavHashMap *hm, TavHashEle **link) noexcept {
    TavHashEle *ele = *link;
    *link = ele->next;
    hm->count--;
    void *val = ele->val;
    tavFreeUncounted(ele);
    return val;
}

// Moves the entries whose key begins with `prefix` out of the map into a chain of their own, in order of iteration.
TavHashEle *detachPrefix(TavHashMap *hm, const char *prefix, size_t prefixLength) noexcept {
    TavHashEle *detached = nullptr;
    TavHashEle **tail = &detached;
    for (int i = 0; i <= hm->max; i++) {
        TavHashEle **link = &hm->array[i];
        while (TavHashEle *ele = *link) {
            if (std::strncmp(ele->key, prefix, prefixLength) != 0) {
                link = &ele->next;
                continue;
            }
            *link = ele->next;
            ele->next = nullptr;
            *tail = ele;
            tail = &ele->next;
            hm->count--;
        }
    }
    return detached;
}

unsigned int printable(const void *pointer) noexcept { return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(pointer)); }

void dumpIterator(const TavHashIterator *it, int step) noexcept {
    std::printf("   (%d) hi.current=%x; hi.next=%x; hi.index=%x\n", step, printable(it->current), printable(it->next),
                static_cast<unsigned int>(it->index));
}

} // namespace

TavHashMap *tavHashMapCreate() noexcept { return tavHashMapCreate2(nullptr); }

TavHashMap *tavHashMapCreate2(TavHashDestructorFcn destructor) noexcept {
    auto **array = reinterpret_cast<TavHashEle **>(tavAllocArray(INITIAL_MAX));
    if (!array) return nullptr;
    auto *hm = tavNewRecord<TavHashMap>(array, 0, INITIAL_MAX, destructor ? destructor : keepValue);
    if (!hm) tavFreeArray(array);
    return hm;
}

void tavHashMapSetDestructor(TavHashMap *hm, TavHashDestructorFcn destructor) noexcept {
    if (hm) hm->destructor = destructor ? destructor : keepValue;
}

void tavHashMapDestroy(TavHashMap *hm) noexcept {
    if (!hm) return;
    tavHashMapClean(hm);
    tavFreeArray(hm->array);
    tavFree(hm);
}

void tavHashMapClean(TavHashMap *hm) noexcept {
    if (hm) tavHashMapClean2(hm, "", hm->destructor);
}

void tavHashMapClean2(TavHashMap *hm, const char *prefix, TavHashDestructorFcn destructor) noexcept {
    if (!hm || !prefix) return;
    for (TavHashEle *ele = detachPrefix(hm, prefix, std::strlen(prefix)), *next; ele; ele = next) {
        next = ele->next;
        void *val = ele->val;
        tavFreeUncounted(ele);
        if (destructor) destructor(val);
    }
}

int tavHashMapGetCount(const TavHashMap *hm) noexcept { return hm ? hm->count : 0; }

int tavHashCompute(const char *key) noexcept {
    uint32_t hash = 0;
    if (!key) return 0;
    for (; *key; key++) hash = hash * 33U + static_cast<unsigned char>(*key);
    return static_cast<int>(hash);
}

void *tavHashGet(const TavHashMap *hm, const char *key) noexcept { return tavHashGet2(hm, key, tavHashCompute(key)); }

void *tavHashGet2(const TavHashMap *hm, const char *key, int hash) noexcept {
    if (!hm || !key) return nullptr;
    const TavHashEle *ele = *findLink(hm, key, hash);
    return ele ? ele->val : nullptr;
}

void *tavHashPut(TavHashMap *hm, const char *key, void *val) noexcept { return tavHashPut2(hm, key, tavHashCompute(key), val); }

void *tavHashPut2(TavHashMap *hm, const char *key, int hash, void *val) noexcept {
    if (!hm || !key) return val;
    if (val && hm->count > hm->max) grow(hm); // before the search, also when the key turns out to exist
    TavHashEle **link = findLink(hm, key, hash);
    if (!val) return *link ? removeAt(hm, link) : nullptr;
    if (TavHashEle *ele = *link) {
        void *old = ele->val;
        ele->val = val;
        return old == val ? nullptr : old;
    }
    *link = newElement(key, hash, val);
    if (!*link) return val;
    hm->count++;
    return nullptr;
}

void tavHashLink(TavHashMap *hm, TavHashEle *ele) noexcept {
    if (hm->count > hm->max) grow(hm);
    ele->next = nullptr;
    *findLink(hm, ele->key, ele->hash) = ele;
    hm->count++;
}

void tavHashUnlink(TavHashMap *hm, const TavHashEle *ele) noexcept {
    TavHashEle **link = bucketOf(hm, ele->hash);
    while (*link != ele) link = &(*link)->next;
    *link = ele->next;
    hm->count--;
}

void tavHashMapForget(TavHashMap *hm) noexcept {
    if (!hm) return;
    std::fill_n(hm->array, static_cast<size_t>(hm->max) + 1, nullptr);
    hm->count = 0;
}

TavHashIterator *tavHashIteratorCreate(TavHashMap *hm) noexcept {
    auto *it = tavNewRecord<TavHashIterator>();
    if (it) tavHashIteratorStart(hm, it);
    return it;
}

void tavHashIteratorStart(TavHashMap *hm, TavHashIterator *it) noexcept { *it = {hm, nullptr, nullptr, 0}; }

void *tavHashNext(TavHashIterator *it) noexcept {
    if (!it || !it->hm) return nullptr;
    it->current = it->next;
    while (!it->current) {
        if (it->index > it->hm->max) return nullptr;
        it->current = it->hm->array[it->index++];
    }
    it->next = it->current->next;
    return it->current;
}

const char *tavHashThisKey(const TavHashIterator *it) noexcept { return it && it->current ? it->current->key : nullptr; }

void *tavHashThisVal(const TavHashIterator *it) noexcept { return it && it->current ? it->current->val : nullptr; }

void tavHashIteratorDestroy(TavHashIterator *it) noexcept { tavFree(it); }

void tavHashMapDump(TavHashMap *hm, const char *where) noexcept {
    if (!hm) return;
    const char *place = where ? where : "null";
    std::printf("TAV: HashMapDump: begin %s; count = %d; max = %d\n", place, hm->count, hm->max);
    TavHashIterator it;
    tavHashIteratorStart(hm, &it);
    int step = 0;
    dumpIterator(&it, step);
    while (tavHashNext(&it)) {
        dumpIterator(&it, ++step);
        std::printf("        current.next=%x; current.hash=%d; current.key=%s; current.val=%x\n", printable(it.current->next),
                    it.current->hash, it.current->key, printable(it.current->val));
    }
    std::printf("TAV: HashMapDump: end %s\n", place);
}

void **tavAllocArray(int n) noexcept {
    return n < 0 ? nullptr : static_cast<void **>(tavHashMalloc((static_cast<size_t>(n) + 1) * sizeof(void *)));
}

void tavFreeArray(void *array) noexcept { tavFree(array); }

void *tavHashMalloc(size_t size) noexcept { return tavMalloc(size); }

void tavHashFree(void *ptr) noexcept { tavFree(ptr); }

const TavHashEle *tavHashFindEle(const TavHashMap *hm, const char *key, size_t length, int hash) noexcept {
    if (!hm || !key) return nullptr;
    const TavHashEle *ele = *bucketOf(hm, hash);
    while (ele && (ele->hash != hash || std::strncmp(ele->key, key, length) != 0 || ele->key[length] != '\0')) ele = ele->next;
    return ele;
}
