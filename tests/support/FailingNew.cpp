#include "support/FailingNew.h"

#include <cstdlib>
#include <new>

#include "base/FailEachAllocation.h"

namespace {
bool newFails = false;
} // namespace

NewFails::NewFails() { newFails = true; }
NewFails::~NewFails() { newFails = false; }

void *operator new(size_t size) {
    if (newFails && !failing::gate(size)) throw std::bad_alloc();
    if (void *memory = std::malloc(size ? size : 1)) return memory;
    throw std::bad_alloc();
}
void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, size_t) noexcept { std::free(memory); }
