// What the daemon and the children have in common.
#ifndef TAV_HOSTS_HTTPD_TAVPROCESSES_H
#define TAV_HOSTS_HTTPD_TAVPROCESSES_H

#include <exception>
#include <memory>

#include "StatusService.h"
#include "tavModule.h"

namespace modtav {

// Keeps a daemon running while the configuration lasts. OK or an HTTP status, with the reason in the log.
int startDaemon(apr_pool_t *pool, server_rec *server);

EnvCallBacks callBacks();
void logFault(server_rec *server, const char *what, const std::exception &fault);
// What this process tells of itself; null: it cannot, and the others are shown all the same.
std::unique_ptr<tavhost::StatusService> serveStatus(Tav *tav, server_rec *server, tavhost::StatusService::Keep keep = nullptr);

} // namespace modtav

#endif
