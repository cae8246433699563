// The daemon: listens on the Unix-domain socket, hears its workers and sends them what the configuration brings.
//
// The loop works under the control lock and gives it up only while it waits. Sockets never block: what a worker has not read yet waits in
// its queue, which the loop flushes, so a worker that stops reading delays nobody; one whose queue passes the bound is dropped. The client
// list has its own lock, taken outside the write lock, which guards queues and descriptors; no handler runs under either.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "ipcStream.h"
#include "processLoop.h"
#include "tavInstanceForProcess.h"
#include "tavMultiProcess.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

// A worker's connection. `fd` never is 0, 1 or 2: reporter id 1 is the daemon itself.
struct IpcClient {
    int fd;
    int pid; // of the last header seen; 0: none yet
    IpcBuffer in;
    IpcBuffer out; // guarded by the write lock
    bool broken;   // guarded by the write lock: the loop drops it
};

#define IPC_DEBUG(sp, ...) TR_DEBUG((sp)->process.trCtx, (sp)->process.debugIPC, __VA_ARGS__)

void clientFree(void *object) noexcept {
    auto *client = static_cast<IpcClient *>(object);
    ipcBufferFree(&client->in);
    ipcBufferFree(&client->out);
    if (client->fd >= 0) close(client->fd);
    tavFree(client);
}

// ---- the listener ----

void logBadPath(TavServerProcess *sp, const char *format, const char *path) noexcept {
    TrRecord *record = trMgrGetRecord(tavGetTrMgr(sp->process.tav), "control.badportpath");
    const int error = errno;
    if (path) {
        TR_DEBUG(sp->process.trCtx, record, "%s at %s: %s\n", format, path, strerror(error));
    } else {
        TR_DEBUG(sp->process.trCtx, record, "%s: %s\n", format, strerror(error));
    }
}

bool setSocketOwner(TavServerProcess *sp, const char *path) noexcept {
    if (chmod(path, 0700) != 0) {
        TrRecord *record = trMgrGetRecord(tavGetTrMgr(sp->process.tav), "control.badportpath");
        TR_DEBUG(sp->process.trCtx, record, "failed to set permissions on %s: %s\n", path, strerror(errno));
        return false;
    }
    const uid_t uid = tavGetUnixDomainSocketUid(sp->process.tav);
    if (geteuid() == 0 && chown(path, uid, static_cast<gid_t>(-1)) != 0)
        IPC_DEBUG(sp, "WARNING: chown(%s,%d,-1) failed: %s\n", path, static_cast<int>(uid), strerror(errno));
    return true;
}

int serverProcessCreateListenerSocket(TavServerProcess *sp) noexcept {
    const char *path = tavGetUnixDomainSocketPath(sp->process.tav);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0 || !path) {
        if (fd >= 0) close(fd);
        return -1;
    }
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    unlink(address.sun_path);
    bool listening = false;
    if (bind(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof address) != 0) {
        logBadPath(sp, "failed to bind to unix domain socket", address.sun_path);
    } else if (setSocketOwner(sp, address.sun_path)) {
        listening = listen(fd, 128) == 0;
        if (!listening) logBadPath(sp, "failed to listen on the unix domain socket", nullptr);
    }
    if (listening) return fd;
    close(fd);
    return -1;
}

// ---- clients ----

// A descriptor of 3 or more, or -1.
int acceptClient(TavServerProcess *sp) noexcept {
    int fd;
    do {
        fd = accept4(sp->listenerSocket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0 || fd >= 3) return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    close(fd);
    return moved;
}

// Accepts one connection; false ends the loop.
bool addClient(TavServerProcess *sp) noexcept {
    const int fd = acceptClient(sp);
    if (fd < 0) {
        // A peer that gave up between the poll and the accept is no failure of the listener.
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ECONNABORTED) return true;
        IPC_DEBUG(sp, "tavlib daemon accept failed(%d):%s\n", errno, strerror(errno));
        return false;
    }
    auto *client = static_cast<IpcClient *>(tavMalloc(sizeof(IpcClient)));
    if (!client) {
        close(fd);
        return true;
    }
    client->fd = fd;
    {
        TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessRun");
        // A failed add closes the connection with the record; the worker tries again.
        if (!tavListAddTail(sp->clientSocketList, client)) return true;
    }
    TavMessage connected = {{MT_CONNECTED, 0, 0}, nullptr};
    tavServerProcessHandleMessage(sp->process.tav, &connected, fd);
    return true;
}

