// The library in the processes of the server: tried when the configuration is read, running in each child.
//
// A child is a worker of the daemon (tavDaemon.cpp). With a fixed configuration file there is no daemon: each child applies the file
// itself. An instance is created after the fork, because its threads do not survive one.
#include <apr_signal.h>
#include <http_core.h>
#include <mod_unixd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unixd.h>

#include <cerrno>
#include <memory>

#include "HostInstance.h"
#include "ServerCounts.h"
#include "StatusReport.h"
#include "StatusService.h"
#include "tavModule.h"
#include "tavProcesses.h"

namespace modtav {

namespace {

Tav *childInstance = nullptr;
std::unique_ptr<tavhost::StatusService> childStatus;
std::string stem; // of the status sockets

bool needsDaemon(const tavhost::HostOptions &options) { return options.configFile.empty(); }

// ---- configuration ----

// The sockets stand in a folder of the user that the server runs as, so that the processes can make them.
int prepareSockets(apr_pool_t *pool, server_rec *server) {
    tavhost::HostOptions &options = serverConfig(server)->host;
    options.socketUid = ap_unixd_config.user_id;
    if (!options.socketPath.empty()) return OK;
    const char *folder = ap_runtime_dir_relative(pool, "tav");
    if (mkdir(folder, 0700) != 0 && errno != EEXIST) {
        ap_log_error(APLOG_MARK, APLOG_CRIT, errno, server, "the folder %s of the daemon's socket cannot be made", folder);
        return HTTP_INTERNAL_SERVER_ERROR;
    }
    if (geteuid() == 0 && chown(folder, ap_unixd_config.user_id, ap_unixd_config.group_id) != 0)
        ap_log_error(APLOG_MARK, APLOG_WARNING, errno, server, "the folder %s cannot be given to the server's user", folder);
    options.socketPath = std::string(folder) + "/daemon.sock";
    if (const char *fault = socketFault(pool, options.socketPath)) {
        ap_log_error(APLOG_MARK, APLOG_CRIT | APLOG_NOERRNO, 0, server, "%s: set TavSocket", fault);
        return HTTP_INTERNAL_SERVER_ERROR;
    }
    return OK;
}

void completeOptions(server_rec *server) {
    tavhost::HostOptions &options = serverConfig(server)->host;
    if (options.catalogue.empty()) options.catalogue = MODTAV_CATALOGUE;
    if (options.traceSpec.empty()) options.traceSpec = traceSpecOf(server);
}

} // namespace

EnvCallBacks callBacks() {
    EnvCallBacks env{};
    env.version = TAV_ENV_VERSION;
    setRequestCallBacks(env);
    env.trace.printf = traceHook;
    env.threadInit = [] { apr_setup_signal_thread(); };
    return env;
}

void logFault(server_rec *server, const char *what, const std::exception &fault) {
    ap_log_error(APLOG_MARK, APLOG_CRIT | APLOG_NOERRNO, 0, server, "%s: %s", what, fault.what());
}

std::unique_ptr<tavhost::StatusService> serveStatus(Tav *tav, server_rec *server, tavhost::StatusService::Keep keep) {
    const auto answer = [tav] {
        const tavhost::Json status(tavStatusToJSON(tav));
        if (status) tavhost::addCounts(status.get());
        return status ? tavhost::jsonText(status.get()) : "";
    };
    try {
        return std::make_unique<tavhost::StatusService>(stem, answer, keep);
    } catch (const std::exception &fault) {
        ap_log_error(APLOG_MARK, APLOG_WARNING | APLOG_NOERRNO, 0, server, "this process is not in the status: %s", fault.what());
        return nullptr;
    }
}

Tav *instance() { return childInstance; }
const std::string &statusStem() { return stem; }

// The whole configuration tried once, so that a fault shows in the configuration test and stops the server before it serves.
int checkConfig(apr_pool_t *, apr_pool_t *, apr_pool_t *, server_rec *server) {
    if (!anyServerEnabled(server)) return OK;
    traceTo(server, APLOG_WARNING); // the life of this instance is nobody's concern
    completeOptions(server);
    try {
        tavhost::checkOptions(callBacks(), serverConfig(server)->host);
    } catch (const std::exception &fault) {
        logFault(server, "mod_tav is not configured", fault);
        return HTTP_INTERNAL_SERVER_ERROR;
    }
    return OK;
}

int postConfig(apr_pool_t *pool, apr_pool_t *, apr_pool_t *, server_rec *server) {
    if (!anyServerEnabled(server) || ap_state_query(AP_SQ_MAIN_STATE) == AP_SQ_MS_CREATE_PRE_CONFIG) return OK;
    traceTo(server);
    if (const int status = prepareSockets(pool, server); status != OK) return status;
    const tavhost::HostOptions &options = serverConfig(server)->host;
    stem = options.socketPath + ".status";
    if (ap_state_query(AP_SQ_CONFIG_GEN) == 0) unlink((stem + ".kept").c_str()); // counts last over restarts
    if (!needsDaemon(options)) {
        unlink(options.socketPath.c_str()); // the daemon before the restart, if there was one, is needed no more
        return OK;
    }
    return startDaemon(pool, server);
}

namespace {

// A new child serves when it has a configuration, but for a daemon that has none it waits only so long. The library alone would look for
// the socket, and for the configuration, once a second: as long nobody would serve after a restart.
void startWorker(Tav *tav, const ServerConfig *config) {
    const apr_time_t end = apr_time_now() + apr_time_from_sec(config->startTimeout);
    const auto waitUntil = [end](auto &&holds) {
        while (!holds() && apr_time_now() < end) apr_sleep(5000);
    };
    waitUntil([config] { return access(config->host.socketPath.c_str(), F_OK) == 0; });
    tavStart(tav, -1);
    waitUntil([tav] { return tavGetConfigVersion(tav) != -1; });
}

void startChild(const EnvCallBacks &env, server_rec *server) {
    const ServerConfig *config = serverConfig(server);
    const bool worker = needsDaemon(config->host);
    childInstance = tavhost::createInstance(env, config->host, worker ? tavhost::Process::Worker : tavhost::Process::Standalone);
    childStatus = serveStatus(childInstance, server, tavhost::keepCounts);
    if (worker)
        startWorker(childInstance, config);
    else
        tavhost::startInstance(childInstance, config->host, 0);
}

} // namespace

void childInit(apr_pool_t *pool, server_rec *server) {
    if (!anyServerEnabled(server)) return;
    EnvCallBacks env = callBacks();
    setEndpointCallBacks(env);
    backendServer(server);
    try {
        startChild(env, server);
    } catch (const std::exception &fault) {
        logFault(server, "requests are served without the library", fault);
    }
    apr_pool_cleanup_register(
        pool, nullptr,
        [](void *) -> apr_status_t {
            childStatus.reset();
            if (childInstance) tavhost::endInstance(childInstance);
            childInstance = nullptr;
            return APR_SUCCESS;
        },
        apr_pool_cleanup_null);
}

} // namespace modtav
