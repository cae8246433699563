// A decided request on its way to its endpoint, and to the next one when that fails.
//
// mod_proxy forwards; where it is with the request is seen from these places: a filter of the back end's connection (connected, sending),
// its hook before the response is read (sent), and a filter of the response (arrived, so that the library can change its headers), or of
// what the back end answers to an upgrade, which passes by that one. All of it runs on the thread of the request.
#include <mod_core.h>

#include <cstring>

#include "modProxy.h"
#include "tavModule.h"

namespace modtav {

namespace {

thread_local EnvHttpContext *forwarding = nullptr; // the request that this thread hands to mod_proxy
ap_filter_rec_t *sendFilter = nullptr, *responseFilter = nullptr, *upgradeFilter = nullptr;

// ---- progress ----

void connected(EnvHttpContext *env) {
    if (env->phase != Phase::Connecting) return;
    env->phase = Phase::Sending;
    env->report(CONNECT_SUCCESS);
    env->report(REQUEST_SENDING);
}

void answered(EnvHttpContext *env) {
    env->phase = Phase::Answered;
    env->r->connection->keepalives = env->keepalives;
    env->report(RESPONSE_ARRIVED);
    env->report(RESPONSE_SENDING);
}

bool handshakeFailed(const conn_rec *origin) {
    const char *outcome = apr_table_get(origin->notes, "SSL_connect_rv");
    return outcome && strcmp(outcome, "err") == 0;
}

// With TLS the first data brings the handshake about, below this filter: until that is done there is no connection.
apr_status_t onSend(ap_filter_t *filter, apr_bucket_brigade *brigade) {
    EnvHttpContext *env = forwarding;
    if (!env || env->phase != Phase::Connecting) return ap_pass_brigade(filter->next, brigade);
    env->connectionReused = filter->c->keepalives > 0;
    sendPrivateHeaders(env, brigade);
    if (!env->tls) connected(env);
    const apr_status_t status = ap_pass_brigade(filter->next, brigade);
    if (!handshakeFailed(filter->c)) connected(env);
    return status;
}

apr_status_t onResponse(ap_filter_t *filter, apr_bucket_brigade *brigade) {
    auto *env = static_cast<EnvHttpContext *>(filter->ctx);
    if (env->phase == Phase::Waiting) answered(env);
    ap_remove_output_filter(filter);
    return ap_pass_brigade(filter->next, brigade);
}

// ---- upgraded connections ----

void setTimeout(conn_rec *c, int seconds) {
    if (apr_socket_t *socket = ap_get_conn_socket(c); socket && seconds > 0) apr_socket_timeout_set(socket, apr_time_from_sec(seconds));
}

bool isEmptyLine(apr_bucket_brigade *brigade) {
    char line[3];
    apr_size_t length = sizeof line;
    if (apr_brigade_flatten(brigade, line, &length) != APR_SUCCESS) return false;
    return (length == 1 && line[0] == '\n') || (length == 2 && line[0] == '\r' && line[1] == '\n');
}

// At the end of the header the library can still add its own. mod_proxy ends the tunnel when both sides have been silent for the longer of
// the two connections' time-outs.
void switchedProtocols(EnvHttpContext *env, conn_rec *origin) {
    const int idle = tavTargetEndpointGetWsIdleTimeout(env->endpoint);
    answered(env);
    env->upgraded = true;
    setTimeout(origin, idle);
    if (!env->r->connection->master) setTimeout(env->r->connection, idle);
}

apr_status_t onUpgradeAnswer(ap_filter_t *filter, apr_bucket_brigade *brigade, ap_input_mode_t mode, apr_read_type_e block,
                             apr_off_t bytes) {
    const apr_status_t status = ap_get_brigade(filter->next, brigade, mode, block, bytes);
    auto *env = static_cast<EnvHttpContext *>(filter->ctx);
    if (status == APR_SUCCESS && mode == AP_MODE_GETLINE && env->phase == Phase::Waiting && env->r->status == HTTP_SWITCHING_PROTOCOLS &&
        isEmptyLine(brigade))
        switchedProtocols(env, filter->c);
    return status;
}

// ---- failures ----

// The client's body cannot be read: a filter has answered already, or the status says how.
bool clientFault(int status) { return status == AP_FILTER_ERROR || status == HTTP_NOT_IMPLEMENTED || (status >= 400 && status < 500); }

bool timedOut(const request_rec *r, int status) { return status == HTTP_GATEWAY_TIME_OUT || apr_table_get(r->notes, "proxy_timedout"); }

TavHttpContextState failureState(const EnvHttpContext *env, int status) {
    if (env->phase == Phase::Connecting) return CONNECT_FAILURE;
    if (env->phase == Phase::Sending) return REQUEST_SEND_ERROR;
    return timedOut(env->r, status) ? RESPONSE_TIMEOUT : RESPONSE_READ_ERROR;
}

// Methods that may be sent twice with the effect of once (RFC 9110, 9.2.2), and whose body is not gone.
bool repeatable(request_rec *r) {
    switch (r->method_number) {
        case M_GET:
        case M_OPTIONS:
        case M_PUT:
        case M_DELETE:
        case M_TRACE:
            return !ap_request_has_body(r);
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

// A kept connection can end while the request is on its way. That says nothing about the endpoint, which is asked once more.
bool keptConnectionEnded(const EnvHttpContext *env, int status) {
    return env->connectionReused && (env->phase == Phase::Sending || env->phase == Phase::Waiting) && !clientFault(status) &&
           !timedOut(env->r, status) && !env->r->connection->aborted && repeatable(env->r);
}

// What a failed try left in the request.
void forgetFailure(EnvHttpContext *env) {
    request_rec *r = env->r;
    r->status = HTTP_OK;
    r->status_line = nullptr;
    r->headers_out = env->headersOut;
    for (const char *note : {"error-notes", "verbose-error-to", "proxy_timedout", "proxy-status"}) apr_table_unset(r->notes, note);
}

// ---- one endpoint ----

void noteEndpoint(EnvHttpContext *env, TavTargetEndpoint *endpoint) {
    request_rec *r = env->r;
    const char *protocol = tavTargetEndpointGetProtocol(endpoint);
    env->tries++;
    env->endpoint = endpoint;
    env->tls = strcmp(protocol, "https") == 0;
    const auto put = env->tries == 1 && !r->prev ? apr_table_addn : apr_table_setn;
    put(r->subprocess_env, "TAV_SERVER", apr_pstrdup(r->pool, tavTargetEndpointGetServerName(endpoint)));
    put(r->subprocess_env, "TAV_ENDPOINT", urlOf(r->pool, endpoint));
}

// mod_proxy would close a kept connection of the client without an answer when a back end fails; here another endpoint can answer. For
// that it takes the request for the connection's first until the answer comes.
int forwardOnce(EnvHttpContext *env) {
    conn_rec *client = env->r->connection;
    env->keepalives = client->keepalives;
    env->phase = Phase::Connecting;
    env->connectionReused = false;
    EnvHttpContext *outer = forwarding; // whose answer includes this one's
    forwarding = env;
    client->keepalives = 0;
    const int status = proxyTo(env->r, env->endpoint);
    if (env->phase != Phase::Answered) client->keepalives = env->keepalives;
    forwarding = outer;
    return status;
}

// TRUE when the endpoint answered, or there is nobody to answer to. With ProxyErrorOverride the answer is replaced by a page of the
// server's own.
bool hasAnswer(EnvHttpContext *env, int status) {
    if (env->phase == Phase::Waiting && apr_table_get(env->r->notes, "proxy-error-override")) answered(env);
    return env->phase == Phase::Answered || status == OK || status == DONE;
}

// TRUE when the request has its answer, whole or not.
bool forward(EnvHttpContext *env, TavTargetEndpoint *endpoint, int *status) {
    request_rec *r = env->r;
    noteEndpoint(env, endpoint);
    env->headersOut = r->headers_out;
    env->began = apr_time_now();
    *status = forwardOnce(env);
    if (hasAnswer(env, *status)) return true;
    if (!keptConnectionEnded(env, *status)) return false;
    forgetFailure(env);
    *status = forwardOnce(env);
    return hasAnswer(env, *status);
}

// An answer that broke off; the client sees that by itself.
void noteTornAnswer(EnvHttpContext *env, int status) {
    if (env->phase != Phase::Answered || status != DONE || env->upgraded || env->r->connection->aborted) return;
    env->report(RESPONSE_READ_ERROR);
    env->phase = Phase::Idle;
}

// TRUE when another endpoint is to be tried. The library avoids a server ten times longer with each failure to connect; requests that were
// on their way together fail together, which is one failure.
bool failed(EnvHttpContext *env, int status, int timeoutRetries) {
    if (clientFault(status)) {
        env->report(RESPONSE_SEND_ERROR);
        return false;
    }
    const TavHttpContextState state = failureState(env, status);
    // The library avoids a server that cannot be connected to, but keeps sending a session to one that fails otherwise. This request's
    // session is hidden from it, so that it chooses among the servers that have not failed; other requests of the server are not concerned.
    if (state != CONNECT_FAILURE) env->sessionHidden = true;
    env->report(state == CONNECT_FAILURE && !isNewFailure(env->endpoint, env->began) ? REQUEST_SEND_ERROR : state);
    env->phase = Phase::Idle;
    env->endpoint = nullptr;
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

// ---- what mod_proxy's own handler, which is gone around, refuses ----

int traceRefused(request_rec *r) {
    const auto *core = static_cast<core_server_config *>(ap_get_core_module_config(r->server->module_config));
    if (core->trace_enable == AP_TRACE_DISABLE) return HTTP_METHOD_NOT_ALLOWED;
    return core->trace_enable != AP_TRACE_EXTENDED && ap_request_has_body(r) ? HTTP_REQUEST_ENTITY_TOO_LARGE : DECLINED;
}

// The last proxy that a request may pass answers it itself.
int lastProxy(request_rec *r) {
    switch (r->method_number) {
        case M_TRACE:
            return ap_send_http_trace(r);
        case M_OPTIONS:
            return ap_send_http_options(r);
        default:
            return HTTP_BAD_REQUEST;
    }
}

int refuseToForward(request_rec *r) {
    if (r->method_number == M_TRACE) {
        if (const int refused = traceRefused(r); refused != DECLINED) return refused;
    }
    const char *text = apr_table_get(r->headers_in, "Max-Forwards");
    if (!text) return DECLINED;
    char *end = nullptr;
    const apr_int64_t left = apr_strtoi64(text, &end, 10);
    if (left < 0 || left == INT64_MAX || end == text || *end) return HTTP_BAD_REQUEST;
    if (left == 0) return lastProxy(r);
    apr_table_setn(r->headers_in, "Max-Forwards", apr_psprintf(r->pool, "%" APR_INT64_T_FMT, left - 1));
    return DECLINED;
}

} // namespace

int handleRequest(request_rec *r) {
    EnvHttpContext *env = requestOf(r);
    if (!env || !env->ctx || !r->handler || strcmp(r->handler, HANDLER) != 0) return DECLINED;
    if (const int refused = refuseToForward(r); refused != DECLINED) return refused;
    ap_add_output_filter_handle(responseFilter, env, r, r->connection);
    for (;; forgetFailure(env)) {
        TavTargetEndpoint *endpoint = tavHttpContextGetTargetEndpoint(env->ctx);
        if (!endpoint) return answerWithoutEndpoint(env);
        const int timeoutRetries = tavTargetEndpointGetIOTimeoutRetry(endpoint);
        int status = OK;
        if (forward(env, endpoint, &status)) {
            noteTornAnswer(env, status);
            return status;
        }
        const bool late = timedOut(r, status);
        if (!failed(env, status, timeoutRetries)) return late ? HTTP_GATEWAY_TIME_OUT : status;
    }
}

int proxyCreateRequest(request_rec *r, request_rec *backend) {
    EnvHttpContext *env = requestOf(r);
    if (!env || env != forwarding) return DECLINED;
    connected(env);
    env->phase = Phase::Waiting;
    env->report(REQUEST_SENT);
    const char *protocol = apr_table_get(r->headers_in, "Upgrade");
    const bool upgrade = protocol && strcasecmp(protocol, UPGRADE) == 0;
    if (upgrade) ap_add_input_filter_handle(upgradeFilter, env, backend, backend->connection);
    // A kept connection has the time-out of an earlier request.
    setTimeout(backend->connection,
               upgrade ? tavTargetEndpointGetWsIOTimeout(env->endpoint) : tavTargetEndpointGetIOTimeout(env->endpoint));
    return DECLINED; // others may have something to add
}

int preConnection(conn_rec *c, void *) {
    if (c->outgoing && forwarding) ap_add_output_filter_handle(sendFilter, nullptr, nullptr, c);
    return OK;
}

void registerFilters() {
    sendFilter = ap_register_output_filter("TAV_SEND", onSend, nullptr, static_cast<ap_filter_type>(AP_FTYPE_CONNECTION));
    upgradeFilter = ap_register_input_filter("TAV_UPGRADE", onUpgradeAnswer, nullptr, AP_FTYPE_PROTOCOL);
    responseFilter = ap_register_output_filter("TAV_RESPONSE", onResponse, nullptr, AP_FTYPE_CONTENT_SET);
}

} // namespace modtav
