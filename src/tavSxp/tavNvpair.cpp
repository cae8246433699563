#include "tavSxp/tavSxp.h"
#include "tavUtil/tavMemory.h"

TavNVPair *tavNvpairCreate(const char *name, const char *value) noexcept {
    TavNVPair *pair = tavNewRecord<TavNVPair>();
    if (!pair) return nullptr;
    if (tavNvpairSetName(pair, name) && tavNvpairSetValue(pair, value)) return pair;
    tavNvpairDestroy(pair);
    return nullptr;
}

const char *tavNvpairGetName(const TavNVPair *pair) noexcept { return pair->name; }
const char *tavNvpairGetValue(const TavNVPair *pair) noexcept { return pair->value; }
Boolean tavNvpairSetName(TavNVPair *pair, const char *name) noexcept { return tavReplaceStr(&pair->name, name); }
Boolean tavNvpairSetValue(TavNVPair *pair, const char *value) noexcept { return tavReplaceStr(&pair->value, value); }

void tavNvpairDestroy(TavNVPair *pair) noexcept {
    if (!pair) return;
    tavFree(pair->name);
    tavFree(pair->value);
    tavDestroyRecord(pair);
}
