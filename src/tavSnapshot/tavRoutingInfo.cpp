// Snapshots: creation, population, the switch, the counted hold of requests.
//
// The instance's own reference is the one a snapshot is created with. Counts and the instance's pointers change only under the
// routing-information lock, which is held for nothing else; building and deleting run without it. Publication comes before the switch: what
// requests read without a lock is sealed by then.
#include "tavRoutingInfo.h"

#include "tav/tavRecord.h"
#include "tavConnector/tavConnector.h"
#include "tavDocument/tavDocument.h"
#include "tavObjects/tavHandlers.h"
#include "tavObjects/tavObjectMap.h"
#include "tavProcess/tavIpc.h"
#include "tavProcess/tavSapp.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavURLMatcher/tavURLMatcher.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

#define SNAPSHOT_DEBUG(tav, ...) TR_DEBUG((tav)->trCtx, (tav)->processRec, __VA_ARGS__)

// The mapper and the selector free their own objects; the object layer frees what belongs to no one else and the wrappers.
void snapshotDelete(TavRoutingInfo *ri) noexcept {
    Tav *tav = ri->tav;
    SNAPSHOT_DEBUG(tav, "begin deleting routing info ...\n");
    tavObjectMapRelease(ri);
    rmDelete(ri->requestMapper);
    tsDelete(ri->targetSelector);
    if (ri->cell) tavCellDelete(ri->cell);
    tavDestroyRecord(ri);
    SNAPSHOT_DEBUG(tav, "end deleting routing info ...\n");
    tavReleaseRef(tav, "tavRoutingInfoDelete");
}

} // namespace

TavRoutingInfo *tavRoutingInfoCreate(Tav *tav) noexcept {
    TavRoutingInfo *ri = tavNewRecord<TavRoutingInfo>();
    if (!ri) return nullptr;
    ri->tav = tav;
    ri->refCount = 1;
    ri->complete = TRUE;
    ri->version = tavGetConfigVersion(tav); // until it takes a document of its own
    tavObtainRef(tav, "tavRoutingInfoCreate");
    if ((ri->objectMap = tavHashMapCreate()) && (ri->requestMapper = rmCreate(ri)) && (ri->targetSelector = tsCreate(ri))) return ri;
    snapshotDelete(ri);
    return nullptr;
}

Boolean tavRoutingInfoPopulate(TavRoutingInfo *ri) noexcept {
    Tav *tav = ri->tav;
    SNAPSHOT_DEBUG(tav, "tavRoutingInfoPopulate enter\n");
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList)) {
        SNAPSHOT_DEBUG(tav, "tavRoutingInfoPopulate connector group %s\n", tavConnectorGroupGetName(cg));
        TavConnector *c = tavConnectorGroupGetCurConnector(cg);
        if (c && tavConnectorGetJSON(c) && !tavReplayStoredDocument(ri, cg, c)) ri->complete = FALSE;
    }
    SNAPSHOT_DEBUG(tav, "tavRoutingInfoPopulate exit\n");
    return ri->complete;
}

TavRoutingInfo *tavCreateAndPopulateNewRoutingInfo(Tav *tav) noexcept {
    SNAPSHOT_DEBUG(tav, "tavCreateAndPopulateNewRoutingInfo enter\n");
    TavRoutingInfo *ri = tavRoutingInfoCreate(tav);
    if (ri && !tavRoutingInfoPopulate(ri)) {
        tavRoutingInfoRelease(ri);
        ri = nullptr;
    }
    SNAPSHOT_DEBUG(tav, "tavCreateAndPopulateNewRoutingInfo exit\n");
    return ri;
}

void tavRoutingInfoPublish(TavRoutingInfo *ri) noexcept {
    // Without memory for its index the matcher walks its groups instead.
    tavURLMatcherSeal(rmGetURLMatcher(ri->requestMapper));
    ri->published.store(TRUE, std::memory_order_release);
}

Boolean tavSwitchToNewRoutingInfo(Tav *tav, TavRoutingInfo *ri) noexcept {
    if (!ri) return FALSE;
    SNAPSHOT_DEBUG(tav, "tavSwitchToNewRoutingInfo: enter - newRoutingInfo=%p\n", static_cast<void *>(ri));
    const auto instanceEnded = [tav] {
        TavLockGuard guard(tav->routingInfoLock, "tavSwitchToNewRoutingInfo");
        return !tav->routingInfo;
    };
    // A snapshot that came after the last one was dropped would keep the instance for ever.
    if (instanceEnded() || !tavTraceRulesActivate(ri)) {
        tavRoutingInfoRelease(ri);
        return FALSE;
    }
    tavRoutingInfoPublish(ri);
    TavRoutingInfo *old = nullptr;
    {
        TavLockGuard guard(tav->routingInfoLock, "tavSwitchToNewRoutingInfo");
        old = tav->routingInfo;
        tav->routingInfo = ri;
    }
    tav->configVersion.store(tavRoutingInfoGetVersion(ri), std::memory_order_relaxed);
    tavSweepIdleContexts(tav);
    // The successor's trace rules joined before: there is no moment without rules.
    tavTraceRulesDeactivate(old);
    // After the swap and still under the control lock: a worker that does not read must not stop requests.
    if (tavIsServerProcess(tav)) sendAllRoutingInfoToClient(tav, -1);
    tavRoutingInfoRelease(old);
    SNAPSHOT_DEBUG(tav, "tavSwitchToNewRoutingInfo: exit\n");
    return TRUE;
}

