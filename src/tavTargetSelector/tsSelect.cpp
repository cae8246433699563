// tsSelect: affinity first, then load, then an endpoint of the chosen server.
//
// Under one hold of the lock the request gets a server application and an endpoint, counts itself on both and on their server, node and
// cluster. Whatever calls out or waits (the previous target's release, a rollout wait, the rejection and its diagnostics) comes after it.
#include <jansson.h>

#include <cstdlib>

#include "VHostMatcher/VHostMatcher.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tsInternal.h"
#include "tavURLMatcher/tavURLMatcher.h"

namespace {
// What a selection brought: a target, or none and then the cluster (counted) that would have had to serve.
struct TsChoice {
    TsTargetInfo info{};
    Cluster *cluster = nullptr;
    Boolean rollout = FALSE;
    int rejectCode = 0; // not 0: the request cannot be selected for at all
    const char *rejectText = nullptr;
};
} // namespace

// ---- endpoints ----

// The first endpoint that the request's virtual-host group accepts, or null.
static TavTargetEndpoint *matchedEndpoint(TavHttpContext *ctx, TargetSelector *ts, const TavList *endpointList) noexcept TS_LOCKED {
    const RequestMapper *rm = tavRoutingInfoGetRequestMapper(ts->ri);
    const char *name = tavHttpContextGetMatchedVHostName(ctx);
    const VHostMatcher *matcher = rm && name ? getVHostMatcher(rmGetURLMatcher(rm), name) : nullptr;
    if (!matcher) return nullptr;
    for (TavTargetEndpoint *endpoint : TavListRange<TavTargetEndpoint>(endpointList)) {
        if (!endpoint->deleted && matchVHost(matcher, endpoint->host, endpoint->port, ctx)) return endpoint;
    }
    return nullptr;
}

TavTargetEndpoint *selectEndpoint(TavHttpContext *ctx, TargetSelector *ts, const TavList *endpointList) noexcept TAV_NO_ANALYSIS {
    TavTargetEndpoint *matched = tavSelectsEndpointByVHost(ts->tav) ? matchedEndpoint(ctx, ts, endpointList) : nullptr;
    return matched ? matched : endPointFirst(endpointList);
}

TavTargetEndpoint *selectEndpointFromServer(const TsRequest &req, const TargetServer *server) noexcept {
    TavTargetEndpoint *usual = server->usualEndPoint[req.protoIndex];
    if (!req.byVHost || !usual) return usual;
    // The list that the usual one stands in is the one to choose from.
    return selectEndpoint(req.ctx, req.ts, server->endPoints[usual->attachedIndex]);
}

// ---- the request ----

static void reject(const TsRequest &req, int code, const char *text) noexcept {
    tavHttpContextSetReject(req.ctx, code, text);
    TR_DEBUG(req.trCtx, req.ts->error503Rec, "tsSelect: %s; Error Status Code=%d\n", text, code);
}

// FALSE: rejected.
static bool readRequest(TsRequest &req) noexcept {
    req.trCtx = tavHttpContextGetTrContext(req.ctx);
    req.moduleName = tavHttpContextGetModuleName(req.ctx);
    if (!req.moduleName) return reject(req, 500, "null module name"), false;
    const char *protocol = tavHttpContextGetProtocol(req.ctx);
    if (!protocol) return reject(req, 500, "null protocol"), false;
    req.protoIndex = tsProtocolToIndex(protocol);
    if (req.protoIndex < 0) return reject(req, 500, "negative protocol index"), false;
    req.appName = tavHttpContextGetApplicationName(req.ctx);
    req.hint = tavHttpContextGetModuleHint(req.ctx);
    req.counted = tavHttpContextIsTrial(req.ctx) ? 0 : 1;
    req.byVHost = tavSelectsEndpointByVHost(req.ts->tav);
    readCookieAhead(req);
    return true;
}

