// Start, stop, destroy and the reference count.
//
// Start, stop and destroy run under the control lock and hold an instance reference for their run, because each gives the lock up while it
// waits. A wait never happens with the stop lock held: another stopper may hold the control lock and want the stop lock. The instance is
// torn down by whichever thread drops the last reference; every library thread holds one, so at that moment none runs.
#include <memory>

#include "tavConnector/tavConnector.h"
#include "tavControl.h"
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavInternal.h"
#include "tavLanguage/tavLanguage.h"
#include "tavMultiProcess/tavMultiProcess.h"
#include "tavObjects/tavObjectMap.h"
#include "tavProcess/tavSapp.h"
#include "tavRule/tavRule.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavTime.h"
#include "tr/tr.h"

#include <cstring>

namespace {

// Holds an instance reference for a scope. Made and dropped without the control lock: the last release may free the instance.
class TavRefScope {
public:
    TavRefScope(Tav *tav, const char *reason) noexcept : tav_(tav), reason_(reason) { tavObtainRef(tav_, reason_); }
    ~TavRefScope() noexcept { tavReleaseRef(tav_, reason_); }
    TavRefScope(const TavRefScope &) = delete;
    TavRefScope &operator=(const TavRefScope &) = delete;

private:
    Tav *tav_;
    const char *reason_;
};

TavConnectorGroup *groupAt(Tav *tav, int place) noexcept {
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList)) {
        if (place-- == 0) return cg;
    }
    return nullptr;
}

// Calls act(group) in list order. A host callback may change the list meanwhile, so counted copies are walked; without memory for them, the
// places of the list.
template <typename Act>
void forEachGroup(Tav *tav, Act act) noexcept {
    void **array = tavListCreateArray(tav->connectorGroupList);
    std::unique_ptr<TavConnectorGroup *[], TavFreer> copies(reinterpret_cast<TavConnectorGroup **>(array));
    for (int i = 0; copies && copies[i]; i++) tavConnectorGroupObtainRef(copies[i], "walk");
    for (int i = 0; TavConnectorGroup *cg = copies ? copies[i] : groupAt(tav, i); i++) {
        if (!copies) tavConnectorGroupObtainRef(cg, "walk");
        act(cg);
        tavConnectorGroupReleaseRef(cg, "walk");
    }
}

// A destroyed instance never gets initialized.
void waitForInitializationCompletion(Tav *tav, int timeoutInSecs) noexcept {
    if (timeoutInSecs == -1) {
        TR_DEBUG(tav->trCtx, tav->processRec, "TAV was started asynchronously\n");
        return;
    }
    int left = timeoutInSecs;
    while (!isInitialized(tav) && tav->state != DELETED) {
        if (timeoutInSecs != 0 && --left < 1) {
            TR_DEBUG(tav->trCtx, tav->processRec, "Timed out waiting for TAV initialization to complete\n");
            return;
        }
        TR_DEBUG(tav->trCtx, tav->processRec, "Waiting for TAV initialization to complete ...\n");
        TavControlPause pause("tav.waitForInitializationCompletion");
        tavSleep(1);
    }
    TR_DEBUG(tav->trCtx, tav->processRec, "TAV initialization is complete\n");
}

void startGroups(Tav *tav) noexcept {
    bool alreadyRunning = false;
    forEachGroup(tav, [&](TavConnectorGroup *cg) {
        const TavComponentState before = tavConnectorGroupGetState(cg);
        if (tavConnectorGroupStart(cg) != 0 && (before == STARTED || before == STARTING)) alreadyRunning = true;
    });
    // A group left running by an ended daemon changes no state of its own.
    if (alreadyRunning) tavCheckState(tav);
}

// Ends the loops of a daemon or worker. Called with the control lock and without the stop lock; both may be given up inside.
void stopProcessLoops(Tav *tav) noexcept {
    ++tav->stopsInProgress;
    if (tav->serverProcess) tavServerProcessStop(tav->serverProcess);
    if (tav->clientProcess) tavClientProcessStop(tav->clientProcess);
    --tav->stopsInProgress;
}

void quiesceGroups(Tav *tav) noexcept {
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList)) tavConnectorGroupQuiesce(cg);
}

