// A text-keyed hash map with chained buckets. Not locked.
//
// The map copies its keys (outside the allocation counter). Order of iteration is bucket order, then chain order; it shows in dumps and
// broadcasts, so the growth rule is part of the behaviour. A put returns what it displaced instead of destroying it.
#ifndef TAVHASH_TAVHASH_H
#define TAVHASH_TAVHASH_H

#include <cstddef>
#include <memory>

#include <tav/types.h>

typedef void (*TavHashDestructorFcn)(void *val);

typedef struct _TavHashEle {
    struct _TavHashEle *next;
    int hash;
    const char *key; // owned, in the element's own block, unless the element is the caller's
    void *val;
} TavHashEle;

typedef struct _TavHashMap {
    TavHashEle **array; // max + 1 buckets
    int count;          // entries
    int max;            // bucket mask
    TavHashDestructorFcn destructor;
} TavHashMap;

typedef struct _TavHashIterator {
    TavHashMap *hm;
    TavHashEle *current;
    TavHashEle *next; // saved, so that the current entry may be removed
    int index;        // next bucket
} TavHashIterator;

TavHashMap *tavHashMapCreate() noexcept; // 16 buckets; returns new, null without memory
TavHashMap *tavHashMapCreate2(TavHashDestructorFcn destructor) noexcept;
void tavHashMapSetDestructor(TavHashMap *hm, TavHashDestructorFcn destructor) noexcept; // null: nothing is done to values
void tavHashMapDestroy(TavHashMap *hm) noexcept;                                        // null ignored
void tavHashMapClean(TavHashMap *hm) noexcept;
// Removes every entry whose key begins with `prefix`; each value goes to `destructor` (may be null) after its entry is unlinked.
void tavHashMapClean2(TavHashMap *hm, const char *prefix, TavHashDestructorFcn destructor) noexcept;
int tavHashMapGetCount(const TavHashMap *hm) noexcept;

// hash = hash * 33 + byte (unsigned, modulo 2^32), from 0.
int tavHashCompute(const char *key) noexcept;
// The value, or null (null map or key too).
void *tavHashGet(const TavHashMap *hm, const char *key) noexcept;
void *tavHashGet2(const TavHashMap *hm, const char *key, int hash) noexcept;
// The entry of the key that is the first `length` bytes of `key` (no NUL among them), borrowed until the entry goes; null when absent.
const TavHashEle *tavHashFindEle(const TavHashMap *hm, const char *key, size_t length, int hash) noexcept;
// Stores `val` (null: removes the entry). Returns the value that the caller must now dispose of, or null: re-putting the same pointer
// returns null. Without memory the new value is returned unless it was stored.
void *tavHashPut(TavHashMap *hm, const char *key, void *val) noexcept;
void *tavHashPut2(TavHashMap *hm, const char *key, int hash, void *val) noexcept;
// For a map whose entries are all the caller's own memory. tavHashLink never fails: the caller has set hash, key and value, and the key is
// not in the map. tavHashMapForget empties the map and leaves the entries alone; it must come before the map is destroyed.
void tavHashLink(TavHashMap *hm, TavHashEle *ele) noexcept;
void tavHashUnlink(TavHashMap *hm, const TavHashEle *ele) noexcept; // an entry of this map
void tavHashMapForget(TavHashMap *hm) noexcept;                     // null ignored

TavHashIterator *tavHashIteratorCreate(TavHashMap *hm) noexcept; // returns new
void tavHashIteratorStart(TavHashMap *hm, TavHashIterator *it) noexcept;
void *tavHashNext(TavHashIterator *it) noexcept; // non-null while there is an entry
const char *tavHashThisKey(const TavHashIterator *it) noexcept;
void *tavHashThisVal(const TavHashIterator *it) noexcept;
void tavHashIteratorDestroy(TavHashIterator *it) noexcept;
void tavHashMapDump(TavHashMap *hm, const char *where) noexcept; // to standard output

void **tavAllocArray(int n) noexcept; // n + 1 zeroed slots
void tavFreeArray(void *array) noexcept;
void *tavHashMalloc(size_t size) noexcept;
void tavHashFree(void *ptr) noexcept;

// for (auto [key, value] : TavHashRange<T>(map)): the current entry may be removed inside the loop. Null map: no turn.
template <typename T>
class TavHashRange {
public:
    struct Entry {
        const char *key;
        T *value;
    };
    class Iterator {
    public:
        Iterator(TavHashMap *hm, bool end) noexcept : end_(end) {
            if (end_) return;
            tavHashIteratorStart(hm, &it_);
            ++*this;
        }
        Entry operator*() const noexcept { return {tavHashThisKey(&it_), static_cast<T *>(tavHashThisVal(&it_))}; }
        Iterator &operator++() noexcept {
            end_ = tavHashNext(&it_) == nullptr;
            return *this;
        }
        bool operator!=(const Iterator &other) const noexcept { return end_ != other.end_; }

    private:
        TavHashIterator it_{};
        bool end_;
    };
    explicit TavHashRange(TavHashMap *hm) noexcept : hm_(hm) {}
    Iterator begin() const noexcept { return Iterator(hm_, hm_ == nullptr); }
    Iterator end() const noexcept { return Iterator(nullptr, true); }

private:
    TavHashMap *hm_;
};

struct TavHashMapDeleter {
    void operator()(TavHashMap *hm) const noexcept { tavHashMapDestroy(hm); }
};
using TavHashMapPtr = std::unique_ptr<TavHashMap, TavHashMapDeleter>;

#endif