// The protocol of the endpoint: the first level that has a mode decides.
static int outboundProtocol(const TsRequest &req, const VirtualCluster *vc) noexcept TS_LOCKED {
    TavSSLMapMode mode = tavHttpContextGetSSLMapMode(req.ctx);
    if (mode == NullMapMode) mode = tavGetSSLMapMode(req.ts->tav);
    if (mode == NullMapMode && vc->webModule) mode = rmWebModuleGetSSLMapMode(vc->webModule);
    if (mode == SSLOffLoad) return 0;
    if (mode == SSLOnLoad) return 1;
    return req.protoIndex;
}

// ---- choosing ----

static void breakAffinity(const TsRequest &req, const char *traced, const char *reason) noexcept TS_LOCKED {
    TR_DEBUG(req.trCtx, req.ts->breakAffinityRec, "%s", traced);
    tavHttpContextBreakAffinity(req.ctx);
    tavHttpContextSetAffinityBreakReason(req.ctx, reason);
}

// An affinity server that has no room is given up.
static bool keepsAffinity(const TsRequest &req, const TargetServerApplication *sapp, const VirtualCluster *vc) noexcept TS_LOCKED {
    const TargetServer *server = sapp->server;
    TargetSelector *ts = req.ts;
    if (!checkIfMaxConnectionsExceeded(server)) {
        TR_DEBUG(req.trCtx, ts->keepAffinityRec, "tsSelect: keeping affinity to %s ; cluster is:%s\n", server->name, vc->cluster->name);
        return true;
    }
    char text[512];
    const char *reason = serverFullReason(server, text, sizeof text);
    breakAffinity(req, reason, reason);
    TR_DEBUG(req.trCtx, ts->breakAffinityRec, "tsSelect: Breaking affinity for the request %s with ctx=%p because %s\n",
             tavOrNull(tavHttpContextGetURL(req.ctx)), static_cast<void *>(req.ctx), reason);
    return false;
}

static TargetServerApplication *chooseServerApplication(const TsRequest &req, VirtualCluster *vc,
                                                        HttpAffinityPolicy *policy) noexcept TS_LOCKED {
    TsReason breakReason(trContextLogEnabled(req.trCtx, req.ts->affinityRec) || trContextLogEnabled(req.trCtx, req.ts->breakAffinityRec));
    TargetServerApplication *sapp = getAffinityTargetServerApplication(req, vc, policy, breakReason);
    if (sapp && keepsAffinity(req, sapp, vc)) return sapp;
    if (!sapp && breakReason.any()) breakAffinity(req, breakReason.text(), breakReason.brief());
    return wlorLoadBalance(req, vc);
}

static TsChoice rejection(int code, const char *text) noexcept {
    TsChoice choice;
    choice.rejectCode = code;
    choice.rejectText = text;
    return choice;
}

// The module's virtual cluster: where the module remembers it, else by name. A hint of this generation is right: a name that led to a
// virtual cluster leads to it until that one goes.
static VirtualCluster *findVirtualCluster(const TsRequest &req) noexcept TS_LOCKED {
    TargetSelector *ts = req.ts;
    TsModuleHint *hint = req.hint;
    if (hint && hint->generation == ts->virtualClusterGeneration) return hint->virtualCluster;
    VirtualCluster *vc = virtualClusterFind(ts, req.moduleName);
    if (hint && vc) {
        hint->virtualCluster = vc;
        hint->generation = ts->virtualClusterGeneration;
    }
    return vc;
}

