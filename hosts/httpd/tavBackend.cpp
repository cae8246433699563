// The proxy worker of an endpoint: mod_proxy's pool of connections to it.
//
// The library shares one host object among all endpoints of one name and deletes it when no snapshot and no request refers to it any more,
// so that a worker lives as long as somebody can forward through it. Creation and deletion come under the library's locks, from any thread.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "ServerCounts.h"
#include "modProxy.h"
#include "tavModule.h"

struct EnvTargetEndpoint {
    apr_pool_t *pool;
    const char *base; // "http://host:port"
    proxy_worker *worker;
    tavhost::ServerCount *count;         // of its server; may be null
    std::atomic<apr_time_t> failedAt{0}; // when a failure to connect was last told to the library
};

namespace modtav {

namespace {

server_rec *workerServer = nullptr;

proxy_server_conf *proxyConf(server_rec *server) {
    return static_cast<proxy_server_conf *>(ap_get_module_config(server->module_config, &proxy_module));
}

const char *baseOf(apr_pool_t *pool, TavTargetEndpoint *endpoint) {
    const char *host = tavTargetEndpointGetHostName(endpoint);
    const bool literal = host && strchr(host, ':') && *host != '[';
    return apr_psprintf(pool, literal ? "%s://[%s]:%d" : "%s://%s:%d", tavTargetEndpointGetProtocol(endpoint), host ? host : "",
                        tavTargetEndpointGetPort(endpoint));
}

// Other requests read them at the same time.
void store(apr_interval_time_t &timeout, int seconds) {
    const std::atomic_ref<apr_interval_time_t> shared(timeout);
    const apr_interval_time_t wanted = apr_time_from_sec(seconds);
    if (seconds > 0 && shared.load(std::memory_order_relaxed) != wanted) shared.store(wanted, std::memory_order_relaxed);
}

// A body is sent when the server has said that it wants it; mod_proxy calls that a ping.
void followWaitForContinue(proxy_worker_shared *worker, TavTargetEndpoint *endpoint, int ioTimeout) {
    const unsigned wanted = tavTargetEndpointGetWaitForContinue(endpoint) ? 1 : 0;
    if (wanted) store(worker->ping_timeout, ioTimeout);
    if (worker->ping_timeout_set != wanted) worker->ping_timeout_set = wanted; // its neighbours in the word never change
}

// The server's properties change without its endpoints being made anew.
void followProperties(proxy_worker_shared *worker, TavTargetEndpoint *endpoint) {
    const int ioTimeout = tavTargetEndpointGetIOTimeout(endpoint);
    store(worker->conn_timeout, tavTargetEndpointGetConnectTimeout(endpoint));
    store(worker->timeout, ioTimeout);
    followWaitForContinue(worker, endpoint, ioTimeout);
}

void setTimeouts(proxy_worker_shared *worker, TavTargetEndpoint *endpoint) {
    worker->conn_timeout = worker->timeout = workerServer->timeout;
    worker->conn_timeout_set = worker->timeout_set = 1;
    followProperties(worker, endpoint);
    if (const int idle = tavTargetEndpointGetPersistentTimeout(endpoint); idle > 0) worker->ttl = apr_time_from_sec(idle);
}

// The library marks endpoints that fail and tries them again in its own time.
void leaveFailuresToTheLibrary(proxy_worker_shared *worker) {
    worker->status |= PROXY_WORKER_IGNORE_ERRORS;
    worker->retry = 0;
    worker->retry_set = 1;
}

apr_status_t freeShared(void *data) {
    auto *worker = static_cast<proxy_worker *>(data);
    if (worker->s && worker->s->was_malloced) free(worker->s);
    worker->s = nullptr;
    return APR_SUCCESS;
}

// Null when mod_proxy refuses the endpoint.
proxy_worker *createWorker(apr_pool_t *pool, const char *base, TavTargetEndpoint *endpoint) {
    auto *conf = static_cast<proxy_server_conf *>(apr_pmemdup(pool, proxyConf(workerServer), sizeof(proxy_server_conf)));
    conf->workers = apr_array_make(pool, 1, sizeof(proxy_worker)); // the server's own workers are fixed when it starts
    proxy_worker *worker = nullptr;
    if (const char *fault = ap_proxy_define_worker(pool, &worker, nullptr, conf, base, 1)) {
        ap_log_error(APLOG_MARK, APLOG_ERR, 0, workerServer, "%s: %s", base, fault);
        return nullptr;
    }
    apr_pool_cleanup_register(pool, worker, freeShared, apr_pool_cleanup_null);
    setTimeouts(worker->s, endpoint);
    leaveFailuresToTheLibrary(worker->s);
    apr_cpystrn(worker->s->upgrade, UPGRADE, sizeof worker->s->upgrade);
    return ap_proxy_initialize_worker(worker, workerServer, pool) == APR_SUCCESS ? worker : nullptr;
}

EnvTargetEndpoint *createEndpoint(TavTargetEndpoint *endpoint) {
    apr_pool_t *pool = nullptr;
    if (apr_pool_create(&pool, nullptr) != APR_SUCCESS) return nullptr;
    apr_pool_tag(pool, "tav endpoint");
    const char *base = baseOf(pool, endpoint);
    proxy_worker *worker = createWorker(pool, base, endpoint);
    if (!worker) {
        apr_pool_destroy(pool);
        return nullptr;
    }
    tavhost::ServerCount *count = tavhost::countOf(tavTargetEndpointGetServerName(endpoint));
    return new (apr_palloc(pool, sizeof(EnvTargetEndpoint))) EnvTargetEndpoint{pool, base, worker, count, {}};
}

int deleteEndpoint(EnvTargetEndpoint *backend) {
    if (backend) apr_pool_destroy(backend->pool);
    return 0;
}

} // namespace

void backendServer(server_rec *server) { workerServer = server; }

void setEndpointCallBacks(EnvCallBacks &env) { env.targetEndpoint = {createEndpoint, deleteEndpoint}; }

bool isNewFailure(TavTargetEndpoint *endpoint, apr_time_t chosen) {
    EnvTargetEndpoint *backend = tavTargetEndpointGetEnvTargetEndpoint(endpoint);
    if (!backend) return true;
    apr_time_t before = backend->failedAt;
    return before < chosen && backend->failedAt.compare_exchange_strong(before, apr_time_now());
}

const char *urlOf(apr_pool_t *pool, TavTargetEndpoint *endpoint) {
    const EnvTargetEndpoint *backend = tavTargetEndpointGetEnvTargetEndpoint(endpoint);
    return backend ? apr_pstrdup(pool, backend->base) : baseOf(pool, endpoint);
}

int proxyTo(request_rec *r, TavTargetEndpoint *endpoint) {
    const EnvTargetEndpoint *backend = tavTargetEndpointGetEnvTargetEndpoint(endpoint);
    if (!backend) return HTTP_SERVICE_UNAVAILABLE;
    followProperties(backend->worker->s, endpoint);
    r->proxyreq = PROXYREQ_REVERSE;
    const int canonical = proxy_run_canon_handler(r, apr_pstrcat(r->pool, backend->base, r->uri, nullptr));
    if (canonical != OK) return canonical == DECLINED ? HTTP_INTERNAL_SERVER_ERROR : canonical;
    char *url = r->filename + strlen("proxy:");
    const int status = proxy_run_scheme_handler(r, backend->worker, proxyConf(r->server), url, nullptr, 0);
    if (backend->count && requestOf(r)->phase == Phase::Answered) backend->count->requests.fetch_add(1, std::memory_order_relaxed);
    if (status != DECLINED) return status;
    ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, r, "no module forwards to %s: load mod_proxy_http", backend->base);
    return HTTP_INTERNAL_SERVER_ERROR;
}

} // namespace modtav
