#include "failing/FailingAllocations.h"

#include <jansson.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstdio>
#include <new>

#include "tavUtil/tavMemory.h"

// Calls of the program's own objects come here (linked with --wrap).
extern "C" {
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg);
void __real_free(void *memory);
void __wrap_free(void *memory);
}

namespace {

thread_local bool armed = false;
thread_local long asked, firstFailing, afterFailing;

std::atomic<long> newBlocks, jsonBlocks;

bool passes() {
    if (!armed) return true;
    const long number = asked++;
    return number < firstFailing || number >= afterFailing;
}

Boolean gate(size_t) { return passes(); }

// jansson's blocks in use. A text of json_dumps() is freed by its caller with free(): a mark in front of the block would not do, so the
// addresses are kept, in a table that never allocates.
constexpr size_t SLOTS = 1 << 16; // open addressing; a test holds a fraction of it
std::atomic<void *> slots[SLOTS];
char removed;

size_t slotOf(const void *memory) { return (reinterpret_cast<uintptr_t>(memory) >> 4) * 0x9E3779B97F4A7C15u >> 48; }

void remember(void *memory) {
    jsonBlocks++;
    for (size_t i = slotOf(memory);; i = (i + 1) % SLOTS) {
        void *free = slots[i].load();
        if ((!free || free == &removed) && slots[i].compare_exchange_strong(free, memory)) return;
    }
}

void forget(void *memory) {
    for (size_t i = slotOf(memory), n = 0; n < SLOTS; i = (i + 1) % SLOTS, n++) {
        void *held = slots[i].load();
        if (!held) return;
        if (held != memory) continue;
        slots[i] = &removed;
        jsonBlocks--;
        return;
    }
}

void *jsonMalloc(size_t size) {
    void *memory = passes() ? std::malloc(size) : nullptr;
    if (memory) remember(memory);
    return memory;
}
void jsonFree(void *memory) { std::free(memory); }

const bool installed = [] {
    json_set_alloc_funcs(jsonMalloc, jsonFree);
    tavSetAllocationGate(gate);
    return true;
}();

} // namespace

void failing::arm(long first, long count) {
    asked = 0;
    firstFailing = first;
    afterFailing = first + count;
    armed = installed;
}

long failing::disarm() {
    armed = false;
    return asked;
}

long failing::blocks() { if (getenv("DBG")) fprintf(stderr,"new %ld json %ld tav %d\n",newBlocks.load(),jsonBlocks.load(),tavGetMemCount()); return newBlocks + jsonBlocks + tavGetMemCount(); }

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg) {
    return passes() ? __real_pthread_create(thread, attr, start, arg) : EAGAIN;
}

void __wrap_free(void *memory) {
    if (memory) forget(memory);
    __real_free(memory);
}

void *operator new(size_t size) {
    void *memory = passes() ? std::malloc(size ? size : 1) : nullptr;
    if (!memory) throw std::bad_alloc();
    newBlocks++;
    return memory;
}
void *operator new(size_t size, const std::nothrow_t &) noexcept {
    void *memory = passes() ? std::malloc(size ? size : 1) : nullptr;
    if (memory) newBlocks++;
    return memory;
}
void operator delete(void *memory) noexcept {
    if (memory) newBlocks--;
    std::free(memory);
}
void operator delete(void *memory, size_t) noexcept { operator delete(memory); }