// Steps under the lock.
static TsChoice choose(TsRequest &req) noexcept {
    TsScope scope(req.ts->lock, "tsSelect");
    VirtualCluster *vc = findVirtualCluster(req);
    if (!vc) return rejection(404, "web module not found by selector");
    if (!vc->cluster) return rejection(500, "no cluster");
    HttpAffinityPolicy *policy = getAffinityPolicy(vc);
    if (!policy) return rejection(500, "no affinity policy");
    if (req.hint && req.hint->policy.load(std::memory_order_relaxed) != policy) req.hint->policy.store(policy, std::memory_order_release);
    req.protoIndex = outboundProtocol(req, vc);
    TsChoice choice;
    TargetServerApplication *sapp = chooseServerApplication(req, vc, policy);
    TavTargetEndpoint *endpoint = sapp ? selectEndpointFromServer(req, sapp->server) : nullptr;
    if (endpoint) {
        sapp->server->outstandingRequestCount += req.counted;
        sapp->outstandingRequestCount += req.counted;
        tsTargetInfoIncrementRefCnt(&choice.info, sapp, endpoint);
    } else {
        choice.cluster = vc->cluster;
        choice.cluster->refcnt++;
        choice.rollout = choice.cluster->editionRolloutInProgress;
    }
    return choice;
}

// ---- the outcome ----

static TavTargetEndpoint *selected(const TsRequest &req, TavTargetEndpoint *endpoint, TargetServerApplication *sapp) noexcept {
    tavHttpContextSetMyTargetInfo(req.ctx, endpoint, sapp);
    TR_TRACE(req.trCtx, req.ts->selectRec, 7, "route selection is %s using port %d\n", endpoint->name, endpoint->port.load());
    return endpoint;
}

// The short form of the cluster when it is to be logged, collected under the lock; gives the cluster's reference back.
static json_t *closeCluster(const TsRequest &req, Cluster *cluster) noexcept {
    const bool logged = trContextLogEnabled(req.trCtx, req.ts->error503Rec);
    TsScope scope(req.ts->lock, "tsSelect");
    json_t *json = logged ? clusterToJSON(cluster, false) : nullptr;
    clusterDelete(cluster);
    return json;
}

static void rejectUnavailable(const TsRequest &req, Cluster *cluster) noexcept {
    const bool timedOut = tavHttpContextGetNumOfResponseTimeouts(req.ctx) > 0;
    if (timedOut)
        tavHttpContextSetReject(req.ctx, 504, "response timed out");
    else
        tavHttpContextSetReject(req.ctx, 503, "no server was found running web module");
    json_t *json = closeCluster(req, cluster);
    if (!json) return;
    char *text = json_dumps(json, JSON_INDENT(3));
    json_decref(json);
    if (text) {
        TR_DEBUG(req.trCtx, req.ts->error503Rec, "%d response for module '%s':\n%s\n", timedOut ? 504 : 503, req.moduleName, text);
    }
    free(text);
}

static void releaseCluster(TargetSelector *ts, Cluster *cluster) noexcept {
    TsScope scope(ts->lock, "tsSelect");
    clusterDelete(cluster);
}

TavTargetEndpoint *tsSelect(TargetSelector *ts, TavHttpContext *ctx) noexcept {
    if (!ts || !ctx) return nullptr;
    tavHttpContextSetPerformedLoadBalancing(ctx, FALSE);
    TsRequest req{};
    req.ts = ts;
    req.ctx = ctx;
    if (!readRequest(req)) return nullptr;
    const TsChoice choice = choose(req);
    if (choice.rejectCode) {
        tavHttpContextSetReject(ctx, choice.rejectCode, choice.rejectText);
        return nullptr;
    }
    tsTargetInfoDecrementRefCnt(ctx); // what an earlier attempt held
    if (choice.info.endpoint) {
        *tavHttpContextGetTargetInfo(ctx) = choice.info;
        return selected(req, choice.info.endpoint, choice.info.sapp);
    }
    // The wait selects by itself and stores what it found; its target counts once.
    TavTargetEndpoint *waited = choice.rollout ? tavHttpContextWaitForRollout(ctx) : nullptr;
    if (waited) {
        releaseCluster(ts, choice.cluster);
        return selected(req, waited, tavHttpContextGetMyTargetServerApplication(ctx));
    }
    rejectUnavailable(req, choice.cluster);
    return nullptr;
}
