// Counted texts. A text never changes, so holders on several threads need no lock; the count is the only thing they share.
#include "tavUtil/tavSharedText.h"

#include <atomic>
#include <cstring>

#include "tavUtil/tavMemory.h"

namespace {

using Holders = std::atomic<int>;

Holders *holdersOf(const char *shared) noexcept { return reinterpret_cast<Holders *>(const_cast<char *>(shared)) - 1; }

} // namespace

char *tavSharedTextCreate(const char *text) noexcept {
    if (!text) return nullptr;
    const size_t size = std::strlen(text) + 1;
    void *block = tavMalloc(sizeof(Holders) + size);
    if (!block) return nullptr;
    auto *shared = reinterpret_cast<char *>(new (block) Holders(1) + 1);
    std::memcpy(shared, text, size);
    return shared;
}

char *tavSharedTextObtain(const char *shared) noexcept {
    if (shared) holdersOf(shared)->fetch_add(1, std::memory_order_relaxed);
    return const_cast<char *>(shared);
}

void tavSharedTextRelease(const char *shared) noexcept {
    if (shared && holdersOf(shared)->fetch_sub(1, std::memory_order_acq_rel) == 1) tavFree(holdersOf(shared));
}
