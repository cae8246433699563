/*
 * One request's way through the library.
 *
 *   ctx = tavHttpContextObtain(tav, request);            NULL: serve the request without the library
 *   if (tavHttpContextShouldHandle(ctx) == 1)
 *       switch (tavHttpContextGetAction(ctx)) ...          PERMIT, REJECT, REDIRECT
 *   endpoint = tavHttpContextGetTargetEndpoint(ctx);     forward, and report each step with tavHttpContextSetState();
 *                                                          after a failure ask again for another endpoint
 *   tavHttpContextRelease(ctx);
 *
 * A context is used by one thread at a time (tavHttpContextCancelRequest() excepted) and pins the configuration that was current when
 * it was obtained. A NULL context is tolerated everywhere.
 */
#ifndef TAV_CONTEXT_H
#define TAV_CONTEXT_H

#include "types.h"

struct json_t;

TAV_BEGIN_DECLS

typedef enum TavHttpContextState {
    INITIAL = 0,
    OBTAINED = 1,
    REQUEST_ARRIVED = 2,
    TAV_REQUEST_PROCESSING = 3,
    WEB_MODULE_SELECTED = 4,
    REQUEST_SUSPENDED = 5,
    REQUEST_CANCELED = 6,
    TARGET_SELECTED = 7,
    CONNECT_SUCCESS = 8,
    CONNECT_FAILURE = 9,
    REQUEST_SENDING = 10,
    REQUEST_SENT = 11,
    REQUEST_SEND_ERROR = 12,
    RESPONSE_ARRIVED = 13,
    RESPONSE_TIMEOUT = 14,
    RESPONSE_READ_ERROR = 15,
    RESPONSE_PROCESSING = 16,
    RESPONSE_PROCESSED = 17,
    RESPONSE_SENDING = 18,
    RESPONSE_SENT = 19,
    RESPONSE_SEND_ERROR = 20,
    CACHED = 21,
    FREE = 22
} TavHttpContextState;

/* The enumerator's name; any other value "UNKNOWN". */
TAV_API const char *tavHttpContextStateToString(TavHttpContextState state) TAV_NOEXCEPT;

/* ---- life ---- */

/* Starts a request. Returns new (tavHttpContextRelease()); NULL when the instance cannot route or without memory. */
TAV_API TavHttpContext *tavHttpContextObtain(Tav *tav, EnvHttpContext *envHttpContext) TAV_NOEXCEPT;
/*
 * Starts a request that is only tried: it is decided as any other, and nothing but the answer comes of it. It counts in no load figure,
 * limit or turn of the load balancing, does not wait for a rollout (its trace tells that it would), and what is reported of it is not
 * accounted. `traceSpec` (borrowed for the call; see tavSetTraceSpec()) is what it traces, whatever the configuration asks for; NULL: as
 * any other. Returns new (tavHttpContextRelease()); NULL as above, or when `traceSpec` does not parse.
 */
TAV_API TavHttpContext *tavHttpContextObtainTrial(Tav *tav, EnvHttpContext *envHttpContext, const char *traceSpec) TAV_NOEXCEPT;
/* Ends the request. Texts and endpoints that the context gave are invalid afterwards. */
TAV_API void tavHttpContextRelease(TavHttpContext *ctx) TAV_NOEXCEPT;

/* ---- decisions ---- */

/* Maps the request, once. 1: the library handles it; 0: no application matches; -1: host or path are missing. */
TAV_API int tavHttpContextShouldHandle(TavHttpContext *ctx) TAV_NOEXCEPT;
/* The edition that serves the request (may be empty), or NULL when a rule rejected or redirected it or it is not handled (the action is
 * then REJECT with 404 for "not handled", 500 for an error). */
