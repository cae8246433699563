// The arena of a matcher: memory is taken in growing chunks and given back all at once, so that deleting needs no walk and a put that
// fails halfway leaks nothing.
#include "URIMatcher/uriTree.h"
#include "tavUtil/tavMemory.h"

static constexpr size_t FIRST_CHUNK = 1024;
static constexpr size_t LARGEST_CHUNK = 64 * 1024;

static char *chunkBytes(UriChunk *chunk) noexcept { return reinterpret_cast<char *>(chunk + 1); }

static UriChunk *addChunk(UriArena *arena, size_t size) noexcept {
    auto *chunk = static_cast<UriChunk *>(tavMalloc(sizeof(UriChunk) + size));
    if (!chunk) return nullptr;
    *chunk = {arena->chunks, size, 0};
    arena->chunks = chunk;
    return chunk;
}

static void *takeFrom(UriChunk *chunk, size_t size, size_t alignment) noexcept {
    const auto start = reinterpret_cast<uintptr_t>(chunkBytes(chunk));
    const size_t offset = ((start + chunk->used + alignment - 1) & ~(alignment - 1)) - start;
    if (offset > chunk->size || size > chunk->size - offset) return nullptr;
    chunk->used = offset + size;
    return chunkBytes(chunk) + offset;
}

void *uriArenaAlloc(UriArena *arena, size_t size, size_t alignment) noexcept {
    UriChunk *newest = arena->chunks;
    void *found = newest ? takeFrom(newest, size, alignment) : nullptr;
    if (found) return found;
    size_t chunkSize = newest ? newest->size * 2 : FIRST_CHUNK;
    if (chunkSize > LARGEST_CHUNK) chunkSize = LARGEST_CHUNK;
    if (chunkSize < FIRST_CHUNK) chunkSize = FIRST_CHUNK;
    if (chunkSize < size + alignment) chunkSize = size + alignment;
    UriChunk *chunk = addChunk(arena, chunkSize);
    return chunk ? takeFrom(chunk, size, alignment) : nullptr;
}

Boolean uriArenaReserve(UriArena *arena, size_t size) noexcept { return addChunk(arena, size) != nullptr; }

size_t uriArenaSize(const UriArena *arena) noexcept {
    size_t size = 0;
    for (const UriChunk *chunk = arena->chunks; chunk; chunk = chunk->next) size += sizeof(UriChunk) + chunk->size;
    return size;
}

void uriArenaFree(UriArena *arena) noexcept {
    while (UriChunk *chunk = arena->chunks) {
        arena->chunks = chunk->next;
        tavFree(chunk);
    }
    arena->nodeCount = 0;
}
