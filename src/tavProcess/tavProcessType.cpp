// Standalone, daemon or worker: the marks, the socket's data and the daemon's request limit.
#include "tav/tavInternal.h"
#include "tavMultiProcess/tavMultiProcess.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

int tavMarkAsServerProcess(Tav *tav, char *unixDomainSocketPath, uid_t unixDomainSocketUid) TAV_NOEXCEPT {
    if (!tav) return -1;
    TR_DEBUG(tav->trCtx, tav->ipcProcessRec, "tavMarkAsServerProcess: path='%s', uid=%u\n", tavOrNull(unixDomainSocketPath),
             static_cast<unsigned int>(unixDomainSocketUid));
    tav->processType = ServerProcess;
    const Boolean hasPath = tavReplaceStr(&tav->unixDomainSocketPath, unixDomainSocketPath);
    tav->unixDomainSocketUid = unixDomainSocketUid;
    if (!tav->serverProcess) tav->serverProcess = tavServerProcessCreate(tav);
    return hasPath && tav->serverProcess ? 0 : -1;
}

int tavMarkAsClientProcess(Tav *tav, char *unixDomainSocketPath) TAV_NOEXCEPT {
    if (!tav) return -1;
    TR_DEBUG(tav->trCtx, tav->ipcProcessRec, "tavMarkAsClientProcess: path='%s'\n", tavOrNull(unixDomainSocketPath));
    tav->processType = ClientProcess;
    const Boolean hasPath = tavReplaceStr(&tav->unixDomainSocketPath, unixDomainSocketPath);
    if (!tav->clientProcess) tav->clientProcess = tavClientProcessCreate(tav);
    return hasPath && tav->clientProcess ? 0 : -1;
}

TavServerProcess *tavGetServerProcess(Tav *tav) noexcept { return tav ? tav->serverProcess : nullptr; }
Boolean tavIsServerProcess(Tav *tav) TAV_NOEXCEPT { return tav && tav->processType == ServerProcess; }
Boolean tavIsClientProcess(Tav *tav) TAV_NOEXCEPT { return tav && tav->processType == ClientProcess; }
Boolean tavIsStandaloneProcess(Tav *tav) TAV_NOEXCEPT { return tav && tav->processType == StandaloneProcess; }

const char *tavGetProcessTypeName(Tav *tav) TAV_NOEXCEPT {
    if (!tav) return "InvalidProcessType";
    switch (tav->processType) {
        case StandaloneProcess:
            return "StandaloneProcess";
        case ServerProcess:
            return "ServerProcess";
        case ClientProcess:
            return "ClientProcess";
        default:
            return "InvalidProcessType";
    }
}

const char *tavGetUnixDomainSocketPath(Tav *tav) TAV_NOEXCEPT { return tav ? tav->unixDomainSocketPath : nullptr; }

void tavSetUnixDomainSocketPath(Tav *tav, const char *path) TAV_NOEXCEPT {
    if (tav) tavReplaceStr(&tav->unixDomainSocketPath, path);
}

uid_t tavGetUnixDomainSocketUid(Tav *tav) TAV_NOEXCEPT { return tav ? tav->unixDomainSocketUid : static_cast<uid_t>(-1); }

void tavSetUnixDomainSocketUid(Tav *tav, uid_t uid) TAV_NOEXCEPT {
    if (tav) tav->unixDomainSocketUid = uid;
}

namespace {

// Runs on the instance's own thread, which holds no lock.
void terminateDaemon(Tav *tav, void *) noexcept { tavServerProcessTerminate(tav); }

} // namespace

Boolean tavMaxRequestsPerDaemon(Tav *tav) TAV_NOEXCEPT {
    if (!tavIsServerProcess(tav)) return FALSE;
    const int limit = tav->maxRequestsPerDaemon;
    if (limit == 0) return FALSE;
    const int count = ++tav->requestsPerDaemon;
    if (count > limit) {
        // Every request past the limit says so; one queued termination is enough.
        if (!tav->terminateQueued.exchange(true)) tavProcessAsync(tav, nullptr, terminateDaemon, nullptr);
        return TRUE;
    }
    TR_DEBUG(tav->trCtx, tav->ipcProcessRec, "tavMaxRequestsPerDaemon: %d/%d", count, limit);
    return FALSE;
}
