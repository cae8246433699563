// Counted allocation: every record of the library comes from here, so that a test can see that all of it went back.
#ifndef TAVUTIL_TAVMEMORY_H
#define TAVUTIL_TAVMEMORY_H

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include <tav/types.h>

// Zero-filled memory, or null. Adds one to the counter.
void *tavMalloc(size_t size) noexcept;
// Copies; null for null or without memory. Each adds one to the counter. tavStrndup copies at most `n` bytes and terminates.
char *tavStrdup(const char *text) noexcept;
char *tavStrndup(const char *text, size_t n) noexcept;
// Gives memory back and subtracts one; null is ignored and not counted.
void tavFree(void *ptr) noexcept;

// Zero-filled memory outside the counter: for copies that a container keeps for itself. Pairs with tavFreeUncounted (null ignored).
void *tavMallocUncounted(size_t size) noexcept;
void tavFreeUncounted(void *ptr) noexcept;

// Asked before every allocation of this file; FALSE makes that allocation fail. Null: nobody is asked. For tests.
void tavSetAllocationGate(Boolean (*gate)(size_t size)) noexcept;

// Allocations that found no memory on this thread so far: tells a caller at the top of many steps whether one of them lacked memory.
unsigned tavAllocationFailures() noexcept;
// Counts one more: for those that get memory elsewhere (operator new) and found none.
void tavNoteAllocationFailure() noexcept;

// Blocks allocated and not yet freed. Exact while no thread allocates.
int tavGetMemCount() noexcept;
void tavResetMemCount() noexcept;

// Frees the text at `*location` and stores a copy of `value` (null: none). Without memory the old text stays. FALSE then.
Boolean tavReplaceStr(char **location, const char *value) noexcept;

// A new record of type T from counted memory, constructed with `args`; null without memory. Pairs with tavDestroyRecord.
template <typename T, typename... Args>
T *tavNewRecord(Args &&...args) noexcept {
    static_assert(alignof(T) <= alignof(std::max_align_t));
    void *memory = tavMalloc(sizeof(T));
    return memory ? new (memory) T{std::forward<Args>(args)...} : nullptr;
}

template <typename T>
void tavDestroyRecord(T *record) noexcept {
    if (!record) return;
    record->~T();
    tavFree(record);
}

struct TavFreer {
    void operator()(void *ptr) const noexcept { tavFree(ptr); }
};
// Owns a text from this allocator for the length of a function.
using TavText = std::unique_ptr<char, TavFreer>;

#endif
