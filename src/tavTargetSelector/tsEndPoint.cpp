// Transport endpoints.
//
// The accessors read an endpoint without the lock, so nothing they gave may go while a request holds the endpoint. Every change that takes
// something away (a text, the host's object) ends a period: what went is kept in that period until no request of it or of an earlier one is
// left. Releasing needs no memory: while there is a host's object a period is in stock for its end, and a period that ended restocks.
#include "tavTargetSelector/tsInternal.h"

// ---- periods ----

static bool inUse(const TavTargetEndpoint *endpoint) noexcept TS_LOCKED {
    return endpoint->oldest != endpoint->current || endpoint->current->requests > 0;
}

static void freePeriod(TavTargetEndpoint *endpoint, TsEndPointPeriod *period) noexcept TS_LOCKED {
    if (!period) return;
    if (period->ref) {
        if (!endpoint->ref && endpoint->envTargetEndpoint == tavEndPointRefGet(period->ref)) endpoint->envTargetEndpoint = nullptr;
        tavEndPointRefRelease(endpoint->server->selector->tav, period->ref);
    }
    tavFree(period->text);
    if (endpoint->spare) return tavDestroyRecord(period);
    *period = {};
    endpoint->spare = period;
}

void endPointTrim(TavTargetEndpoint *endpoint) noexcept {
    while (endpoint->oldest != endpoint->current && endpoint->oldest->requests == 0) {
        TsEndPointPeriod *period = endpoint->oldest;
        endpoint->oldest = period->next;
        freePeriod(endpoint, period);
    }
}

// Ends the current period with what goes and begins `next`.
static void endPeriod(TavTargetEndpoint *endpoint, TsEndPointPeriod *next, char *text, EndPointRef *ref) noexcept TS_LOCKED {
    // Nobody reads it: the host sees its old object deleted before a new one is made. Otherwise the old one stays readable.
    if (ref && !inUse(endpoint)) endpoint->envTargetEndpoint = nullptr;
    endpoint->current->text = text;
    endpoint->current->ref = ref;
    endpoint->current->next = next;
    endpoint->current = next;
    endPointTrim(endpoint);
}

// ---- the host's object ----

Boolean endPointObtain(TavTargetEndpoint *endpoint) noexcept {
    if (endpoint->ref) return TRUE;
    if (!endpoint->spare) endpoint->spare = tavNewRecord<TsEndPointPeriod>();
    if (!endpoint->spare) return FALSE;
    endpoint->ref = tavEndPointRefObtain(endpoint->server->selector->tav, endpoint);
    if (endpoint->ref) endpoint->envTargetEndpoint = tavEndPointRefGet(endpoint->ref);
    return endpoint->ref != nullptr;
}

void endPointGiveUp(TavTargetEndpoint *endpoint) noexcept {
    EndPointRef *ref = endpoint->ref;
    if (!ref) return;
    TsEndPointPeriod *next = endpoint->spare;
    endpoint->spare = nullptr;
    endpoint->ref = nullptr;
    endPeriod(endpoint, next, nullptr, ref);
}

// Something that the host's object was made from has changed; `oldText` (may be null) is what went. Takes both.
static void changed(TavTargetEndpoint *endpoint, TsEndPointPeriod *next, char *oldText) noexcept TS_LOCKED {
    EndPointRef *ref = endpoint->ref;
    if (ref) tavEndPointRefDetach(endpoint->server->selector->tav, ref);
    endpoint->ref = nullptr;
    endPeriod(endpoint, next, oldText, ref);
    if (ref) endPointObtain(endpoint);
}

// ---- life ----

TavTargetEndpoint *tsEndPointCreate(TargetServer *server, const char *name) noexcept {
    return tsEndPointCreateShared(server, TavSharedText(tavSharedTextCreate(name)).get());
}

TavTargetEndpoint *tsEndPointCreateShared(TargetServer *server, const char *name) noexcept {
    if (!server || !name) return nullptr;
    auto *endpoint = tavNewRecord<TavTargetEndpoint>();
    if (!endpoint) return nullptr;
    endpoint->refcnt = 1;
    endpoint->server = server;
    endpoint->attachedIndex = -1;
    endpoint->name = tavSharedTextObtain(name);
    endpoint->current = endpoint->oldest = tavNewRecord<TsEndPointPeriod>();
    endpoint->spare = tavNewRecord<TsEndPointPeriod>();
    TsScope scope(server->selector->lock, "tsEndPointCreate");
    if (!endpoint->current || !endpoint->spare) {
        endPointFree(endpoint);
        return nullptr;
    }
    endpoint->next = server->firstEndPoint;
    server->firstEndPoint = endpoint;
    return endpoint;
}

Boolean tsEndPointInit(TavTargetEndpoint *endpoint) noexcept {
    if (!endpoint) return FALSE;
    TargetServer *server = endpoint->server;
    TargetSelector *ts = server->selector;
    TsScope scope(ts->lock, "tsEndPointInit");
    const int index = endpoint->protoIndex;
    if (index < 0) return FALSE;
    if (endpoint->attachedIndex < 0) {
        if (!tavListAddTail(server->endPoints[index], endpoint)) return FALSE;
        endpoint->attachedIndex = index;
        serverChooseEndPoints(server);
        TR_DEBUG(ts->trCtx, ts->controlRec, "Adding endpoint %p -- %s to the server %s\n", static_cast<void *>(endpoint), endpoint->name,
                 server->name);
    }
    return !server->state || tavStrEquals(server->state, "STOPPED") || endPointObtain(endpoint);
}

