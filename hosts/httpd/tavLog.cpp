// The library's messages in the error log.
#include <new>

#include "TraceRecording.h"
#include "TraceText.h"
#include "tavModule.h"

namespace modtav {

namespace {

server_rec *logServer = nullptr; // of the main server; set before the instance is created
int lowestLevel = APLOG_TRACE8;

// The library's levels from OFF to DEBUG as the server's.
constexpr int LOG_LEVELS[] = {APLOG_DEBUG,   APLOG_EMERG,  APLOG_ALERT, APLOG_CRIT, APLOG_ERR,
                              APLOG_WARNING, APLOG_NOTICE, APLOG_INFO,  APLOG_DEBUG};

} // namespace

void traceTo(server_rec *server, int lowest) {
    logServer = server;
    lowestLevel = lowest;
}

int traceHook(const TrContext *ctx, va_list args) try {
    if (!logServer || !trContextGetFormat(ctx) || tavhost::recordTrace(ctx, args)) return 0;
    const tavhost::TraceText message = tavhost::traceText(ctx, args);
    const int level = message.level >= 0 ? LOG_LEVELS[message.level] : APLOG_DEBUG;
    if (level > lowestLevel) return 0;
    ap_log_error(APLOG_MARK, level | APLOG_NOERRNO, 0, logServer, "%s%s%s", message.id.c_str(), message.id.empty() ? "" : ": ",
                 message.text.c_str());
    return 0;
} catch (const std::bad_alloc &) { // nothing is thrown through the library
    return 0;
}

const char *traceSpecOf(const server_rec *server) {
    const int level = ap_get_server_module_loglevel(server, tav_module.module_index);
    if (level >= APLOG_TRACE3) return ":DEBUG"; // each request's every step
    if (level >= APLOG_DEBUG) return ":INFO,control:DEBUG";
    if (level >= APLOG_INFO) return ":INFO";
    return ":NOTICE";
}

} // namespace modtav
