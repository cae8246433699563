// mod_tav: what its files share.
//
//   mod_tav.cpp          the module record and the hooks
//   tavDirectives.cpp    directives and merged configuration
//   tavProcesses.cpp     the library in the server's processes: tried at the start, running in the children
//   tavDaemon.cpp        the process that feeds the children
//   tavRequest.cpp       a request and its decision, from translation to logging
//   tavCallBacks.cpp     the request as the library sees it
//   tavPrivateHeaders.cpp the headers that the library adds
//   tavForward.cpp       a decided request on its way to its endpoint
//   tavBackend.cpp       the proxy worker of an endpoint
//   tavExplain.cpp       what the library would decide for a request that somebody asks about
//   tavMadeRequest.cpp   that request, made up as httpd makes one
//   tavLog.cpp           the library's messages in the error log
//   tavStatus.cpp        the status of all processes
#ifndef TAV_HOSTS_HTTPD_TAVMODULE_H
#define TAV_HOSTS_HTTPD_TAVMODULE_H

#define AP_HAVE_DESIGNATED_INITIALIZER 1 // typed functions in the table of directives
#include <httpd.h>
// httpd.h must come first
#include <apr_strings.h>
#include <http_config.h>
#include <http_connection.h>
#include <http_core.h>
#include <http_log.h>
#include <http_protocol.h>
#include <http_request.h>
#include <http_vhost.h>
#include <jansson.h>
#include <tav/tav.h>
#include <util_filter.h>

#include "HostOptions.h"

extern "C" __attribute__((visibility("default"))) module AP_MODULE_DECLARE_DATA tav_module;
APLOG_USE_MODULE(tav);

namespace modtav {

inline constexpr const char *HANDLER = "tav-handler";
inline constexpr const char *STATUS_HANDLER = "tav-status";
inline constexpr const char *UPGRADE = "websocket"; // the protocol that a connection may be switched to

// ---- configuration ----

// Of a server or virtual host. Only `enabled` may stand in a virtual host; the rest is the main server's.
struct ServerConfig {
    int enabled = -1; // -1: not said
    tavhost::HostOptions host;
    int startTimeout = 10; // s that a new child waits for its first configuration
};

// An object that lives as long as the pool.
template <typename T, typename... Args>
T *poolNew(apr_pool_t *pool, Args &&...args) {
    T *object = new T(static_cast<Args &&>(args)...);
    apr_pool_cleanup_register(
        pool, object,
        [](void *data) -> apr_status_t {
            delete static_cast<T *>(data);
            return APR_SUCCESS;
        },
        apr_pool_cleanup_null);
    return object;
}

ServerConfig *serverConfig(server_rec *server);
bool anyServerEnabled(server_rec *mainServer);
void *createServerConfig(apr_pool_t *pool, server_rec *server);
void *mergeServerConfig(apr_pool_t *pool, void *base, void *added);
extern const command_rec directives[];
// Why the sockets of the processes cannot have their names from this path; null: they can.
const char *socketFault(apr_pool_t *pool, const std::string &path);

// ---- processes ----

int checkConfig(apr_pool_t *config, apr_pool_t *log, apr_pool_t *temporary, server_rec *server);
int postConfig(apr_pool_t *config, apr_pool_t *log, apr_pool_t *temporary, server_rec *server);
void childInit(apr_pool_t *pool, server_rec *server);
Tav *instance();                 // of this child; null: there is none
const std::string &statusStem(); // of the sockets at which the processes tell their status

// ---- messages ----

// The library's trace hook: to the error log of the main server at the matching level, message id first.
int traceHook(const TrContext *ctx, va_list args);
// From now on messages go to this server's log, down to `lowest` (an APLOG_ level).
void traceTo(server_rec *server, int lowest = APLOG_TRACE8);
// What the library must trace so that everything LogLevel asks for is there.
const char *traceSpecOf(const server_rec *server);

// ---- requests ----

// How far the request is with the endpoint that is being tried.
enum class Phase { Idle, Connecting, Sending, Waiting, Answered };

// Of a request that somebody asks about: what the connection tells of others.
struct ToldRequest {
    const char *scheme, *clientCertificate, *sslCipherSuite, *sslSessionId; // null: none
    json_t *headersSet;                                                     // by the library; null for what it removed
};

// What the library adds to the request: lines as they are sent, in the request's pool.
struct PrivateHeaders {
    char *text = nullptr;
    size_t length = 0, capacity = 0;
    uint64_t names = 0; // a bit for each name that has been in it
};

} // namespace modtav

// The library's handle of a request.
struct EnvHttpContext {
    request_rec *r;
    TavHttpContext *ctx = nullptr;
    bool withUser = false; // decided after authentication
    int tries = 0;         // endpoints tried
    modtav::Phase phase = modtav::Phase::Idle;
    bool sessionHidden = false;            // the library is not shown the session any more
    TavTargetEndpoint *endpoint = nullptr; // that is being tried
    apr_time_t began = 0;                  // when the endpoint was chosen
    bool tls = false;                      // to the endpoint
    bool connectionReused = false;         // that to the endpoint has carried other requests
    bool upgraded = false;                 // the answer was a switch of protocols
    int keepalives = 0;                    // requests on the client's connection before this one
    apr_table_t *headersOut = nullptr;     // before the endpoint was tried
    modtav::PrivateHeaders privateHeaders = {};
    const modtav::ToldRequest *told = nullptr; // it is only asked about; null: it is real

    void report(TavHttpContextState state, const char *msg = nullptr);
};

namespace modtav {

EnvHttpContext *requestOf(request_rec *r); // null: not one of ours
int translateName(request_rec *r);
int mapToStorage(request_rec *r);
int fixups(request_rec *r);
int logTransaction(request_rec *r);
void setRequestCallBacks(EnvCallBacks &env);
void dropForgedHeaders(request_rec *r);           // that a back end could mistake for the library's
char *cookieOf(request_rec *r, const char *name); // null: the request has none of that name

// Answers a POST of a request (docs/scenario-format.md) to "?explain" with what the library would decide for it and why, as JSON. OK, or
// DECLINED for anything else. The caller has seen to the access.
int explainRequest(request_rec *r);

// A null value takes the header away. Copies both.
void setPrivateHeader(EnvHttpContext *env, const char *name, const char *value);
// Into the first data of a request on its way to an endpoint.
void sendPrivateHeaders(const EnvHttpContext *env, apr_bucket_brigade *brigade);

// ---- forwarding ----

int handleRequest(request_rec *r);
int proxyCreateRequest(request_rec *r, request_rec *backend);
int preConnection(conn_rec *c, void *socket);
void registerFilters();

// ---- status ----

bool asksForStatus(request_rec *r); // before the handler is set
int handleStatus(request_rec *r);

// ---- endpoints ----

// In the library's table: makes and deletes the host's object of an endpoint.
void setEndpointCallBacks(EnvCallBacks &env);
// Hands the request to mod_proxy; an HTTP status, OK or DONE.
int proxyTo(request_rec *r, TavTargetEndpoint *endpoint);
const char *urlOf(apr_pool_t *pool, TavTargetEndpoint *endpoint); // "http://host:port", in the pool
// TRUE for the first of the failures to connect of those requests that had chosen the endpoint by then.
bool isNewFailure(TavTargetEndpoint *endpoint, apr_time_t chosen);
void backendServer(server_rec *server); // whose proxy settings new workers take

} // namespace modtav

#endif