const char *tsEndPointGetName(const TavTargetEndpoint *endpoint) noexcept { return endpoint ? endpoint->name : nullptr; }
const char *tsEndpointGetHost(const TavTargetEndpoint *endpoint) noexcept { return endpoint ? endpoint->host.load() : nullptr; }
int tsEndpointGetPort(const TavTargetEndpoint *endpoint) noexcept { return endpoint ? endpoint->port.load() : -1; }
TargetServer *tsEndPointGetServer(const TavTargetEndpoint *endpoint) noexcept { return endpoint ? endpoint->server : nullptr; }
EnvTargetEndpoint *tsEndPointGetEnvEndPoint(const TavTargetEndpoint *endpoint) noexcept {
    return endpoint ? endpoint->envTargetEndpoint.load() : nullptr;
}

// ---- properties ----

static Boolean setText(TavTargetEndpoint *endpoint, std::atomic<char *> TavTargetEndpoint::*field, const char *value) noexcept TS_LOCKED {
    TavText copy(tavStrdup(value));
    auto *next = tavNewRecord<TsEndPointPeriod>();
    if ((value && !copy) || !next) {
        tavDestroyRecord(next);
        return FALSE;
    }
    char *old = (endpoint->*field).exchange(copy.release());
    changed(endpoint, next, old);
    return TRUE;
}

static Boolean setNumber(TavTargetEndpoint *endpoint, std::atomic<int> TavTargetEndpoint::*field, int value) noexcept TS_LOCKED {
    auto *next = tavNewRecord<TsEndPointPeriod>();
    if (!next) return FALSE;
    endpoint->*field = value;
    changed(endpoint, next, nullptr);
    return TRUE;
}

Boolean tsEndPointSetPropStr(TavTargetEndpoint *endpoint, const char *name, const char *value) noexcept {
    if (!endpoint) return FALSE;
    TsScope scope(endpoint->server->selector->lock, "tsEndPointSetPropStr");
    if (tavStrEquals(name, "protocol")) return setNumber(endpoint, &TavTargetEndpoint::protoIndex, tsProtocolToIndex(value));
    if (tavStrEquals(name, "host")) return setText(endpoint, &TavTargetEndpoint::host, value);
    if (tavStrEquals(name, "namedEndpoint")) return setText(endpoint, &TavTargetEndpoint::namedEndpoint, value);
    return FALSE;
}

Boolean tsEndPointSetPropInt(TavTargetEndpoint *endpoint, const char *name, int value) noexcept {
    if (!endpoint) return FALSE;
    TsScope scope(endpoint->server->selector->lock, "tsEndPointSetPropInt");
    if (tavStrEquals(name, "port")) return setNumber(endpoint, &TavTargetEndpoint::port, value);
    if (tavStrEquals(name, "persistentTimeout")) return setNumber(endpoint, &TavTargetEndpoint::persistentTimeout, value);
    return FALSE;
}

Boolean tsEndPointSetPropBool(TavTargetEndpoint *, const char *, Boolean) noexcept { return FALSE; }

// ---- deletion ----

void endPointFree(TavTargetEndpoint *endpoint) noexcept {
    if (endpoint->ref) tavEndPointRefRelease(endpoint->server->selector->tav, endpoint->ref);
    endpoint->ref = nullptr;
    while (TsEndPointPeriod *period = endpoint->oldest) {
        endpoint->oldest = period->next;
        freePeriod(endpoint, period);
    }
    tavDestroyRecord(endpoint->spare);
    tavSharedTextRelease(endpoint->name);
    tavFree(endpoint->host);
    tavFree(endpoint->sslProfile);
    tavFree(endpoint->namedEndpoint);
    tavDestroyRecord(endpoint);
}

static void detach(TavTargetEndpoint *endpoint) noexcept TS_LOCKED {
    TargetServer *server = endpoint->server;
    if (endpoint->attachedIndex >= 0) {
        tavListFindAndRemove(server->endPoints[endpoint->attachedIndex], endpoint);
        serverChooseEndPoints(server);
    }
    TavTargetEndpoint **place = &server->firstEndPoint;
    while (*place != endpoint) place = &(*place)->next;
    *place = endpoint->next;
}

void endPointDelete(TavTargetEndpoint *endpoint) noexcept {
    if (--endpoint->refcnt >= 1) return;
    detach(endpoint);
    endPointFree(endpoint);
}

void tsEndPointDelete(TavTargetEndpoint *endpoint) noexcept {
    if (!endpoint) return;
    TsScope scope(endpoint->server->selector->lock, "tsEndPointDelete");
    if (endpoint->deleted) return;
    endpoint->deleted = TRUE;
    serverChooseEndPoints(endpoint->server);
    endPointDelete(endpoint);
}