void haltDaemon(Tav *tav) noexcept {
    ++tav->stopsInProgress;
    if (tav->serverProcess) tavServerProcessHalt(tav->serverProcess);
    --tav->stopsInProgress;
    tavSetState(tav, STOPPED, "all connector groups are stopped");
}

void stopGroups(Tav *tav) noexcept {
    forEachGroup(tav, [](TavConnectorGroup *cg) { tavConnectorGroupStop(cg); });
    // Without a group that changed its state (a worker, no groups, failed ones) nothing else leads out of STOPPING.
    if (tav->state == STOPPING && !tavIsClientProcess(tav)) tavCheckState(tav);
    if (tav->state == STOPPING) tavSetState(tav, STOPPED, "all connector groups are stopped");
}

} // namespace

int tavStart2(Tav *tav, int timeoutInSecs) noexcept {
    if (tav->destroying || !isStartable(tav)) {
        TR_DEBUG(tav->trCtx, tav->processRec, "TAV is not startable; state=%s\n", tavState2String(tav->state));
        return -1;
    }
    tav->terminateQueued = false;
    tavSetState(tav, STARTING, "starting");
    if (tavIsClientProcess(tav)) {
        if (!tav->clientProcess || tavClientProcessStart(tav->clientProcess) != 0)
            TR_DEBUG(tav->trCtx, tav->processRec, "tavStart2: the client process did not start\n");
        waitForInitializationCompletion(tav, timeoutInSecs);
        return 0;
    }
    const unsigned stopCount = tav->stopCount;
    startGroups(tav);
    waitForInitializationCompletion(tav, timeoutInSecs);
    // A stop that came during the wait has ended the daemon's loop: it must not come back.
    if (stopCount != tav->stopCount) return 0;
    if (tavIsServerProcess(tav) && (!tav->serverProcess || tavServerProcessStart(tav->serverProcess) != 0))
        TR_DEBUG(tav->trCtx, tav->processRec, "tavStart2: the server process did not start\n");
    return 0;
}

int tavStop2(Tav *tav, const char *reason) noexcept {
    ++tav->stopCount;
    tavStopLock(tav, "tavStop2");
    if (!isStoppable(tav)) {
        quiesceGroups(tav);
        tavStopUnlock(tav);
        return -1;
    }
    tavSetState(tav, STOPPING, reason);
    // From here the state alone refuses a second stop; the waits below must not hold the stop lock.
    tavStopUnlock(tav);
    if (tavIsServerProcess(tav) && strstr(reason, "stopping daemon")) {
        haltDaemon(tav);
        return 0;
    }
    stopProcessLoops(tav);
    tavStopLock(tav, "tavStop2");
    stopGroups(tav);
    quiesceGroups(tav);
    tavStopUnlock(tav);
    return 0;
}

namespace {

void waitForOtherStops(Tav *tav) noexcept {
    while (tav->stopsInProgress > 0) {
        TavControlPause pause("tavDestroy2");
        struct timespec moment = {0, 1000000};
        nanosleep(&moment, nullptr);
    }
}

template <typename Field>
void dropSnapshot(Tav *tav, Field *field) noexcept {
    tavLockObtain(tav->routingInfoLock, "tavDestroy2");
    TavRoutingInfo *ri = *field;
    *field = nullptr;
    tavLockRelease(tav->routingInfoLock);
    tavSweepIdleContexts(tav);
    tavTraceRulesDeactivate(ri);
    tavRoutingInfoRelease(ri);
}

} // namespace

void tavDestroy2(Tav *tav) noexcept {
    // The creator's reference is given back once. From here on a start that comes in while this thread waits is refused.
    if (tav->destroying) return;
    tav->destroying = true;
    TR_DEBUG(tav->trCtx, tav->processRec, "tavDestroy2: enter");
    tavStop2(tav, "stopping initiated");
    waitForOtherStops(tav);
    stopProcessLoops(tav);
    while (TavListEle *head = tavListGetHead(tav->connectorGroupList))
        tavConnectorGroupDelete(static_cast<TavConnectorGroup *>(tavListEleGetObject(head)));
    // Its entries hold connectors, and those their groups and the instance.
    tavSappMapDelete(tav->sappMap);
    tav->sappMap = nullptr;
    dropSnapshot(tav, &tav->newRoutingInfo);
    dropSnapshot(tav, &tav->routingInfo);
    tavAsyncStop(tav);
    tavThreadDestroy(tav->asyncWorkThread);
    tavSetState(tav, DELETED, "deleted");
    tavReleaseRef(tav, "tavDestroy2");
}

