// What a selected request holds, and what its end tells the selector.
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavTargetSelector/tsInternal.h"

void tsTargetInfoIncrementRefCnt(TsTargetInfo *info, TargetServerApplication *sapp, TavTargetEndpoint *endpoint) noexcept {
    TargetServer *server = sapp->server;
    *info = {sapp, endpoint, server, server->node, server->cluster, endpoint->current};
    sapp->refcnt++;
    endpoint->refcnt++;
    server->refcnt++;
    server->node->refcnt++;
    if (info->cluster) info->cluster->refcnt++;
    info->period->requests++;
    server->selector->selected++;
}

static void releaseTarget(TsScope &scope, TavHttpContext *ctx, const TsTargetInfo &info) noexcept TS_LOCKED {
    TargetSelector *ts = info.server->selector;
    serverApplicationDelete(scope, info.sapp);
    TR_DEBUG(tavHttpContextGetTrContext(ctx), ts->selectRec, "decrementing endpoint refcnt: refcnt=%d, ctx=%p, tep='%s'\n",
             info.endpoint->refcnt - 1, static_cast<void *>(ctx), info.endpoint->name);
    info.period->requests--;
    endPointTrim(info.endpoint);
    endPointDelete(info.endpoint);
    serverDelete(scope, info.server);
    nodeDelete(info.node);
    if (info.cluster) clusterDelete(info.cluster);
    ts->selected--;
    if (ts->formerClusters) tsFreeFormerClusters(ts);
}

void tsTargetInfoDecrementRefCnt(TavHttpContext *ctx) noexcept {
    TsTargetInfo *held = ctx ? tavHttpContextGetTargetInfo(ctx) : nullptr;
    if (!held || !held->sapp) return;
    {
        TsScope scope(held->server->selector->lock, "tsTargetInfoDecrementRefCnt");
        releaseTarget(scope, ctx, *held);
    }
    *held = {};
    tavHttpContextResetMyTargetInfo(ctx);
}

// ---- connections ----

// Nothing to reset and nobody to tell: as good as always, so the lock is left to those who need it.
static bool connectSuccessIsNoNews(const TargetServer *server) noexcept {
    const TargetSelector *ts = server->selector;
    return server->nextRetryTime.load(std::memory_order_relaxed) == 0 &&
           server->nextRetryInterval.load(std::memory_order_relaxed) == TS_FIRST_RETRY_INTERVAL &&
           !trContextLogEnabled(ts->trCtx, ts->balanceRec);
}

void tsServerConnectSuccess(TargetServer *server) noexcept {
    if (!server || connectSuccessIsNoNews(server)) return;
    TsScope scope(server->selector->lock, "tsServerConnectSuccess");
    serverInitRetry(server);
}

void tsServerConnectFailure(TargetServer *server) noexcept {
    if (!server) return;
    TargetSelector *ts = server->selector;
    TsScope scope(ts->lock, "tsServerConnectFailure");
    const TavTime interval = server->nextRetryInterval;
    server->nextRetryTime = tavTimeAdd(tavGetCurrentTime(), interval);
    server->nextRetryInterval = interval * 10 < TS_LAST_RETRY_INTERVAL ? interval * 10 : TS_LAST_RETRY_INTERVAL;
    TR_DEBUG(ts->trCtx, ts->balanceRec,
             "tsServerConnectFailure: connect failure to the server %s; nextRetryInterval=%lu, nextRetryTime=%lu", server->name,
             static_cast<unsigned long>(server->nextRetryInterval.load()), static_cast<unsigned long>(server->nextRetryTime.load()));
}

// ---- the end of a request ----

// A timed-out response says nothing about the response time, only about time-outs.
static void addSample(TavHttpContext *ctx, TargetServer *server, TavTime curTime, TavTime serviceTime, Boolean timeout) noexcept TS_LOCKED {
    const TavTime mean = timeout ? TAV_NO_VALUE : tavAvgCalcAddSample(&server->avgResponseTimeCalc, curTime, serviceTime);
    const int percent = tavTimeoutCalcAddSample(&server->timeoutCalc, curTime, timeout);
    if (mean != TAV_NO_VALUE || percent != -1) {
        hmCheckHealthPolicies(server->selector->tav, ctx, server, server->healthPolicies, mean, percent);
    }
    if (mean != TAV_NO_VALUE) server->avgResponseTime = mean;
}

int tsServerApplicationDecrementOutstandingRequestCount(TavHttpContext *ctx, TargetServerApplication *sapp, TavTime curTime,
                                                        TavTime serviceTime, Boolean timeout) noexcept {
    if (!sapp) return 0;
    TargetServer *server = sapp->server;
    TsScope scope(server->selector->lock, "tsServerApplicationDecrementOutstandingRequestCount");
    const int count = --sapp->outstandingRequestCount;
    server->outstandingRequestCount--;
    if (server->started && curTime != 0) addSample(ctx, server, curTime, serviceTime, timeout);
    serverApplicationSettleRoute(scope, sapp);
    return count;
}
