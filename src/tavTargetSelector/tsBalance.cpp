// Weighted least outstanding requests with a rotating start.
//
// The walk goes once around the virtual cluster's array from the cursor. An idle server is taken at once, so idle servers take turns; among
// busy ones the smallest outstanding/weight wins, the earlier on a tie. Counts and weights are the server's, shared by its applications.
#include <cstdio>

#include "tavTargetSelector/tsInternal.h"

const char *serverFullReason(const TargetServer *server, char *buffer, size_t size) noexcept {
    snprintf(buffer, size, "number of outstanding requests '%d' exceeded maximum connections '%d' for the server %s",
             server->outstandingRequestCount, server->maxConnections, server->name);
    return buffer;
}

static constexpr const char *transportIsNotValid = "transport is not valid";

const char *tsServerTransportReason(const TargetServer *server, int protoIndex) noexcept {
    const TavTargetEndpoint *endpoint = server->usualEndPoint[protoIndex];
    return endpoint && endpoint->port != -1 ? nullptr : transportIsNotValid;
}

static bool checkIfTransportIsValid(const TsRequest &req, const TargetServer *server) noexcept TS_LOCKED {
    const TavTargetEndpoint *endpoint = req.byVHost ? selectEndpointFromServer(req, server) : server->usualEndPoint[req.protoIndex];
    return endpoint && endpoint->port != -1;
}

namespace {
inline constexpr const char *serverIsFullMark = "server is full"; // stands for serverFullReason until someone reads it
} // namespace

static inline const char *skipReason(const TsRequest &req, const TargetServerApplication *sapp) noexcept TS_LOCKED {
    if (const char *reason = serverApplicationReason(sapp, FALSE, [&req] { return req.now(); })) return reason;
    if (tavHttpContextIsFailedServerApp(req.ctx, sapp)) return TS_FAILED_BEFORE;
    if (checkIfMaxConnectionsExceeded(sapp->server)) return serverIsFullMark;
    return checkIfTransportIsValid(req, sapp->server) ? nullptr : transportIsNotValid;
}

static void logSkipped(const TsRequest &req, const TargetServerApplication *sapp, const char *reason) noexcept TS_LOCKED {
    char text[512];
    if (reason == serverIsFullMark) reason = serverFullReason(sapp->server, text, sizeof text);
    trContextDebug(req.trCtx, req.ts->balanceRec, "wlor: skipping server application='%s' (%p), reason=%s\n", sapp->name,
                   static_cast<const void *>(sapp), reason);
}

static void logCandidate(const TsRequest &req, const TargetServer *server) noexcept TS_LOCKED {
    trContextDebug(req.trCtx, req.ts->balanceRec, "wlor: comparing server='%s', started=%s, weight=%d, outstandingRequestCount=%d\n",
                   server->name, server->started ? "true" : "false", server->weight, server->outstandingRequestCount);
}

// The products wrap at 32 bits.
static inline bool isLessLoaded(const TargetServer *candidate, const TargetServer *best) noexcept TS_LOCKED {
    const auto product = [](int a, int b) { return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b)); };
    return product(candidate->outstandingRequestCount, best->weight) < product(best->outstandingRequestCount, candidate->weight);
}

// Asks for the cache lines of the servers a few places ahead: with thousands of them, waiting for memory would be most of the walk.
static inline void prefetchAhead(const VirtualCluster *vc, int i, int count) noexcept TS_LOCKED {
    constexpr int distance = 8;
    if (i + distance >= count) return;
    __builtin_prefetch(vc->sappArray[i + distance]);
    const TargetServer *server = vc->serverArray[i + distance];
    __builtin_prefetch(&server->weight);
    __builtin_prefetch(&server->outstandingRequestCount);
    __builtin_prefetch(&server->usualEndPoint);
}

// Walks the array and moves the cursor.
static TargetServerApplication *walk(const TsRequest &req, VirtualCluster *vc, int count, bool log) noexcept TS_LOCKED {
    TargetServerApplication *best = nullptr;
    const int start = vc->loadBalanceIndex < count ? vc->loadBalanceIndex : 0; // it may stand past the end
    int i = start;
    do {
        prefetchAhead(vc, i, count);
        TargetServerApplication *sapp = vc->sappArray[i++];
        const char *reason = skipReason(req, sapp);
        if (reason) {
            if (log) logSkipped(req, sapp, reason);
        } else {
            if (log) logCandidate(req, sapp->server);
            if (sapp->server->outstandingRequestCount < 1) {
                vc->loadBalanceIndex = i;
                return sapp;
            }
            if (!best || isLessLoaded(sapp->server, best->server)) best = sapp;
        }
        if (i == count) i = 0;
    } while (i != start);
    vc->loadBalanceIndex = start;
    if (log) trContextDebug(req.trCtx, req.ts->balanceRec, "wlor: done searching\n");
    return best;
}

void balancePrefetch(const TsModuleHint *hint) noexcept {
    tsPrefetch(hint->nextSapp.load(std::memory_order_relaxed), sizeof(TargetServerApplication));
    tsPrefetch(hint->nextServer.load(std::memory_order_relaxed), sizeof(TargetServer));
}

static void rememberNext(const TsRequest &req, const VirtualCluster *vc, int count) noexcept TS_LOCKED {
    if (!req.hint) return;
    const int next = vc->loadBalanceIndex < count ? vc->loadBalanceIndex : 0;
    req.hint->nextSapp.store(vc->sappArray[next], std::memory_order_relaxed);
    req.hint->nextServer.store(vc->serverArray[next], std::memory_order_relaxed);
}

TargetServerApplication *wlorLoadBalance(const TsRequest &req, VirtualCluster *vc) noexcept {
    const int count = virtualClusterArray(vc);
    if (count == 0) {
        TR_DEBUG(req.trCtx, req.ts->error503Rec, "503 error: no servers are running web module '%s; Error Status Code=503'\n", vc->name);
        return nullptr;
    }
    const bool log = trContextLogEnabled(req.trCtx, req.ts->balanceRec);
    if (log) trContextDebug(req.trCtx, req.ts->balanceRec, "wlor: start at index %d\n", vc->loadBalanceIndex);
    const int turn = vc->loadBalanceIndex;
    TargetServerApplication *sapp = walk(req, vc, count, log);
    if (req.counted)
        rememberNext(req, vc, count);
    else
        vc->loadBalanceIndex = turn;
    if (!sapp) return nullptr;
    tavHttpContextSetPerformedLoadBalancing(req.ctx, TRUE);
    if (log) trContextDebug(req.trCtx, req.ts->balanceRec, "wlor: finished - %s, %s\n", sapp->name, sapp->server->name);
    return sapp;
}
