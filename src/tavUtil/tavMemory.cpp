// Counted allocation.
//
// The counter exists so that a test can see that every block went back. It must not slow the request threads down: a single atomic would
// be a cache line that every allocation of every thread fights over. So it is split into shards on cache lines of their own; a thread
// sticks to one shard. A block may be freed by another thread than its allocator, so a shard alone may be negative; only the sum means
// something, and it is exact while no thread allocates.
//
// Nothing here locks. Blocks come from the C library, so a block may be freed on any thread.
#include "tavUtil/tavMemory.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned SHARDS = 16;

struct alignas(64) Shard {
    std::atomic<int> blocks{0};
};

constinit std::array<Shard, SHARDS> shards{};
constinit std::atomic<unsigned> nextShard{0};
constinit std::atomic<Boolean (*)(size_t)> allocationGate{nullptr};
thread_local constinit unsigned failures = 0;

void countBlocks(int change) noexcept {
    thread_local constinit int own = -1;
    if (own < 0) own = static_cast<int>(nextShard.fetch_add(1, std::memory_order_relaxed) % SHARDS);
    shards[static_cast<unsigned>(own)].blocks.fetch_add(change, std::memory_order_relaxed);
}

char *copyText(const char *text, size_t length) noexcept {
    auto *copy = static_cast<char *>(tavMalloc(length + 1));
    if (copy) std::memcpy(copy, text, length);
    return copy;
}

} // namespace

void *tavMallocUncounted(size_t size) noexcept {
    auto *gate = allocationGate.load(std::memory_order_relaxed);
    void *ptr = gate && !gate(size) ? nullptr : std::calloc(1, size ? size : 1);
    if (!ptr) failures++;
    return ptr;
}

unsigned tavAllocationFailures() noexcept { return failures; }
void tavNoteAllocationFailure() noexcept { failures++; }

void tavFreeUncounted(void *ptr) noexcept { std::free(ptr); }

void *tavMalloc(size_t size) noexcept {
    void *ptr = tavMallocUncounted(size);
    if (ptr) countBlocks(1);
    return ptr;
}

void tavFree(void *ptr) noexcept {
    if (!ptr) return;
    countBlocks(-1);
    std::free(ptr);
}

char *tavStrdup(const char *text) noexcept { return text ? copyText(text, std::strlen(text)) : nullptr; }

char *tavStrndup(const char *text, size_t n) noexcept { return text ? copyText(text, strnlen(text, n)) : nullptr; }

int tavGetMemCount() noexcept {
    int sum = 0;
    for (const Shard &shard : shards) sum += shard.blocks.load(std::memory_order_relaxed);
    return sum;
}

void tavResetMemCount() noexcept {
    for (Shard &shard : shards) shard.blocks.store(0, std::memory_order_relaxed);
}

void tavSetAllocationGate(Boolean (*gate)(size_t)) noexcept { allocationGate.store(gate, std::memory_order_relaxed); }

Boolean tavReplaceStr(char **location, const char *value) noexcept {
    if (!location) return FALSE;
    char *copy = tavStrdup(value); // before the old text goes: `value` may lie in it
    if (value && !copy) return FALSE;
    tavFree(*location);
    *location = copy;
    return TRUE;
}
