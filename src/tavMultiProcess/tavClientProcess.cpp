// A worker: keeps a connection to the daemon, handles what it sends, reconnects when it is lost.
//
// The loop works under the control lock and gives it up while it waits. `socket` is replaced and closed only under the write lock, so a
// message that another thread sends can never reach a descriptor that was given away meanwhile.
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ipcStream.h"
#include "processLoop.h"
#include "tavInstanceForProcess.h"
#include "tavMultiProcess.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

#define IPC_DEBUG(cp, ...) TR_DEBUG((cp)->process.trCtx, (cp)->process.debugIPC, __VA_ARGS__)

constexpr int kSocketRetry = 5000;  // ms after a failed socket()
constexpr int kConnectRetry = 1000; // ms after a failed or lost connection

// Waits without the control lock; a stop ends the wait.
void pauseFor(TavClientProcess *cp, int milliseconds) noexcept {
    struct pollfd wake;
    processWait(&cp->process, &wake, 1, milliseconds);
}

// A daemon that does not read, or does not accept, must not hold us, and with us a stop, for ever.
void limitSendTime(int fd) noexcept {
    const struct timeval limit = {5, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

void setSocket(TavClientProcess *cp, int fd) noexcept {
    TavLockGuard guard(cp->process.socketWriteLock, "tavClientProcessRun");
    if (cp->socket >= 0) close(cp->socket);
    cp->socket = fd;
}

// Connects without the control lock: a daemon with a full backlog may keep us waiting.
bool connectToDaemon(TavClientProcess *cp, int fd) noexcept {
    limitSendTime(fd);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const char *path = tavGetUnixDomainSocketPath(cp->process.tav);
    if (path) strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    tavControlUnlock();
    int result;
    do {
        result = connect(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof address);
    } while (result != 0 && errno == EINTR);
    const int error = errno;
    tavControlLock("tavClientProcessRun");
    errno = error;
    return result == 0;
}

// A connected socket; false after having waited for the next try.
bool openConnection(TavClientProcess *cp) noexcept {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        IPC_DEBUG(cp, "tavClientProcessRun: socket() failed: error=%s\n", strerror(errno));
        pauseFor(cp, kSocketRetry);
        return false;
    }
    if (!connectToDaemon(cp, fd)) {
        IPC_DEBUG(cp, "tavClientProcessRun: client failed to connect to daemon (%d):%s\n", errno, strerror(errno));
        close(fd);
        pauseFor(cp, kConnectRetry);
        return false;
    }
    cp->outOfStep = false;
    setSocket(cp, fd);
    return true;
}

// Handles every complete message in the buffer; false when the stream is out of frame, or we are out of step with it.
bool handleMessages(TavClientProcess *cp, IpcBuffer *in) noexcept {
    TavMessage msg;
    while (!processIsStopping(&cp->process)) {
        const IpcRead result = ipcNextMessage(in, &msg);
        if (result != IpcRead::Message) return result == IpcRead::Incomplete;
        tavClientProcessHandleMessage(cp->process.tav, &msg);
        tavFree(msg.body);
        if (cp->outOfStep) return false;
    }
    return true;
}

void readMessages(TavClientProcess *cp) noexcept {
    IpcBuffer in = {};
    while (!processIsStopping(&cp->process)) {
        struct pollfd fds[2] = {{}, {cp->socket, POLLIN, 0}};
        if (processWait(&cp->process, fds, 2, -1) < 0) break;
        if (!fds[1].revents) continue;
        const bool alive = ipcReceive(cp->socket, &in);
        if (handleMessages(cp, &in) && alive) continue;
        IPC_DEBUG(cp, "tavClientProcessRun: failed to read server message: %s\n", strerror(errno));
        break;
    }
    ipcBufferFree(&in);
}

void tavClientProcessRun(void *arg) noexcept {
    auto *cp = static_cast<TavClientProcess *>(arg);
    tavControlLock("tavClientProcessRun");
    if (processBegin(&cp->process)) {
        while (!processIsStopping(&cp->process)) {
            setSocket(cp, -1);
            if (!openConnection(cp)) continue;
            readMessages(cp);
            if (!processIsStopping(&cp->process)) pauseFor(cp, kConnectRetry);
        }
    }
    setSocket(cp, -1);
    IPC_DEBUG(cp, "tavClientProcessRun stopped or failed\n");
    processEnd(&cp->process);
}

} // namespace

TavClientProcess *tavClientProcessCreate(Tav *tav) noexcept {
    TavClientProcess *cp = tavNewRecord<TavClientProcess>();
    if (!cp) return nullptr;
    cp->socket = -1;
    if (processInit(&cp->process, tav)) return cp;
    tavClientProcessDelete(cp);
    return nullptr;
}

int tavClientProcessStart(TavClientProcess *cp) noexcept { return processStart(&cp->process, tavClientProcessRun, cp); }

int tavClientProcessSendMessage(TavClientProcess *cp, TavMessage *msg) noexcept {
    TavLockGuard guard(cp->process.socketWriteLock, "tavClientProcessSendMessage");
    if (cp->socket < 0) return -1;
    if (ipcSendAll(cp->socket, msg)) return 0;
    // Part of a message may be out: the loop hears the end of the stream and reconnects.
    shutdown(cp->socket, SHUT_RDWR);
    return -1;
}

void tavClientProcessStartOver(TavClientProcess *cp) noexcept { cp->outOfStep = true; }

void tavClientProcessStop(TavClientProcess *cp) noexcept { processStop(&cp->process); }

void tavClientProcessDelete(TavClientProcess *cp) noexcept {
    if (!cp) return;
    tavClientProcessStop(cp);
    if (cp->socket >= 0) close(cp->socket);
    processFini(&cp->process);
    tavDestroyRecord(cp);
}
