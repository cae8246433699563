// The daemon: listens on the Unix-domain socket, hears its workers and sends them what the configuration brings.
//
// The loop works under the control lock and gives it up only while it waits. Sockets never block: what a worker has not read yet waits in
// its queue, which the loop flushes, so a worker that stops reading delays nobody; one whose queue passes the bound is dropped. A message
// for all is one block that the queues share. The client list has its own lock, taken outside the write lock, which guards queues and
// descriptors; no handler runs under either.
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
    int pid; // of the headers seen; 0: none yet
    IpcBuffer in;
    IpcQueue out; // guarded by the write lock
    bool broken;  // guarded by the write lock: the loop drops it
};

#define IPC_DEBUG(sp, ...) TR_DEBUG((sp)->process.trCtx, (sp)->process.debugIPC, __VA_ARGS__)

void clientFree(void *object) noexcept {
    auto *client = static_cast<IpcClient *>(object);
    ipcBufferFree(&client->in);
    ipcQueueFree(&client->out);
    if (client->fd >= 0) close(client->fd);
    tavFree(client);
}

// ---- the listener ----

#define BAD_PATH(sp, ...) TR_DEBUG((sp)->process.trCtx, (sp)->badPathRec, __VA_ARGS__)

bool setSocketOwner(TavServerProcess *sp, const char *path) noexcept {
    if (chmod(path, 0700) != 0) {
        BAD_PATH(sp, "failed to set permissions on %s: %s\n", path, strerror(errno));
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
        BAD_PATH(sp, "failed to bind to unix domain socket at %s: %s\n", address.sun_path, strerror(errno));
    } else if (setSocketOwner(sp, address.sun_path)) {
        listening = listen(fd, 128) == 0;
        if (!listening) BAD_PATH(sp, "failed to listen on the unix domain socket: %s\n", strerror(errno));
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

// The instance forgets the worker first: until then its descriptor must not be given to another one.
void dropClient(TavServerProcess *sp, IpcClient *client) noexcept {
    tavClientProcessCleanup(sp->process.tav, client->fd, client->pid);
    TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessRun");
    TavLockGuard writeGuard(sp->process.socketWriteLock, "tavServerProcessRun");
    tavListRemoveObject(sp->clientSocketList, client);
}

// Handles every complete message that has arrived; false when the stream is at its end or out of frame. One connection speaks for one
// process: what it has registered could not be taken back by the process id otherwise.
bool hearClient(TavServerProcess *sp, IpcClient *client) noexcept {
    const bool alive = ipcReceive(client->fd, &client->in);
    TavMessage msg;
    for (;;) {
        const IpcRead result = ipcNextMessage(&client->in, &msg);
        if (result == IpcRead::Failed) return false;
        if (result == IpcRead::Incomplete) return alive;
        const bool sameProcess = client->pid == 0 || client->pid == msg.hdr.pid;
        client->pid = sameProcess ? msg.hdr.pid : client->pid;
        // That a worker has connected is for the daemon to say.
        if (sameProcess && msg.hdr.type != MT_CONNECTED) tavServerProcessHandleMessage(sp->process.tav, &msg, client->fd);
        tavFree(msg.body);
        if (!sameProcess) return false;
    }
}

bool flushClient(TavServerProcess *sp, IpcClient *client) noexcept {
    TavLockGuard guard(sp->process.socketWriteLock, "tavServerProcessRun");
    return !client->broken && ipcFlush(client->fd, &client->out);
}

// ---- the loop ----

// What the loop waits for: the wake-up, the listener, then the clients in list order. Room for a client is made before it is accepted into
// the list, so that want of memory never ends the loop.
struct WatchSet {
    std::vector<struct pollfd> fds;
    std::vector<IpcClient *> clients;

    bool reserve(size_t count) noexcept try {
        fds.reserve(count + 2);
        clients.reserve(count);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }

    void fill(TavServerProcess *sp) noexcept {
        fds.assign(2, {});
        clients.clear();
        fds[1] = {sp->listenerSocket, POLLIN, 0};
        TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessRun");
        TavLockGuard writeGuard(sp->process.socketWriteLock, "tavServerProcessRun");
        for (IpcClient *client : TavListRange<IpcClient>(sp->clientSocketList)) {
            const bool wantsOut = client->broken || client->out.head;
            fds.push_back({client->fd, static_cast<short>(POLLIN | (wantsOut ? POLLOUT : 0)), 0});
            clients.push_back(client);
        }
    }
};

// Accepts one connection; false ends the loop.
bool addClient(TavServerProcess *sp, WatchSet &watch) noexcept {
    const int fd = acceptClient(sp);
    if (fd < 0) {
        // A peer that gave up between the poll and the accept is no failure of the listener.
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ECONNABORTED) return true;
        IPC_DEBUG(sp, "tavlib daemon accept failed(%d):%s\n", errno, strerror(errno));
        return false;
    }
    // Without memory the connection is closed again; the worker tries again.
    const bool hasRoom = watch.reserve(static_cast<size_t>(tavServerProcessGetClientCount(sp)) + 1);
    auto *client = hasRoom ? static_cast<IpcClient *>(tavMalloc(sizeof(IpcClient))) : nullptr;
    if (!client) {
        close(fd);
        return true;
    }
    client->fd = fd;
    {
        TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessRun");
        if (!tavListAddTail(sp->clientSocketList, client)) return true; // the list has freed the record
    }
    TavMessage connected = {{MT_CONNECTED, 0, 0}, nullptr};
    tavServerProcessHandleMessage(sp->process.tav, &connected, fd);
    return true;
}

void serveClients(TavServerProcess *sp, const WatchSet &watch, int ready) noexcept {
    for (size_t i = 0; i < watch.clients.size() && ready > 0; ++i) {
        const short events = watch.fds[i + 2].revents;
        if (!events) continue;
        --ready;
        IpcClient *client = watch.clients[i];
        bool alive = !(events & POLLOUT) || flushClient(sp, client);
        if (alive && (events & ~POLLOUT)) alive = hearClient(sp, client);
        if (!alive) dropClient(sp, client);
    }
}

// One turn; false ends the loop.
bool serveOnce(TavServerProcess *sp, WatchSet &watch) noexcept {
    IPC_DEBUG(sp, "tavlib daemon listening\n");
    watch.fill(sp);
    int ready = processWait(&sp->process, watch.fds.data(), watch.fds.size(), -1);
    if (ready < 1) {
        IPC_DEBUG(sp, "tavlib daemon select failed; nready=%d, errno=%d, errmsg=%s\n", ready, errno, strerror(errno));
        return false;
    }
    if (processIsStopping(&sp->process)) return false;
    if (watch.fds[0].revents) --ready;
    if (watch.fds[1].revents) {
        --ready;
        if (!addClient(sp, watch)) return false;
    }
    serveClients(sp, watch, ready);
    return true;
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
        if (processBegin(&sp->process) && watch.reserve(0)) {
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

// The list lock must be held. A stream that failed is shut down, so that the loop hears its end and cleans up; so is one that misses a
// message for want of memory, lest the worker goes on with half a configuration.
int sendToClient(TavServerProcess *sp, IpcClient *client, IpcFrame *frame) noexcept {
    TavLockGuard guard(sp->process.socketWriteLock, "tavServerProcessSendMessage");
    if (client->broken) return -1;
    const bool waiting = client->out.head != nullptr;
    if (frame && ipcSendOrQueue(client->fd, &client->out, frame)) {
        if (!waiting && client->out.head) processWake(&sp->process);
        return 0;
    }
    client->broken = true;
    shutdown(client->fd, SHUT_RDWR);
    processWake(&sp->process);
    return -1;
}

int sendToOne(TavServerProcess *sp, IpcFrame *frame, int fd) noexcept {
    TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessSendMessage");
    IpcClient *client = findClient(sp, fd);
    return client ? sendToClient(sp, client, frame) : -1;
}

int sendToAll(TavServerProcess *sp, IpcFrame *frame) noexcept {
    TavLockGuard guard(sp->clientSocketListLock, "tavServerProcessBroadcastMessage");
    for (IpcClient *client : TavListRange<IpcClient>(sp->clientSocketList)) {
        if (sendToClient(sp, client, frame) != 0) IPC_DEBUG(sp, "tavServerProcessBroadcastMessage failed for fd:%d", client->fd);
    }
    return 0;
}

int sendMessage(TavServerProcess *sp, const TavMessage *msg, int fd) noexcept {
    IpcFrame *frame = ipcFrameCreate(msg);
    const int result = tavServerProcessSendFrame(sp, frame, fd);
    ipcFrameRelease(frame);
    return result;
}

} // namespace

TavServerProcess *tavServerProcessCreate(Tav *tav) noexcept {
    TavServerProcess *sp = tavNewRecord<TavServerProcess>();
    if (!sp) return nullptr;
    sp->listenerSocket = -1;
    sp->badPathRec = trMgrGetRecord(tavGetTrMgr(tav), "control.badportpath");
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

int tavServerProcessSendFrame(TavServerProcess *sp, IpcFrame *frame, int fd) noexcept {
    return fd == -1 ? sendToAll(sp, frame) : sendToOne(sp, frame, fd);
}

int tavServerProcessSendMessage(TavServerProcess *sp, TavMessage *msg, int fd) noexcept { return fd == -1 ? -1 : sendMessage(sp, msg, fd); }

int tavServerProcessBroadcastMessage(TavServerProcess *sp, TavMessage *msg) noexcept {
    sendMessage(sp, msg, -1);
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
    tavServerProcessStop(sp);
    tavListDestroy(sp->clientSocketList);
    tavLockDestroy(sp->clientSocketListLock);
    processFini(&sp->process);
    tavDestroyRecord(sp);
}