// The instance forgets the worker first: until then its descriptor must not be given to another one.
void dropClient(TavServerProcess *sp, IpcClient *client) noexcept {
    tavClientProcessCleanup(sp->process.tav, client->fd, client->pid);
    TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessRun");
    TavLockGuard writeGuard(sp->process.socketWriteLock, "tavServerProcessRun");
    tavListRemoveObject(sp->clientSocketList, client);
}

// Only these come from a worker; the rest is the daemon's own or unknown.
bool isFromClient(int type) noexcept { return type == MT_C2S_JSON || type == MT_CLIENT_TO_SERVER_HEALTH_TRIGGER; }

// Handles every complete message that has arrived; false when the stream is at its end or out of frame.
bool hearClient(TavServerProcess *sp, IpcClient *client) noexcept {
    const bool alive = ipcReceive(client->fd, &client->in);
    TavMessage msg;
    for (;;) {
        const IpcRead result = ipcNextMessage(&client->in, &msg);
        if (result == IpcRead::Failed) return false;
        if (result == IpcRead::Incomplete) return alive;
        client->pid = msg.hdr.pid;
        if (isFromClient(msg.hdr.type)) tavServerProcessHandleMessage(sp->process.tav, &msg, client->fd);
        tavFree(msg.body);
    }
}

bool flushClient(TavServerProcess *sp, IpcClient *client) noexcept {
    TavLockGuard guard(sp->process.socketWriteLock, "tavServerProcessRun");
    return !client->broken && ipcFlush(client->fd, &client->out);
}

// ---- the loop ----

// What the loop waits for: the wake-up, the listener, then the clients in list order.
struct WatchSet {
    std::vector<struct pollfd> fds;
    std::vector<IpcClient *> clients;

    bool fill(TavServerProcess *sp) noexcept try {
        fds.assign(2, {});
        clients.clear();
        fds[1] = {sp->listenerSocket, POLLIN, 0};
        TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessRun");
        TavLockGuard writeGuard(sp->process.socketWriteLock, "tavServerProcessRun");
        for (IpcClient *client : TavListRange<IpcClient>(sp->clientSocketList)) {
            const bool wantsOut = client->broken || ipcBufferSize(&client->out) > 0;
            fds.push_back({client->fd, static_cast<short>(POLLIN | (wantsOut ? POLLOUT : 0)), 0});
            clients.push_back(client);
        }
        return true;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return false;
    }
};

void serveClients(TavServerProcess *sp, const WatchSet &watch) noexcept {
    for (size_t i = 0; i < watch.clients.size(); ++i) {
        const short ready = watch.fds[i + 2].revents;
        if (!ready) continue;
        IpcClient *client = watch.clients[i];
        bool alive = !(ready & POLLOUT) || flushClient(sp, client);
        if (alive && (ready & ~POLLOUT)) alive = hearClient(sp, client);
        if (!alive) dropClient(sp, client);
    }
}

// One turn; false ends the loop.
bool serveOnce(TavServerProcess *sp, WatchSet &watch) noexcept {
    IPC_DEBUG(sp, "tavlib daemon listening\n");
    const int ready = watch.fill(sp) ? processWait(&sp->process, watch.fds.data(), watch.fds.size(), -1) : -1;
    if (ready < 1) {
        IPC_DEBUG(sp, "tavlib daemon select failed; nready=%d, errno=%d, errmsg=%s\n", ready, errno, strerror(errno));
        return false;
    }
    if (processIsStopping(&sp->process)) return false;
    serveClients(sp, watch);
    return !(watch.fds[1].revents) || addClient(sp);
}

