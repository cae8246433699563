#include "FuzzShop.h"

#include <memory>

#include "FuzzTarget.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavUtil/tavTime.h"

namespace {

TavTime now = 1000000; // ms; moves on between inputs only

TavTime fuzzClock() { return now; }

std::unique_ptr<FuzzShop> instance;

} // namespace

FuzzShop::FuzzShop() {
    FUZZ_CHECK(tav && connector);
    tavSetClock(fuzzClock);
    tavHttpContextSetRolloutSleep([](int) {});
    reset();
}

FuzzShop::~FuzzShop() {
    tavSetClock(nullptr);
    tavHttpContextSetRolloutSleep(nullptr);
}

FuzzShop &FuzzShop::get() {
    if (!instance) instance.reset(new FuzzShop);
    now += 5000;
    return *instance;
}

void FuzzShop::drop() { instance.reset(); }

void FuzzShop::reset() {
    FUZZ_CHECK(give(shop::document(1)) == 1);
    systemAnswerReports();
}
