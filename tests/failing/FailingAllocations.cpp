#include "failing/FailingAllocations.h"

#include <jansson.h>
#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <new>

#include "tavUtil/tavMemory.h"

// Calls of the program's own objects come here (linked with --wrap): a sanitizer that brings its own operator new keeps it.
extern "C" {
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg);
void __real_free(void *memory);
void __wrap_free(void *memory);
json_t *__real_json_loadb(const char *buffer, size_t size, size_t flags, json_error_t *error);
json_t *__wrap_json_loadb(const char *buffer, size_t size, size_t flags, json_error_t *error);
void *__real__Znwm(size_t size); // operator new
void *__wrap__Znwm(size_t size);
void *__real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t &);
void *__wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t &);
void __real__ZdlPv(void *memory); // operator delete
void __wrap__ZdlPv(void *memory);
void __real__ZdlPvm(void *memory, size_t size);
void __wrap__ZdlPvm(void *memory, size_t size);
char *__real_json_dumps(const json_t *json, size_t flags);
char *__wrap_json_dumps(const json_t *json, size_t flags);
}

namespace {

thread_local bool armed = false;
thread_local long asked, firstFailing, afterFailing;
thread_local bool withText = false; // jansson reads or writes text

long held; // blocks of operator new and of jansson; slotsMutex

bool passes() {
    if (!armed) return true;
    const long number = asked++;
    return number < firstFailing || number >= afterFailing;
}

Boolean gate(size_t) { return passes(); }

// Their addresses, because nobody else tells them from other memory: a text of json_dumps() is freed by its caller with free(), and
// libstdc++ calls its operator new unseen. A table that never allocates: linear probing, closed up at removal.
constexpr size_t SLOTS = 1 << 16; // a test holds a fraction of them
void *slots[SLOTS];
std::mutex slotsMutex;

size_t slotOf(const void *memory) { return (reinterpret_cast<uintptr_t>(memory) >> 4) * 0x9E3779B97F4A7C15u >> 48; }

size_t findSlot(const void *memory) {
    size_t i = slotOf(memory);
    while (slots[i] && slots[i] != memory) i = (i + 1) % SLOTS;
    return i;
}

void *remember(void *memory) {
    if (!memory) return nullptr;
    const std::lock_guard<std::mutex> guard(slotsMutex);
    slots[findSlot(memory)] = memory;
    held++;
    return memory;
}

void *forget(void *memory) {
    const std::lock_guard<std::mutex> guard(slotsMutex);
    size_t hole = findSlot(memory);
    if (!memory || !slots[hole]) return memory;
    held--;
    for (size_t i = (hole + 1) % SLOTS; slots[i]; i = (i + 1) % SLOTS) {
        const size_t home = slotOf(slots[i]);
        if ((i - home) % SLOTS < (i - hole) % SLOTS) continue; // it stands between its home and itself
        slots[hole] = slots[i];
        hole = i;
    }
    slots[hole] = nullptr;
    return memory;
}

// jansson does not always look whether its text buffer could grow (it doubles from 16 bytes): a name or value is then cut short without a
// word, which no caller can find out. So that one never fails here.
bool isTextBuffer(size_t size) { return withText && size >= 32 && (size & (size - 1)) == 0; }

void *jsonMalloc(size_t size) { return isTextBuffer(size) || passes() ? remember(std::malloc(size)) : nullptr; }
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

long failing::blocks() {
    const std::lock_guard<std::mutex> guard(slotsMutex);
    return held + tavGetMemCount();
}

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

void __wrap_free(void *memory) { __real_free(forget(memory)); }

void *__wrap__Znwm(size_t size) {
    if (!passes()) throw std::bad_alloc();
    return remember(__real__Znwm(size));
}
void *__wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t &nothrow) {
    return passes() ? remember(__real__ZnwmRKSt9nothrow_t(size, nothrow)) : nullptr;
}
void __wrap__ZdlPv(void *memory) { __real__ZdlPv(forget(memory)); }
void __wrap__ZdlPvm(void *memory, size_t size) { __real__ZdlPvm(forget(memory), size); }
