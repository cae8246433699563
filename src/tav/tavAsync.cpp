// The instance's own thread: work that must not run where it is discovered, one item at a time in the order queued.
//
// The thread holds an instance reference and ends only when tavDestroy2 says so, after what was queued by then. Its callbacks take the
// control lock, so nobody waits for it while holding that lock. Work that can no longer run goes to its discard function.
#include <unistd.h>

#include <atomic>
#include <utility>

#include "tavConnector/tavConnector.h"
#include "tavControl.h"
#include "tavInternal.h"
#include "tavProcess/tavIpc.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

// Grows with every thread whose end is waited for.
constinit std::atomic<unsigned int> endedThreads{0};

struct AsyncWork {
    void *obj;
    AsyncCallbackFcn callback;
    void (*discard)(void *obj); // may be null
};

void discardWork(AsyncWork *work) noexcept {
    if (work->discard) work->discard(work->obj);
    tavFree(work);
}

// Moves everything queued to `mine`, waiting once when there is nothing. Returns false when the thread is to end.
// `awaited`: tavDestroy waits for the end.
bool takeQueue(Tav *tav, TavList *mine, bool *awaited) noexcept {
    TavCondition *cond = tav->asyncWorkCondition;
    tavConditionObtainLock(cond, "tavAsyncThread");
    if (tavListIsEmpty(tav->asyncWorkQueue) && !tav->asyncStopping) tavConditionWait(cond);
    // Both lists are plain chains: swapping ends moves every item without an allocation that could fail.
    std::swap(mine->head, tav->asyncWorkQueue->head);
    std::swap(mine->tail, tav->asyncWorkQueue->tail);
    std::swap(mine->count, tav->asyncWorkQueue->count);
    const bool goOn = !tav->asyncStopping || !tavListIsEmpty(mine);
    *awaited = tav->asyncAwaited;
    tavConditionReleaseLock(cond);
    return goOn;
}

void tavAsyncThread(void *arg) noexcept {
    Tav *tav = static_cast<Tav *>(arg);
    TavList mine = {nullptr, nullptr, nullptr, 0};
    bool awaited = false;
    while (takeQueue(tav, &mine, &awaited)) {
        while (auto *work = static_cast<AsyncWork *>(tavListRemoveHead(&mine))) {
            work->callback(tav, work->obj);
            tavFree(work);
        }
    }
    // Who waits holds references of its own: the thread's goes first, so that the last one is dropped where the host can see it. The
    // store is the last touch of the instance; the counter that wakes outlives it.
    tavReleaseRef(tav, "tavAsyncThread");
    if (!awaited) return;
    tav->asyncRunning.store(0);
    ++endedThreads;
    endedThreads.notify_all();
}

// The handle of a thread is its identifier.
bool onAsyncThread(Tav *tav) noexcept { return pthread_equal(reinterpret_cast<pthread_t>(tav->asyncWorkThread), pthread_self()); }

} // namespace

void tavAsyncQueueDelete(TavList *queue) noexcept {
    while (auto *work = queue ? static_cast<AsyncWork *>(tavListRemoveHead(queue)) : nullptr) discardWork(work);
    tavListDestroy(queue);
}

Boolean tavAsyncStart(Tav *tav) noexcept {
    tavObtainRef(tav, "tavAsyncThread");
    tav->asyncRunning = 1;
    tav->asyncPid = getpid();
    tav->asyncWorkThread = tavThreadCreate(tavAsyncThread, tav, &tav->env);
    if (tav->asyncWorkThread) return TRUE;
    tav->asyncRunning = 0;
    tavReleaseRef(tav, "tavAsyncThread");
    return FALSE;
}

void tavAsyncStop(Tav *tav) noexcept {
    // After a fork the child has no such thread; on the thread itself there is nothing to wait for.
    const bool waits = tav->asyncPid == getpid() && !onAsyncThread(tav);
    tavConditionObtainLock(tav->asyncWorkCondition, "tavDestroy2");
    tav->asyncStopping = true;
    tav->asyncAwaited = waits;
    tavConditionSignal(tav->asyncWorkCondition);
    tavConditionReleaseLock(tav->asyncWorkCondition);
    if (!waits) return;
    TavControlPause pause("tavDestroy2");
    for (unsigned int seen = endedThreads; tav->asyncRunning != 0; seen = endedThreads) endedThreads.wait(seen);
}

void tavProcessAsync(Tav *tav, void *obj, AsyncCallbackFcn handler, void (*discard)(void *obj)) noexcept {
    auto *work = static_cast<AsyncWork *>(tavMalloc(sizeof(AsyncWork)));
    if (!work) {
        if (discard) discard(obj);
        return;
    }
    *work = {obj, handler, discard};
    tavConditionObtainLock(tav->asyncWorkCondition, "tavProcessAsync");
    const bool queued = !tav->asyncStopping && tavListAddTail(tav->asyncWorkQueue, work);
    if (queued) tavConditionSignal(tav->asyncWorkCondition);
    tavConditionReleaseLock(tav->asyncWorkCondition);
    if (!queued) discardWork(work);
}

void tavUpdateControlState(Tav *tav, int fd) noexcept {
    if (!tavIsServerProcess(tav) || !tavIsUsable(tav)) return;
    json_t *state = tavConnectorGroupsToJSON(tav);
    TR_DEBUG(tav->trCtx, tav->processRec, "tavUpdateControlState\n");
    tavIpcSendJson(tav, MT_S2C_SET_CONTROL_STATE, state, fd);
    json_decref(state);
}
