#include "FuzzShop.h"

#include <atomic>
#include <memory>
#include <thread>

#include "FuzzTarget.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavInstance/tavInstance.h"
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

// What the document replaced is freed on the instance's own thread: targets that count blocks start after that.
void FuzzShop::settle() {
    std::atomic<bool> reached{false};
    tavProcessAsync(
        tav, &reached, [](Tav *, void *mark) { static_cast<std::atomic<bool> *>(mark)->store(true); }, nullptr);
    while (!reached) std::this_thread::yield();
}

void FuzzShop::reset() {
    FUZZ_CHECK(give(shop::document(1)) == 1);
    systemAnswerReports();
    settle();
}