Boolean tavResetRoutingInfoTo(Tav *tav, long long version) noexcept {
    TavRoutingInfo *ri = tavCreateAndPopulateNewRoutingInfo(tav);
    tavRoutingInfoSetVersion(ri, version);
    if (!tavSwitchToNewRoutingInfo(tav, ri)) return FALSE;
    c2sResetAllInfo(tav);
    return TRUE;
}

Boolean tavResetRoutingInfo(Tav *tav) noexcept { return tavResetRoutingInfoTo(tav, tavGetConfigVersion(tav)); }

void tavRoutingInfoSetVersion(TavRoutingInfo *ri, long long version) noexcept {
    if (!ri) return;
    ri->version.store(version, std::memory_order_relaxed);
    if (tavRoutingInfoIsPublished(ri)) ri->tav->configVersion.store(version, std::memory_order_relaxed);
}

long long tavRoutingInfoGetVersion(const TavRoutingInfo *ri) noexcept { return ri ? ri->version.load(std::memory_order_relaxed) : -1; }

TavRoutingInfo *tavRoutingInfoObtain(Tav *tav) noexcept {
    if (!tav) return nullptr;
    SNAPSHOT_DEBUG(tav, "tavRoutingInfoObtain: enter\n");
    TavRoutingInfo *ri = nullptr;
    int count = 0;
    {
        TavLockGuard guard(tav->routingInfoLock, "tavRoutingInfoObtain");
        ri = tav->routingInfo;
        if (ri) count = ++ri->refCount;
    }
    if (ri) {
        SNAPSHOT_DEBUG(tav, "tavRoutingInfoObtain: exit - refCount=%d, ri=%p\n", count, static_cast<void *>(ri));
    } else {
        SNAPSHOT_DEBUG(tav, "tavRoutingInfoObtain: exit - routingInfo is NULL\n");
    }
    return ri;
}

void tavRoutingInfoRelease(TavRoutingInfo *ri) noexcept {
    if (!ri) return;
    Tav *tav = ri->tav;
    // Once this holder is gone, another one may drop snapshot and instance: whoever still has lines to write needs a reference of its own.
    const bool traced = trContextLogEnabled(tav->trCtx, tav->processRec);
    if (traced) {
        tavObtainRef(tav, "tavRoutingInfoRelease");
        trContextDebug(tav->trCtx, tav->processRec, "tavRoutingInfoRelease: enter - ri=%p\n", static_cast<void *>(ri));
    }
    int count = 0;
    {
        TavLockGuard guard(tav->routingInfoLock, "tavRoutingInfoRelease");
        count = --ri->refCount;
    }
    if (traced) trContextDebug(tav->trCtx, tav->processRec, "tavRoutingInfoRelease: refCount=%d, ri=%p\n", count, static_cast<void *>(ri));
    if (count < 1) snapshotDelete(ri);
    if (!traced) return;
    trContextDebug(tav->trCtx, tav->processRec, "tavRoutingInfoRelease: exit\n");
    tavReleaseRef(tav, "tavRoutingInfoRelease");
}

void *tavRoutingInfoObjectGet(TavRoutingInfo *ri, const char *name) noexcept {
    auto *wrapper = ri ? static_cast<ObjectWrapper *>(tavHashGet(ri->objectMap, name)) : nullptr;
    return wrapper ? wrapper->object : nullptr;
}

Tav *tavRoutingInfoGetTav(TavRoutingInfo *ri) noexcept { return ri ? ri->tav : nullptr; }
RequestMapper *tavRoutingInfoGetRequestMapper(TavRoutingInfo *ri) noexcept { return ri ? ri->requestMapper : nullptr; }
TargetSelector *tavRoutingInfoGetTargetSelector(TavRoutingInfo *ri) noexcept { return ri ? ri->targetSelector : nullptr; }
Boolean tavRoutingInfoIsPublished(TavRoutingInfo *ri) noexcept { return ri && ri->published.load(std::memory_order_acquire); }
