// Host endpoint objects shared by name.
//
// The map leads from a name to the reference that a new endpoint of that name joins; holders keep the record itself, so a reference whose
// endpoint changed can leave the map and live on for the requests that forward through it. Map and host callbacks are under one leaf lock:
// snapshots are released on request threads while the configuration thread builds the next one. Only the first and the last holder of a
// reference take it.
#include "tavEndPointRef.h"

#include <tav/endpoint.h>

#include "tav/tavRecord.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

void refDelete(EndPointRef *ref) noexcept {
    if (!ref) return;
    if (ref->endPoint && ref->cb->targetEndpoint.delete_) ref->cb->targetEndpoint.delete_(ref->endPoint);
    tavFree(ref->key);
    tavDestroyRecord(ref);
}

EndPointRef *refCreate(Tav *tav, TavTargetEndpoint *endpoint) noexcept {
    if (!tav->env.targetEndpoint.create) return nullptr;
    EndPointRef *ref = tavNewRecord<EndPointRef>();
    if (!ref) return nullptr;
    ref->cb = &tav->env;
    ref->key = tavStrdup(tavTargetEndpointGetName(endpoint));
    ref->endPoint = ref->key ? tav->env.targetEndpoint.create(endpoint) : nullptr;
    if (!ref->endPoint || tavHashPut(tav->endPointRefMap, ref->key, ref)) {
        refDelete(ref);
        return nullptr;
    }
    return ref;
}

} // namespace

EndPointRef *tavEndPointRefObtain(Tav *tav, TavTargetEndpoint *endpoint) noexcept {
    if (!tav || !endpoint) return nullptr;
    TavLockGuard guard(tav->endPointRefLock, "envTargetEndPointObtainRef");
    auto *ref = static_cast<EndPointRef *>(tavHashGet(tav->endPointRefMap, tavTargetEndpointGetName(endpoint)));
    if (!ref) ref = refCreate(tav, endpoint);
    if (!ref) return nullptr;
    const int count = ++ref->refcnt;
    TR_DEBUG(tav->trCtx, tav->processRec, "envTargetEndPointObtainRef ref=%p, cnt=%d, name='%s'\n", static_cast<void *>(ref), count,
             ref->key);
    return ref;
}

namespace {

// Drops one of several holders without the lock; false when this may be the last one.
bool releaseShared(EndPointRef *ref) noexcept {
    int count = ref->refcnt.load(std::memory_order_relaxed);
    while (count > 1) {
        if (ref->refcnt.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel)) return true;
    }
    return false;
}

} // namespace

void tavEndPointRefRelease(Tav *tav, EndPointRef *ref) noexcept {
    if (!ref) return;
    TR_DEBUG(tav->trCtx, tav->processRec, "envTargetEndPointReleaseRef ref=%p, cnt=%d, name='%s'\n", static_cast<void *>(ref),
             ref->refcnt - 1, ref->key);
    if (releaseShared(ref)) return;
    TavLockGuard guard(tav->endPointRefLock, "envTargetEndPointReleaseRef");
    if (--ref->refcnt > 0) return;
    if (!ref->detached) tavHashPut(tav->endPointRefMap, ref->key, nullptr);
    refDelete(ref);
}

void tavEndPointRefDetach(Tav *tav, EndPointRef *ref) noexcept {
    if (!ref) return;
    TavLockGuard guard(tav->endPointRefLock, "tavEndPointRefDetach");
    if (ref->detached) return;
    tavHashPut(tav->endPointRefMap, ref->key, nullptr);
    ref->detached = TRUE;
}

EnvTargetEndpoint *tavEndPointRefGet(const EndPointRef *ref) noexcept { return ref ? ref->endPoint : nullptr; }

EnvTargetEndpoint *envTargetEndPointObtainRef(Tav *tav, TavTargetEndpoint *endpoint) noexcept {
    return tavEndPointRefGet(tavEndPointRefObtain(tav, endpoint));
}

void envTargetEndPointReleaseRef(Tav *tav, TavTargetEndpoint *endpoint) noexcept {
    if (!tav || !endpoint) return;
    EndPointRef *ref = nullptr;
    {
        TavLockGuard guard(tav->endPointRefLock, "envTargetEndPointReleaseRef");
        ref = static_cast<EndPointRef *>(tavHashGet(tav->endPointRefMap, tavTargetEndpointGetName(endpoint)));
    }
    tavEndPointRefRelease(tav, ref);
}
