#include "FuzzShop.h"

#include "FuzzTarget.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavUtil/tavTime.h"

namespace {

TavTime now = 1000000; // ms; moves on between inputs only

TavTime fuzzClock() { return now; }

} // namespace

FuzzShop::FuzzShop() {
    FUZZ_CHECK(tav && connector);
    tavSetClock(fuzzClock);
    tavHttpContextSetRolloutSleep([](int) {});
    reset();
}

// Others run after it: the clock ticks again.
FuzzShop::~FuzzShop() {
    tavSetClock(nullptr);
    tavHttpContextSetRolloutSleep(nullptr);
}

FuzzShop &FuzzShop::get() {
    static FuzzShop shop;
    now += 5000;
    return shop;
}

void FuzzShop::reset() {
    FUZZ_CHECK(give(shop::document(1)) == 1);
    systemAnswerReports();
}
