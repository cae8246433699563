// Snapshots of the routing information: counted, built beside the current one, switched in under the routing-information lock.
#ifndef TAV_TAVROUTINGINFO_H
#define TAV_TAVROUTINGINFO_H

#include <atomic>

#include "tavHash/tavHash.h"
#include "tavInstance/tavInstance.h"
#include "tavList/tavList.h"

typedef struct _ObjectWrapper ObjectWrapper;

typedef struct _Cell {
    char *name;         // shared text, counted
    Tav *tav;           // borrowed
    TavRoutingInfo *ri; // borrowed: the snapshot
} Cell;

struct _TavRoutingInfo {
    Tav *tav;              // counted
    TavHashMap *objectMap; // full name to ObjectWrapper
    Cell *cell;            // the latest of the document; the object map's release frees it and clears the field
    RequestMapper *requestMapper;
    TargetSelector *targetSelector;
    int refCount; // guarded by the instance's routing-information lock

    std::atomic<Boolean> published;
    std::atomic<long long> version;         // of the document that it took last; -1: none
    struct ObjectWrapperSlab *wrapperSlabs; // the wrappers' memory
    ObjectWrapper *freeWrappers;            // of it, linked by their `next`
    Boolean complete;                       // FALSE once memory ran out while it was populated
    struct TavTraceRuleSet *traceRuleSets;  // the snapshot's request-trace rule sets, in the order of the document
};

TavRoutingInfo *tavRoutingInfoCreate(Tav *tav) noexcept; // returns new with one reference, null without memory
// Replays every group's stored document. FALSE when memory ran out: the snapshot must not be switched in. Control lock held.
Boolean tavRoutingInfoPopulate(TavRoutingInfo *ri) noexcept;
TavRoutingInfo *tavCreateAndPopulateNewRoutingInfo(Tav *tav) noexcept; // returns new, null without memory. Control lock held
// Makes `ri` current (its reference becomes the instance's) and releases the old one. FALSE: `ri` is null, or was released because memory
// ran out; the old one stays. Control lock held.
Boolean tavSwitchToNewRoutingInfo(Tav *tav, TavRoutingInfo *ri) noexcept;
// Builds from the stored documents and switches. FALSE when memory ran out: the old snapshot stays. Control lock held.
Boolean tavResetRoutingInfo(Tav *tav) noexcept;
// The same with a document of that version among them, which is the one that this process applied last from then on.
Boolean tavResetRoutingInfoTo(Tav *tav, long long version) noexcept;
// The snapshot has taken a document. If it serves requests, so has this process. Control lock held.
void tavRoutingInfoSetVersion(TavRoutingInfo *ri, long long version) noexcept;
long long tavRoutingInfoGetVersion(const TavRoutingInfo *ri) noexcept; // any thread; -1 for null
TavRoutingInfo *tavRoutingInfoObtain(Tav *tav) noexcept;               // the current snapshot with one more reference, or null. Any thread
void tavRoutingInfoRelease(TavRoutingInfo *ri) noexcept;               // the last release deletes it. Any thread; null ignored
// From here on requests may hold it: seals the look-up structures and marks it published.
void tavRoutingInfoPublish(TavRoutingInfo *ri) noexcept;
void *tavRoutingInfoObjectGet(TavRoutingInfo *ri, const char *name) noexcept; // borrowed; null when absent

#endif