TAV_API const char *tavHttpContextGetApplicationEditionName(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API TavAction tavHttpContextGetAction(TavHttpContext *ctx) TAV_NOEXCEPT;         /* REJECT for NULL */
TAV_API int tavHttpContextGetErrorCode(TavHttpContext *ctx) TAV_NOEXCEPT;            /* HTTP status; 500 for NULL */
TAV_API const char *tavHttpContextGetErrorMessage(TavHttpContext *ctx) TAV_NOEXCEPT; /* why it was rejected, or NULL */
TAV_API const char *tavHttpContextGetRedirectURL(TavHttpContext *ctx) TAV_NOEXCEPT;
/*
 * The endpoint to forward to; the same one until a failure state is reported. NULL: look at the action and the error code.
 * May wait up to MaxSecondsToWaitDuringAtomicRollout while an edition is rolled out. Borrowed until the next failure or the release.
 */
TAV_API TavTargetEndpoint *tavHttpContextGetTargetEndpoint(TavHttpContext *ctx) TAV_NOEXCEPT;
/* Waits for a rollout, once per request. The endpoint, or NULL. */
TAV_API TavTargetEndpoint *tavHttpContextWaitForRollout(TavHttpContext *ctx) TAV_NOEXCEPT;
/* Cancels a request in REQUEST_SUSPENDED, from any thread, and resumes it through the host. 0; 1 in any other state; -1 when the host's
 * resume failed. */
TAV_API int tavHttpContextCancelRequest(TavHttpContext *ctx) TAV_NOEXCEPT;

/* ---- progress ---- */

/*
 * Reports how far the request is. `subState` and `msg` (borrowed until the next report) are the host's own detail.
 * RESPONSE_ARRIVED processes the response's private headers and affinity cookies; CONNECT_FAILURE, REQUEST_SEND_ERROR,
 * RESPONSE_READ_ERROR and RESPONSE_TIMEOUT give up the endpoint, so that the next tavHttpContextGetTargetEndpoint() chooses another.
 */
TAV_API void tavHttpContextSetState(TavHttpContext *ctx, TavHttpContextState state, int subState, char *msg) TAV_NOEXCEPT;
TAV_API TavHttpContextState tavHttpContextGetState(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API int tavHttpContextGetSubState(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API const char *tavHttpContextGetMessage(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API int tavHttpContextGetNumOfResponseTimeouts(TavHttpContext *ctx) TAV_NOEXCEPT;
/* Processes the response; RESPONSE_ARRIVED does it by itself. 0, -1 for NULL. */
TAV_API int tavHttpContextPerformResponseProcessing(TavHttpContext *ctx) TAV_NOEXCEPT;

/* ---- what the context knows (texts borrowed until the release) ---- */

TAV_API Tav *tavHttpContextGetTav(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API TrContext *tavHttpContextGetTrContext(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API EnvHttpContext *tavHttpContextGetEnvContext(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API const char *tavHttpContextGetProtocol(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API const char *tavHttpContextGetVirtualHost(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API int tavHttpContextGetVirtualPort(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API const char *tavHttpContextGetPath(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API const char *tavHttpContextGetURL(TavHttpContext *ctx) TAV_NOEXCEPT; /* protocol://host:port/ and the path as it stands */
TAV_API const char *tavHttpContextGetApplicationName(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API const char *tavHttpContextGetModuleName(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API const char *tavHttpContextGetContextRoot(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API const char *tavHttpContextGetMatchedVHostName(TavHttpContext *ctx) TAV_NOEXCEPT; /* the virtual-host group */
TAV_API const char *tavHttpContextGetTargetEndpointServerName(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API Boolean tavHttpContextGetPerformedLoadBalancing(TavHttpContext *ctx) TAV_NOEXCEPT; /* chosen by load, not by affinity */

/* ---- why it was decided so (texts borrowed until the release, whatever the configuration does meanwhile) ---- */

/* The routing rule that matched: the order that its name gives it and its expression. 0 and NULL without one: the application has no
 * rules, none matched, or the request is not mapped. A rule's order may be 0 too: the expression tells. */
TAV_API int tavHttpContextGetRuleOrder(TavHttpContext *ctx) TAV_NOEXCEPT;
TAV_API const char *tavHttpContextGetRuleExpression(TavHttpContext *ctx) TAV_NOEXCEPT;
/*
 * Why the server that the request's session names does not serve it, for example "Server application for cloneId 'c1' is not selectable
 * because server is not started"; one reason a line, no line break at the end, at most 383 bytes. A session id that names no server has a
 * reason as well. NULL: the request names no session, or its server was chosen. Valid until the next failure, choice or the release.
 */
TAV_API const char *tavHttpContextGetAffinityBreakReason(TavHttpContext *ctx) TAV_NOEXCEPT;
/* tavGetConfigVersion() of the configuration that the request pins, as it was when the request was mapped; -1 before that. */
TAV_API long long tavHttpContextGetConfigVersion(TavHttpContext *ctx) TAV_NOEXCEPT;
/*
 * What an explanation needs beyond the request's trace, as JSON (jansson): the web module whose path matched ("module"), its "application"
 * and "workClass" (each null when there is none), the "rules" of that in the order in which they are tried, each with "order",
 * "expression", "action" in words, "parses" and "steps", the lines of trace that one evaluation gives; and "servers", the full names of the
 * servers by the address under which the trace tells of their applications. Returns new (json_decref); NULL without memory.
 */
TAV_API struct json_t *tavHttpContextMappingToJSON(TavHttpContext *ctx) TAV_NOEXCEPT;

/* Overrides the protocol mapping for this request; before tavHttpContextGetTargetEndpoint(). */
TAV_API void tavHttpContextSetSSLMapMode(TavHttpContext *ctx, TavSSLMapMode mode) TAV_NOEXCEPT;
TAV_API TavSSLMapMode tavHttpContextGetSSLMapMode(TavHttpContext *ctx) TAV_NOEXCEPT;

TAV_END_DECLS

#endif
