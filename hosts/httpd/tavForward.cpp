// A decided request on its way to its endpoint, and to the next one when that fails.
//
// mod_proxy forwards; where it is with the request is seen from three places: a filter of the back end's connection (connected, sending),
// its hook before the response is read (sent), and a filter of the response (arrived, so that the library can change its headers). All of
// it runs on the thread of the request.
#include <cstring>

#include "tavModule.h"

namespace modtav {

namespace {

thread_local EnvHttpContext *forwarding = nullptr; // the request that this thread hands to mod_proxy
ap_filter_rec_t *sendFilter = nullptr, *responseFilter = nullptr;

// ---- progress ----

void connected(EnvHttpContext *env) {
    if (env->phase != Phase::Connecting) return;
    env->phase = Phase::Sending;
    env->report(CONNECT_SUCCESS);
    env->report(REQUEST_SENDING);
}

apr_status_t onSend(ap_filter_t *filter, apr_bucket_brigade *brigade) {
    if (forwarding && forwarding->phase == Phase::Connecting) sendPrivateHeaders(forwarding, brigade);
    if (forwarding) connected(forwarding);
    return ap_pass_brigade(filter->next, brigade);
}

apr_status_t onResponse(ap_filter_t *filter, apr_bucket_brigade *brigade) {
    auto *env = static_cast<EnvHttpContext *>(filter->ctx);
    if (env->phase == Phase::Waiting) {
        env->phase = Phase::Answered;
        env->report(RESPONSE_ARRIVED);
        env->report(RESPONSE_SENDING);
    }
    ap_remove_output_filter(filter);
    return ap_pass_brigade(filter->next, brigade);
}

// ---- failures ----

bool clientFault(int status) { return status >= 400 && status < 500; }

TavHttpContextState failureState(const EnvHttpContext *env, int status) {
    if (env->phase == Phase::Connecting) return CONNECT_FAILURE;
    if (env->phase == Phase::Sending) return REQUEST_SEND_ERROR;
    return status == HTTP_GATEWAY_TIME_OUT ? RESPONSE_TIMEOUT : RESPONSE_READ_ERROR;
}

bool hasBody(const request_rec *r) {
    const char *length = apr_table_get(r->headers_in, "Content-Length");
    return apr_table_get(r->headers_in, "Transfer-Encoding") || (length && strcmp(length, "0") != 0);
}

// Methods that may be sent twice with the effect of once (RFC 9110, 9.2.2), and whose body is not gone.
bool repeatable(const request_rec *r) {
    switch (r->method_number) {
        case M_GET:
        case M_OPTIONS:
        case M_PUT:
        case M_DELETE:
        case M_TRACE:
            return !hasBody(r);
        default:
            return false;
    }
}

// After a failure in `state` and so many time-outs of this request: is another endpoint tried?
bool triesAnother(const EnvHttpContext *env, TavHttpContextState state, int timeoutRetries) {
    if (env->r->connection->aborted) return false;
    if (state == CONNECT_FAILURE) return true; // what was read of the body is kept
    if (!repeatable(env->r)) return false;
    return state != RESPONSE_TIMEOUT || timeoutRetries < 0 || tavHttpContextGetNumOfResponseTimeouts(env->ctx) <= timeoutRetries;
}

// What a failed try left in the request.
void forgetFailure(request_rec *r) {
    r->status = HTTP_OK;
    r->status_line = nullptr;
    apr_table_unset(r->notes, "error-notes");
    apr_table_unset(r->notes, "verbose-error-to");
}

// ---- one endpoint ----

void noteEndpoint(EnvHttpContext *env, TavTargetEndpoint *endpoint) {
    request_rec *r = env->r;
    env->tries++;
    apr_table_setn(r->subprocess_env, "TAV_SERVER", apr_pstrdup(r->pool, tavTargetEndpointGetServerName(endpoint)));
    apr_table_setn(r->subprocess_env, "TAV_ENDPOINT",
                   apr_psprintf(r->pool, "%s://%s:%d", tavTargetEndpointGetProtocol(endpoint), tavTargetEndpointGetHostName(endpoint),
                                tavTargetEndpointGetPort(endpoint)));
}

// mod_proxy would close a kept connection of the client without an answer when a back end fails; here another endpoint can answer.
int forwardOnce(EnvHttpContext *env, TavTargetEndpoint *endpoint) {
    conn_rec *client = env->r->connection;
    const int keepalives = client->keepalives;
    env->phase = Phase::Connecting;
    forwarding = env;
    client->keepalives = 0;
    const int status = proxyTo(env->r, endpoint);
    client->keepalives = keepalives;
    forwarding = nullptr;
    return status;
}

// TRUE when another endpoint is to be tried.
bool failed(EnvHttpContext *env, int status, int timeoutRetries) {
    if (clientFault(status)) {
        env->report(RESPONSE_SEND_ERROR);
        return false;
    }
    const TavHttpContextState state = failureState(env, status);
    env->report(state);
    env->phase = Phase::Idle;
    ap_log_rerror(APLOG_MARK, APLOG_INFO, 0, env->r, "%s: %s", apr_table_get(env->r->subprocess_env, "TAV_ENDPOINT"),
                  tavHttpContextStateToString(state));
    return triesAnother(env, state, timeoutRetries);
}

// ---- answers without an endpoint ----

int rejectRequest(EnvHttpContext *env) {
    const char *message = tavHttpContextGetErrorMessage(env->ctx);
    ap_log_rerror(APLOG_MARK, APLOG_INFO, 0, env->r, "rejected: %s", message ? message : "by a rule");
    const int code = tavHttpContextGetErrorCode(env->ctx);
    return code >= 400 && code < 600 ? code : HTTP_SERVICE_UNAVAILABLE;
}

int redirectRequest(EnvHttpContext *env) {
    apr_table_set(env->r->headers_out, "Location", tavHttpContextGetRedirectURL(env->ctx));
    return HTTP_MOVED_TEMPORARILY;
}

int answerWithoutEndpoint(EnvHttpContext *env) {
    return tavHttpContextGetAction(env->ctx) == REDIRECT && tavHttpContextGetRedirectURL(env->ctx) ? redirectRequest(env)
                                                                                                   : rejectRequest(env);
}

} // namespace

int handleRequest(request_rec *r) {
    EnvHttpContext *env = requestOf(r);
    if (!env || !env->ctx || !r->handler || strcmp(r->handler, HANDLER) != 0) return DECLINED;
    ap_add_output_filter_handle(responseFilter, env, r, r->connection);
    for (;; forgetFailure(r)) {
        TavTargetEndpoint *endpoint = tavHttpContextGetTargetEndpoint(env->ctx);
        if (!endpoint) return answerWithoutEndpoint(env);
        noteEndpoint(env, endpoint);
        const int timeoutRetries = tavTargetEndpointGetIOTimeoutRetry(endpoint);
        const int status = forwardOnce(env, endpoint);
        if (env->phase == Phase::Answered || status == OK || status == DONE) return status;
        if (!failed(env, status, timeoutRetries)) return status;
    }
}

int proxyCreateRequest(request_rec *r, request_rec *) {
    EnvHttpContext *env = requestOf(r);
    if (!env || env != forwarding) return DECLINED;
    connected(env);
    env->phase = Phase::Waiting;
    env->report(REQUEST_SENT);
    return DECLINED; // others may have something to add
}

int preConnection(conn_rec *c, void *) {
    if (c->outgoing && forwarding) ap_add_output_filter_handle(sendFilter, nullptr, nullptr, c);
    return OK;
}

void registerFilters() {
    sendFilter = ap_register_output_filter("TAV_SEND", onSend, nullptr, static_cast<ap_filter_type>(AP_FTYPE_CONNECTION));
    responseFilter = ap_register_output_filter("TAV_RESPONSE", onResponse, nullptr, AP_FTYPE_CONTENT_SET);
}

} // namespace modtav