int tavStart(Tav *tav, int timeoutInSecs) TAV_NOEXCEPT {
    if (!tav) return -1;
    TavRefScope ref(tav, "tavStart");
    TavControlScope control("tavStart");
    return tavStart2(tav, timeoutInSecs);
}

int tavStop(Tav *tav) TAV_NOEXCEPT {
    if (!tav) return -1;
    TavRefScope ref(tav, "tavStop");
    TavControlScope control("tavStop");
    return tavStop2(tav, "stopping initiated");
}

int tavServerProcessTerminate(Tav *tav) TAV_NOEXCEPT {
    if (!tav) return -1;
    TavRefScope ref(tav, "tavServerProcessTerminate");
    TavControlScope control("tavStop");
    return tavStop2(tav, "stopping daemon");
}

void tavDestroy(Tav *tav) TAV_NOEXCEPT {
    if (!tav) return;
    TavRefScope ref(tav, "tavDestroy");
    TavControlScope control("tavDestroy");
    tavDestroy2(tav);
}

void tavObtainRef(Tav *tav, const char *reason) TAV_NOEXCEPT {
    if (!tav) return;
    const int count = ++tav->refcnt;
    TR_TRACE(tav->trCtx, tav->processRec, TR_DEBUG_LEVEL, "Obtained reference to tav, refcnt: %d, reason: %s\n", count, tavOrNull(reason));
}

namespace {

void destroyLocks(Tav *tav) noexcept {
    for (TavLock *lock : {tav->partitionIDData.lock, tav->routingInfoLock, tav->stopLock, tav->contextPoolLock, tav->trSpecLock,
                          tav->endPointRefLock, tav->nameLock})
        tavLockDestroy(lock);
}

void destroyTrace(Tav *tav) noexcept {
    if (!tav->trMgr) return;
    tavClearGlobalTrace(tav->trMgr);
    trMgrDelete(tav->trMgr);
}

// The order is part of the interface: what comes later is used by what comes before.
void teardown(Tav *tav) noexcept {
    hmDelete(tav->healthMonitor);
    tavListDestroy(tav->contextPool);
    tavListDestroy(tav->connectorGroupList);
    if (tav->serverProcess) tavServerProcessDelete(tav->serverProcess);
    if (tav->clientProcess) tavClientProcessDelete(tav->clientProcess);
    if (tav->requestTraceRules) tavRulesFree(tav->requestTraceRules);
    langFree(tav->httpLanguage);
    tavHashMapDestroy(tav->endPointRefMap);
    tavSappMapDelete(tav->sappMap);
    tavPropertiesDelete(tav->props);
    tavHashMapDestroy(tav->defaultProps);
    tavHashMapDestroy(tav->serverProps);
    tavHashMapDestroy(tav->partitionIDData.map);
    trSpecRefRelease(tav->customPropDefaultRequestTraceSpec);
    trSpecRefRelease(tav->noticeTraceSpec);
    destroyLocks(tav);
    tavFree(tav->unixDomainSocketPath);
    tavListDestroy(tav->internedNames);
    json_decref(tav->controlState);
    tavAsyncQueueDelete(tav->asyncWorkQueue);
    tavConditionDestroy(tav->asyncWorkCondition);
    tavHashMapDestroy(tav->trustedProxySet);
    tavListDestroy(tav->trustedProxyList);
    destroyTrace(tav);
    tavDestroyRecord(tav);
}

} // namespace

void tavReleaseRef(Tav *tav, const char *reason) TAV_NOEXCEPT {
    if (!tav) return;
    // After the count went down another thread may free the record, so the line comes first.
    TR_TRACE(tav->trCtx, tav->processRec, TR_DEBUG_LEVEL, "Released reference to tav, refcnt: %d, reason: %s\n", tav->refcnt - 1,
             tavOrNull(reason));
    if (--tav->refcnt < 1) teardown(tav);
}
