// Progress of the forwarded request: each state that the host reports settles the selector's accounting for the chosen server.
#include "tavHttpContext/hcInternal.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavTime.h"

static constexpr const char *STATE_NAMES[] = {
    "INITIAL",
    "OBTAINED",
    "REQUEST_ARRIVED",
    "TAV_REQUEST_PROCESSING",
    "WEB_MODULE_SELECTED",
    "REQUEST_SUSPENDED",
    "REQUEST_CANCELED",
    "TARGET_SELECTED",
    "CONNECT_SUCCESS",
    "CONNECT_FAILURE",
    "REQUEST_SENDING",
    "REQUEST_SENT",
    "REQUEST_SEND_ERROR",
    "RESPONSE_ARRIVED",
    "RESPONSE_TIMEOUT",
    "RESPONSE_READ_ERROR",
    "RESPONSE_PROCESSING",
    "RESPONSE_PROCESSED",
    "RESPONSE_SENDING",
    "RESPONSE_SENT",
    "RESPONSE_SEND_ERROR",
    "CACHED",
    "FREE",
};
static_assert(sizeof STATE_NAMES / sizeof *STATE_NAMES == FREE + 1);

const char *tavHttpContextStateToString(TavHttpContextState state) noexcept {
    return static_cast<unsigned>(state) <= FREE ? STATE_NAMES[state] : "UNKNOWN";
}

// Every other report, TARGET_SELECTED included, ends the request for the selector's count.
static bool staysOutstanding(TavHttpContextState state) noexcept {
    return state == CONNECT_SUCCESS || state == REQUEST_SENDING || state == REQUEST_SENT;
}

static bool givesUpEndpoint(TavHttpContextState state) noexcept {
    return state == CONNECT_FAILURE || state == REQUEST_SEND_ERROR || state == RESPONSE_READ_ERROR || state == RESPONSE_TIMEOUT;
}

// Returns the time at which the response came or timed out, 0 when there is none to account.
static TavTime takeServiceTime(TavHttpContext *ctx, TavHttpContextState state) noexcept {
    if (state == REQUEST_SENDING || (state == REQUEST_SENT && ctx->serviceTimeStart == TAV_NO_VALUE))
        ctx->serviceTimeStart = tavGetCurrentTime();
    if (state != RESPONSE_ARRIVED && state != RESPONSE_TIMEOUT) return 0;
    if (ctx->serviceTimeStart == 0) return 0;
    TavTime now = tavGetCurrentTime();
    ctx->serviceTime = now - ctx->serviceTimeStart;
    return now;
}

static void endOutstanding(TavHttpContext *ctx, TavTime now, Boolean timeout) noexcept {
    if (!ctx->outstandingRequestCountIsIncremented) return;
    tsServerApplicationDecrementOutstandingRequestCount(ctx, ctx->targetServerApplication, now, ctx->serviceTime, timeout);
    ctx->outstandingRequestCountIsIncremented = FALSE;
}

static void logConnectFailure(TavHttpContext *ctx, const char *serverName, const char *msg) noexcept {
    if (!trContextLogEnabled(ctx->trContext, ctx->connectFailure)) return;
    if (trRecordGetFormat(ctx->connectFailure)) // the catalogue's own text takes the same two
        trContextLog(ctx->trContext, ctx->connectFailure, serverName, msg);
    else
        trContextDebug(ctx->trContext, ctx->connectFailure, "connect failure to server '%s': %s\n", serverName, msg);
}

static void reportConnect(TavHttpContext *ctx, TavHttpContextState state, const char *msg) noexcept {
    if (state != CONNECT_FAILURE && state != CONNECT_SUCCESS) return;
    TargetServer *server = tsEndPointGetServer(ctx->targetEndpoint);
    if (!server) return;
    if (state == CONNECT_SUCCESS) {
        tsServerConnectSuccess(server);
        return;
    }
    tsServerConnectFailure(server);
    logConnectFailure(ctx, tavOrNull(tsServerGetName(server)), msg ? msg : "");
}

// Connect failures deliberately do not count against the endpoints that one request may try.
static void giveUpEndpoint(TavHttpContext *ctx, TavHttpContextState state) noexcept {
    if (state == RESPONSE_TIMEOUT) ctx->responseTimeouts++;
    if (!ctx->performedLoadBalancing)
        tavHttpContextSetAffinityBreakReason(ctx, state == CONNECT_FAILURE ? "connect failure" : TS_FAILED_BEFORE);
    tavListAddTail(ctx->failedServerApps, ctx->targetServerApplication);
    tsTargetInfoDecrementRefCnt(ctx);
    if (state != CONNECT_FAILURE) ctx->failureCount++;
}

static void accountProgress(TavHttpContext *ctx, TavHttpContextState state, const char *msg) noexcept {
    TavTime now = takeServiceTime(ctx, state);
    if (state == RESPONSE_ARRIVED) tavHttpContextPerformResponseProcessing(ctx);
    if (!staysOutstanding(state)) endOutstanding(ctx, now, state == RESPONSE_TIMEOUT);
    reportConnect(ctx, state, msg);
    if (givesUpEndpoint(state)) giveUpEndpoint(ctx, state);
}

void tavHttpContextSetState(TavHttpContext *ctx, TavHttpContextState state, int subState, char *msg) noexcept {
    if (!ctx) return;
    TR_DEBUG(ctx->trContext, ctx->debugStateChange, "tavHttpContextSetState: ctx=%p, state=%s, subState=%d, msg='%s'\n",
             static_cast<void *>(ctx), tavHttpContextStateToString(state), subState, msg ? msg : "");
    if (ctx->targetEndpoint && !ctx->trial) accountProgress(ctx, state, msg);
    ctx->state.store(state, std::memory_order_release);
    ctx->subState = subState;
    ctx->stateMsg = msg;
}

TavHttpContextState tavHttpContextGetState(TavHttpContext *ctx) noexcept { return ctx ? ctx->state.load(std::memory_order_acquire) : FREE; }
int tavHttpContextGetSubState(TavHttpContext *ctx) noexcept { return ctx ? ctx->subState : 0; }
const char *tavHttpContextGetMessage(TavHttpContext *ctx) noexcept { return ctx ? ctx->stateMsg : nullptr; }
int tavHttpContextGetNumOfResponseTimeouts(TavHttpContext *ctx) noexcept { return ctx ? ctx->responseTimeouts : 0; }

int tavHttpContextCancelRequest(TavHttpContext *ctx) noexcept {
    if (!ctx) return 1;
    TavHttpContextState expected = REQUEST_SUSPENDED;
    if (!ctx->state.compare_exchange_strong(expected, REQUEST_CANCELED, std::memory_order_acq_rel)) return 1;
    return hcCall(ctx, hcHost(ctx).request.resume, -1) == 0 ? 0 : -1;
}
