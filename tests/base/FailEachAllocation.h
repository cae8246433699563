// Runs a scenario over and over, failing its first allocation, then its second, and so on until a run meets no failure.
#ifndef BASE_FAILEACHALLOCATION_H
#define BASE_FAILEACHALLOCATION_H

#include <gtest/gtest.h>

#include "tavUtil/tavMemory.h"

namespace failing {
inline int allowed;   // allocations before the failing one
inline bool happened; // the failing one was reached

inline Boolean gate(size_t) noexcept {
    if (allowed-- != 0) return TRUE;
    happened = true;
    return FALSE;
}
} // namespace failing

// `scenario(failed)` must give back all it took in every run. It gets a function that tells whether an allocation has failed so far.
template <typename Scenario>
void failEachAllocation(Scenario scenario) {
    int runs = 0;
    do {
        SCOPED_TRACE(testing::Message() << "allocation " << runs);
        const int before = tavGetMemCount();
        failing::allowed = runs++;
        failing::happened = false;
        tavSetAllocationGate(failing::gate);
        scenario([] { return failing::happened; });
        tavSetAllocationGate(nullptr);
        ASSERT_EQ(tavGetMemCount(), before);
    } while (failing::happened);
    EXPECT_GT(runs, 1) << "the scenario allocates nothing";
}

// Runs a step of a scenario with all the memory it wants.
template <typename Step>
auto undisturbed(Step step) {
    struct Lifted {
        Lifted() { tavSetAllocationGate(nullptr); }
        ~Lifted() { tavSetAllocationGate(failing::gate); }
    } lifted;
    return step();
}

// A test that gives back what it takes.
class LeakFree : public testing::Test {
protected:
    ~LeakFree() override { EXPECT_EQ(tavGetMemCount(), before_); }

private:
    int before_ = tavGetMemCount();
};

#endif
