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
};

// What a worker process and its daemon say to each other, cut out of an input: raw bytes after an "R", else frames that choices put
// together from right and wrong types, lengths and bodies.
class FuzzInput;
std::string fuzzFrames(FuzzInput &input);
// An instance that is a daemon with a socket, or a worker whose daemon never comes; both have the shop.
class FuzzProcess : public SystemInstance {
public:
    static FuzzProcess &daemon();
    static FuzzProcess &worker();
    static void drop(); // both
    static std::string path();
    ~FuzzProcess();

private:
    explicit FuzzProcess(void (*mark)(Tav *tav));
};

#endif
