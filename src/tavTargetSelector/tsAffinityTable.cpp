// Open addressing with a few tries; a full neighbourhood loses its first place. A table that has become too small is followed by a larger
// one and kept until the selector goes, so that affinityTablePrefetch needs no lock: it reads places as they are and only asks for memory.
#include "tavTargetSelector/tsAffinityTable.h"

#include <cstdint>

namespace {
constexpr size_t LINE = 64, TRIES = 4, FEWEST_PLACES = 64, MOST_PLACES = 65536;

// One cache line. Written under the selector lock.
struct Place {
    std::atomic<uint64_t> hash;
    std::atomic<uint64_t> generation; // of the selector when it was written; 0: never
    std::atomic<TargetServerApplication *> sapp;
    std::atomic<TargetServer *> server;
    std::atomic<const void *> around[4]; // the two texts to compare, and what else a request counts that others do not
};
static_assert(sizeof(Place) == LINE);

uint64_t hashOf(const char *cloneId, int appNameHash) noexcept {
    const uint64_t both = static_cast<uint64_t>(static_cast<uint32_t>(tavHashCompute(cloneId))) << 32 | static_cast<uint32_t>(appNameHash);
    const uint64_t mixed = (both ^ both >> 29) * 0x9E3779B97F4A7C15U;
    return mixed ^ mixed >> 32;
}

void prefetchAnswer(const Place &place) noexcept {
    tsPrefetch(place.server.load(std::memory_order_relaxed), sizeof(TargetServer));
    tsPrefetch(place.sapp.load(std::memory_order_relaxed), sizeof(TargetServerApplication));
    for (const auto &memory : place.around) __builtin_prefetch(memory.load(std::memory_order_relaxed));
}
} // namespace

struct _TsAffinityTable {
    TsAffinityTable *smaller; // its predecessor
    size_t capacity;          // a power of two
    char *places;             // at the next cache line

    // Place `i` of those where an entry with this hash may be.
    Place &at(uint64_t hash, size_t i) const noexcept {
        const auto start = (reinterpret_cast<uintptr_t>(places) + LINE - 1) & ~(LINE - 1);
        return reinterpret_cast<Place *>(start)[(hash + i) & (capacity - 1)];
    }
};

void affinityTablePrefetch(const TargetSelector *ts, const char *cloneId, int appNameHash) noexcept {
    const TsAffinityTable *table = ts->affinityTable.load(std::memory_order_acquire);
    if (!table) return;
    const uint64_t hash = hashOf(cloneId, appNameHash);
    for (size_t i = 0; i < TRIES; i++) {
        const Place &place = table->at(hash, i);
        if (place.hash.load(std::memory_order_relaxed) == hash) return prefetchAnswer(place);
    }
}

TargetServerApplication *affinityTableFind(const TsRequest &req, const char *cloneId) noexcept {
    const TsAffinityTable *table = req.hint ? req.ts->affinityTable.load(std::memory_order_relaxed) : nullptr;
    if (!table) return nullptr;
    const uint64_t hash = hashOf(cloneId, req.hint->appNameHash);
    for (size_t i = 0; i < TRIES; i++) {
        const Place &place = table->at(hash, i);
        if (place.hash.load(std::memory_order_relaxed) != hash ||
            place.generation.load(std::memory_order_relaxed) != req.ts->affinityGeneration)
            continue;
        TargetServerApplication *sapp = place.sapp.load(std::memory_order_relaxed);
        if (tavStrEquals(sapp->name, req.appName) && tavStrEquals(sapp->server->cloneId.load(std::memory_order_relaxed), cloneId))
            return sapp;
    }
    return nullptr;
}

// The table, with room for every server application as far as that is sensible; null without memory.
static TsAffinityTable *roomyTable(TargetSelector *ts) noexcept TS_LOCKED {
    TsAffinityTable *table = ts->affinityTable.load(std::memory_order_relaxed);
    const size_t wanted = static_cast<size_t>(ts->serverApplicationCount) * 3 / 2;
    size_t capacity = table ? table->capacity : FEWEST_PLACES;
    while (capacity < wanted && capacity < MOST_PLACES) capacity *= 2;
    if (table && capacity == table->capacity) return table;
    auto *next = tavNewRecord<TsAffinityTable>(table, capacity, nullptr);
    if (!next) return nullptr;
    next->places = static_cast<char *>(tavMalloc((capacity + 1) * LINE));
    if (!next->places) return tavDestroyRecord(next), nullptr;
    ts->affinityTable.store(next, std::memory_order_release);
    return next;
}

void affinityTableLearn(const TsRequest &req, const char *cloneId, TargetServerApplication *sapp) noexcept {
    const TsAffinityTable *table = req.hint ? roomyTable(req.ts) : nullptr;
    if (!table) return;
    const uint64_t hash = hashOf(cloneId, req.hint->appNameHash);
    Place *chosen = &table->at(hash, 0);
    for (size_t i = 0; i < TRIES; i++) {
        Place &place = table->at(hash, i);
        if (place.generation.load(std::memory_order_relaxed) == req.ts->affinityGeneration) continue;
        chosen = &place;
        break;
    }
    TargetServer *server = sapp->server;
    const TavTargetEndpoint *endpoint = server->usualEndPoint[req.protoIndex];
    const void *around[] = {sapp->name, server->cloneId.load(), endpoint, endpoint ? endpoint->current : nullptr};
    for (size_t i = 0; i < 4; i++) chosen->around[i].store(around[i], std::memory_order_relaxed);
    chosen->hash.store(hash, std::memory_order_relaxed);
    chosen->sapp.store(sapp, std::memory_order_relaxed);
    chosen->server.store(server, std::memory_order_relaxed);
    chosen->generation.store(req.ts->affinityGeneration, std::memory_order_relaxed);
}

void affinityTableFree(TargetSelector *ts) noexcept {
    while (TsAffinityTable *table = ts->affinityTable.load(std::memory_order_relaxed)) {
        ts->affinityTable.store(table->smaller, std::memory_order_relaxed);
        tavFree(table->places);
        tavDestroyRecord(table);
    }
}