void dropAllClients(TavServerProcess *sp) noexcept {
    while (auto *client = static_cast<IpcClient *>(tavListEleGetObject(tavListGetHead(sp->clientSocketList)))) dropClient(sp, client);
    close(sp->listenerSocket);
    sp->listenerSocket = -1;
}

void tavServerProcessRun(void *arg) noexcept {
    auto *sp = static_cast<TavServerProcess *>(arg);
    tavControlLock("tavServerProcessRun");
    {
        WatchSet watch;
        if (processBegin(&sp->process)) {
            while (!processIsStopping(&sp->process) && serveOnce(sp, watch)) {
            }
        }
    }
    dropAllClients(sp);
    processEnd(&sp->process);
}

IpcClient *findClient(TavServerProcess *sp, int fd) noexcept {
    for (IpcClient *client : TavListRange<IpcClient>(sp->clientSocketList)) {
        if (client->fd == fd) return client;
    }
    return nullptr;
}

// The list lock must be held. A stream that failed is shut down, so that the loop hears its end and cleans up.
int sendToClient(TavServerProcess *sp, IpcClient *client, const TavMessage *msg) noexcept {
    TavLockGuard guard(sp->process.socketWriteLock, "tavServerProcessSendMessage");
    if (client->broken) return -1;
    if (ipcSendOrQueue(client->fd, &client->out, msg)) {
        if (ipcBufferSize(&client->out) > 0) processWake(&sp->process);
        return 0;
    }
    client->broken = true;
    shutdown(client->fd, SHUT_RDWR);
    processWake(&sp->process);
    return -1;
}

} // namespace

TavServerProcess *tavServerProcessCreate(Tav *tav) noexcept {
    TavServerProcess *sp = tavNewRecord<TavServerProcess>();
    if (!sp) return nullptr;
    sp->listenerSocket = -1;
    const Boolean made = processInit(&sp->process, tav);
    sp->clientSocketList = tavListCreate(clientFree);
    sp->clientSocketListLock = tavLockCreateRanked(TavLockRank::ClientSocketList);
    if (made && sp->clientSocketList && sp->clientSocketListLock) return sp;
    tavServerProcessDelete(sp);
    return nullptr;
}

int tavServerProcessStart(TavServerProcess *sp) noexcept {
    if (sp->process.state != PS_NOT_RUNNING) return -1;
    sp->listenerSocket = serverProcessCreateListenerSocket(sp);
    if (sp->listenerSocket < 0) return -1;
    if (processStart(&sp->process, tavServerProcessRun, sp) == 0) return 0;
    close(sp->listenerSocket);
    sp->listenerSocket = -1;
    return -1;
}

int tavServerProcessSendMessage(TavServerProcess *sp, TavMessage *msg, int fd) noexcept {
    TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessSendMessage");
    IpcClient *client = findClient(sp, fd);
    return client ? sendToClient(sp, client, msg) : -1;
}

int tavServerProcessBroadcastMessage(TavServerProcess *sp, TavMessage *msg) noexcept {
    TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessBroadcastMessage");
    for (IpcClient *client : TavListRange<IpcClient>(sp->clientSocketList)) {
        if (sendToClient(sp, client, msg) != 0) IPC_DEBUG(sp, "tavServerProcessBroadcastMessage failed for fd:%d", client->fd);
    }
    return 0;
}

int tavServerProcessGetClientCount(TavServerProcess *sp) noexcept {
    TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessGetClientCount");
    return tavListGetCount(sp->clientSocketList);
}

void tavServerProcessHalt(TavServerProcess *sp) noexcept { processStop(&sp->process); }
void tavServerProcessStop(TavServerProcess *sp) noexcept { processStop(&sp->process); }

void tavServerProcessDelete(TavServerProcess *sp) noexcept {
    if (!sp) return;
    tavListDestroy(sp->clientSocketList);
    tavLockDestroy(sp->clientSocketListLock);
    processFini(&sp->process);
    tavDestroyRecord(sp);
}
