#include "failing/FailingAllocations.h"

#include <jansson.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <new>

#include "tavUtil/tavMemory.h"

// Calls of the program's own objects come here (linked with --wrap).
extern "C" {
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg);
void __real_free(void *memory);
void __wrap_free(void *memory);
json_t *__real_json_loadb(const char *buffer, size_t size, size_t flags, json_error_t *error);
json_t *__wrap_json_loadb(const char *buffer, size_t size, size_t flags, json_error_t *error);
char *__real_json_dumps(const json_t *json, size_t flags);
char *__wrap_json_dumps(const json_t *json, size_t flags);
}

namespace {

thread_local bool armed = false;
thread_local long asked, firstFailing, afterFailing;
thread_local bool withText = false; // jansson reads or writes text

std::atomic<long> newBlocks, jsonBlocks;

bool passes() {
    if (!armed) return true;
    const long number = asked++;
    return number < firstFailing || number >= afterFailing;
}

Boolean gate(size_t) { return passes(); }

// jansson's blocks in use. A text of json_dumps() is freed by its caller with free(): a mark in front of the block would not do, so the
// addresses are kept, in a table that never allocates: linear probing, closed up at removal.
constexpr size_t SLOTS = 1 << 16; // a test holds a fraction of them
void *slots[SLOTS];
std::mutex slotsMutex;

size_t slotOf(const void *memory) { return (reinterpret_cast<uintptr_t>(memory) >> 4) * 0x9E3779B97F4A7C15u >> 48; }

size_t findSlot(const void *memory) {
    size_t i = slotOf(memory);
    while (slots[i] && slots[i] != memory) i = (i + 1) % SLOTS;
    return i;
}

void remember(void *memory) {
    const std::lock_guard<std::mutex> guard(slotsMutex);
    slots[findSlot(memory)] = memory;
    jsonBlocks++;
}

void forget(const void *memory) {
    const std::lock_guard<std::mutex> guard(slotsMutex);
    size_t hole = findSlot(memory);
    if (!slots[hole]) return;
    jsonBlocks--;
    for (size_t i = (hole + 1) % SLOTS; slots[i]; i = (i + 1) % SLOTS) {
        const size_t home = slotOf(slots[i]);
        if ((i - home) % SLOTS < (i - hole) % SLOTS) continue; // it stands between its home and itself
        slots[hole] = slots[i];
        hole = i;
    }
    slots[hole] = nullptr;
}

// jansson does not always look whether its text buffer could grow (it doubles from 16 bytes): a name or value is then cut short without a
// word, which no caller can find out. So that one never fails here.
bool isTextBuffer(size_t size) { return withText && size >= 32 && (size & (size - 1)) == 0; }

void *jsonMalloc(size_t size) {
    void *memory = isTextBuffer(size) || passes() ? std::malloc(size) : nullptr;
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

long failing::blocks() { return newBlocks + jsonBlocks + tavGetMemCount(); }

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg) {
    return passes() ? __real_pthread_create(thread, attr, start, arg) : EAGAIN;
}

json_t *__wrap_json_loadb(const char *buffer, size_t size, size_t flags, json_error_t *error) {
    withText = true;
    json_t *json = __real_json_loadb(buffer, size, flags, error);
    withText = false;
    return json;
}

char *__wrap_json_dumps(const json_t *json, size_t flags) {
    withText = true;
    char *text = __real_json_dumps(json, flags);
    withText = false;
    return text;
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
