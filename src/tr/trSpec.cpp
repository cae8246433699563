// Compiles specification texts: items "name:LEVEL" apart by ",", each setting the bytes of the records that its name reaches.
#include <cstring>

#include "tavUtil/tavMemory.h"
#include "tr/trPriv.h"

namespace {

TrSpec *newSpec(int levelCount) {
    void *memory = tavMalloc(sizeof(TrSpec) + static_cast<size_t>(levelCount));
    if (!memory) return nullptr;
    auto *spec = new (memory) TrSpec{};
    spec->refCount = 1;
    spec->levelCount = levelCount;
    memset(trSpecLevels(spec), 255, static_cast<size_t>(levelCount));
    return spec;
}

void setLevel(TrSpec *spec, const TrRecord *record, int level) {
    if (record->index < spec->levelCount) trSpecLevels(spec)[record->index] = static_cast<unsigned char>(level);
}

void setGroupLevel(TrSpec *spec, const TrGroup *group, int level) {
    for (const TrRecord *record : TavListRange<TrRecord>(group->records)) setLevel(spec, record, level);
    for (const TrGroup *child : TavListRange<TrGroup>(group->groups)) setGroupLevel(spec, child, level);
}

// The text of the item that was refused; null: none.
struct Refusal {
    const char *levelName;
    const char *name;
};

// One item; its ":" is put back. The manager's lock must be held.
bool applyItem(TrMgr *mgr, TrSpec *spec, char *item, Refusal &refusal) {
    int level = TR_WARNING;
    char *colon = strchr(item, ':');
    if (colon) {
        level = trLevelNameToIndex(colon + 1);
        if (level < 0) {
            refusal.levelName = colon + 1;
            return false;
        }
        *colon = '\0';
    }
    // The root has the empty path and reaches every record that has a parent.
    auto *group = static_cast<TrGroup *>(tavHashGet(mgr->groupMap, item));
    auto *record = group ? nullptr : static_cast<TrRecord *>(tavHashGet(mgr->recordMap, item));
    if (group) setGroupLevel(spec, group, level);
    if (record) setLevel(spec, record, level);
    if (!group && !record) {
        refusal.name = item;
        return false;
    }
    if (colon) *colon = ':';
    return true;
}

// `text` is overwritten. An item that repeats the one before it changes nothing and is skipped.
bool applyText(TrMgr *mgr, TrSpec *spec, char *text, Refusal &refusal) {
    const char *previous = nullptr;
    for (char *item = text; item;) {
        char *comma = strchr(item, ',');
        if (comma) *comma = '\0';
        if (!previous || strcmp(item, previous) != 0) {
            if (!applyItem(mgr, spec, item, refusal)) return false;
        }
        previous = item;
        item = comma ? comma + 1 : nullptr;
    }
    return true;
}

void printRefusal(const Refusal &refusal) {
    if (refusal.levelName) printf("INVALID trace spec level name: '%s'\n", refusal.levelName);
    if (refusal.name) printf("INVALID trace spec group or record name: '%s'\n", refusal.name);
}

} // namespace

TrSpec *trSpecCreate(TrMgr *mgr, const char *text) noexcept {
    if (!mgr) return nullptr;
    TavText copy(tavStrdup(text));
    if (text && !copy) return nullptr;
    Refusal refusal{};
    TrSpec *spec;
    bool valid;
    {
        TavLockGuard guard(mgr->lock, "trSpecCreate");
        spec = newSpec(mgr->recordCount);
        valid = spec && (!copy || applyText(mgr, spec, copy.get(), refusal));
    }
    if (valid) return spec;
    printRefusal(refusal);
    trKillSpec(spec);
    return nullptr;
}

TrSpec *trSpecCopy(const TrSpec *spec) noexcept {
    TrSpec *copy = spec ? newSpec(spec->levelCount) : nullptr;
    if (copy) memcpy(trSpecLevels(copy), trSpecLevels(spec), static_cast<size_t>(spec->levelCount));
    return copy;
}
