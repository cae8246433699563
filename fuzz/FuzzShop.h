// The instance that the targets share, with the shop of tests/system as its configuration; and a clock that moves on by five
// seconds from input to input.
#ifndef FUZZ_FUZZSHOP_H
#define FUZZ_FUZZSHOP_H

#include "system/Instance.h"
#include "system/Shop.h"

class FuzzShop : public SystemInstance {
public:
    static FuzzShop &get();
    static void drop(); // frees it, and lets the clock tick again; the next get() begins anew
    // The shop anew, as if nothing had happened since the start.
    void reset();

    ~FuzzShop();

private:
    FuzzShop();
    void settle();
};

#endif
