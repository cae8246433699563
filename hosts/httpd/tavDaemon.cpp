// The daemon: the process that polls the controllers and feeds the children over a Unix socket.
//
// The parent starts it with the configuration, and again when it dies. A restart of the server starts another one; the one before goes on
// until that has a configuration of its own, so that new children have one even while no controller answers.
#include <ap_listen.h>
#include <ap_mpm.h>
#include <apr_signal.h>
#include <glob.h>
#include <mod_unixd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <unixd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "HostInstance.h"
#include "tavModule.h"
#include "tavProcesses.h"

namespace modtav {

namespace {

struct Daemon {
    apr_proc_t process;
    apr_pool_t *pool;
    server_rec *server;
    bool dead;
};

constexpr int SUPERSEDED = SIGUSR1; // to a daemon: the server is configured anew

std::atomic<bool> libraryEnded{false}; // set on a thread of the library

void prepareSignals(sigset_t *signals) {
    for (const int ignored : {SIGHUP, SIGUSR2, SIGWINCH, SIGPIPE, SIGINT}) apr_signal(ignored, SIG_IGN);
    for (const int standard : {SIGTERM, SIGCHLD, SUPERSEDED}) apr_signal(standard, SIG_DFL);
    sigemptyset(signals);
    sigaddset(signals, SIGTERM);
    sigaddset(signals, SUPERSEDED);
    pthread_sigmask(SIG_SETMASK, signals, nullptr);
}

// The socket of a daemon. Children that connect before there is a configuration would take an empty one, and those of an earlier daemon
// would lose theirs to it. So it is made under another name, and opened when the controllers have given what they have, however long that
// takes; one controller of several is waited for no longer than `patience`. Opening it closes that of the daemon before.
class Door {
public:
    Door(Tav *tav, const tavhost::HostOptions &options, int patience)
        : tav_(tav),
          hidden_(hiddenPath(options, getpid())),
          path_(options.socketPath),
          patience_(apr_time_now() + apr_time_from_sec(patience)) {}

    static std::string hiddenPath(const tavhost::HostOptions &options, pid_t daemon) {
        return options.socketPath + "~" + std::to_string(daemon);
    }

    bool isOpen() const { return inode_ != 0; }

    void openWhenConfigured() {
        if (isOpen() || tavGetConfigVersion(tav_) == -1 || (tavGetState(tav_) != STARTED && apr_time_now() < patience_)) return;
        if (rename(hidden_.c_str(), path_.c_str()) == 0) inode_ = inodeNow();
    }

    // There is another daemon, or soon will be.
    void supersede() { successorDue_ = apr_time_now() + apr_time_from_sec(SUCCESSOR_SECONDS); }
    bool isSuperseded() const { return successorDue_ != 0; }
    // Children have nobody else to ask.
    bool isNeeded() {
        if (!isSuperseded()) return true;
        if (!isOpen() || inodeNow() != inode_) return false;
        if (successorWaits()) successorDue_ = apr_time_now() + apr_time_from_sec(SUCCESSOR_SECONDS); // the parent replaces one that dies
        return apr_time_now() < successorDue_;
    }

private:
    static constexpr int SUCCESSOR_SECONDS = 30; // that reading the server's configuration may take

    ino_t inodeNow() const {
        struct stat info;
        return stat(path_.c_str(), &info) == 0 ? info.st_ino : 0;
    }
    // One that was killed leaves its hidden socket behind.
    bool successorWaits() const {
        glob_t found;
        if (glob((path_ + "~*").c_str(), GLOB_NOSORT, nullptr, &found) != 0) return false;
        const bool any = std::any_of(found.gl_pathv, found.gl_pathv + found.gl_pathc, [this](const char *hidden) {
            const auto pid = static_cast<pid_t>(strtol(hidden + path_.size() + 1, nullptr, 10));
            return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
        });
        globfree(&found);
        return any;
    }

    Tav *tav_;
    std::string hidden_, path_;
    apr_time_t patience_;
    ino_t inode_ = 0;             // 0: not open
    apr_time_t successorDue_ = 0; // 0: this daemon is the newest
};

// Until the parent ends it, another daemon has taken over, or the library has served its share of requests and wants a fresh process.
void serve(Door &door, const sigset_t *signals) {
    constexpr timespec soon{0, 50'000'000}, later{1, 0};
    while (!libraryEnded && door.isNeeded()) {
        door.openWhenConfigured();
        const int signal = sigtimedwait(signals, nullptr, door.isOpen() && !door.isSuperseded() ? &later : &soon);
        if (signal == SUPERSEDED)
            door.supersede();
        else if (signal != -1 || (errno != EAGAIN && errno != EINTR))
            return;
    }
}

[[noreturn]] void runDaemon(server_rec *server) {
    const pid_t parent = getppid();
    sigset_t signals;
    prepareSignals(&signals);
    ap_close_listeners(); // the ports must not outlive the server
    if (ap_unixd_setup_child() != 0) _exit(APEXIT_CHILDFATAL);
    prctl(PR_SET_PDEATHSIG, SIGTERM); // a change of user takes it back
    if (getppid() != parent) _exit(0);
    traceTo(server);
    EnvCallBacks env = callBacks();
    env.stateChange.tav = [](Tav *, TavComponentState state, char *) { libraryEnded = state == STOPPED; };
    const ServerConfig *config = serverConfig(server);
    tavhost::HostOptions hidden = config->host;
    hidden.socketPath = Door::hiddenPath(config->host, getpid());
    try {
        Tav *tav = tavhost::createInstance(env, hidden, tavhost::Process::Daemon);
        auto status = serveStatus(tav, server);
        Door door(tav, config->host, config->startTimeout);
        tavhost::startInstance(tav, hidden, 0);
        serve(door, &signals);
        if (!door.isOpen()) unlink(hidden.socketPath.c_str());
        status.reset();
        tavhost::endInstance(tav);
    } catch (const std::exception &fault) {
        logFault(server, "the daemon cannot run", fault);
        _exit(APEXIT_CHILDFATAL);
    }
    _exit(0);
}

int start(Daemon *daemon);

bool serverGoesOn() {
    int state = 0;
    return ap_mpm_query(AP_MPMQ_MPM_STATE, &state) == APR_SUCCESS && state != AP_MPMQ_STOPPING;
}

void restartDaemon(Daemon *daemon, int status) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == APEXIT_CHILDFATAL) {
        ap_log_error(APLOG_MARK, APLOG_CRIT, 0, daemon->server, "the daemon cannot run; routing goes on with the last configuration");
        return;
    }
    ap_log_error(APLOG_MARK, APLOG_NOTICE, 0, daemon->server, "the daemon ended; starting it again");
    start(daemon);
}

void maintainDaemon(int reason, void *data, int status) {
    auto *daemon = static_cast<Daemon *>(data);
    switch (reason) {
        case APR_OC_REASON_DEATH:
        case APR_OC_REASON_LOST:
            daemon->dead = true;
            unlink(Door::hiddenPath(serverConfig(daemon->server)->host, daemon->process.pid).c_str());
            apr_proc_other_child_unregister(daemon);
            if (serverGoesOn()) restartDaemon(daemon, status);
            break;
        case APR_OC_REASON_RESTART:
            apr_proc_other_child_unregister(daemon);
            break;
        case APR_OC_REASON_UNREGISTER:
            if (!daemon->dead) kill(daemon->process.pid, SUPERSEDED);
            break;
        default:
            break;
    }
}

// While there is a socket new children do not wait: one that nobody listens at goes. A socket of another kind can be told from none without
// troubling the daemon.
void removeDeadSocket(const std::string &path) {
    sockaddr_un address{AF_UNIX, ""};
    if (path.size() >= sizeof address.sun_path) return;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe == -1) return;
    if (connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof address) == -1 && errno == ECONNREFUSED) unlink(path.c_str());
    close(probe);
}

// It outlives the configuration; the server's end is its own.
int start(Daemon *daemon) {
    apr_pool_t *lasting = daemon->server->process->pool;
    removeDeadSocket(serverConfig(daemon->server)->host.socketPath);
    const apr_status_t forked = apr_proc_fork(&daemon->process, daemon->pool);
    if (forked == APR_INCHILD) runDaemon(daemon->server);
    if (forked != APR_INPARENT) {
        ap_log_error(APLOG_MARK, APLOG_CRIT, forked, daemon->server, "the daemon cannot be started");
        return HTTP_INTERNAL_SERVER_ERROR;
    }
    daemon->dead = false;
    auto *process = static_cast<apr_proc_t *>(apr_pmemdup(lasting, &daemon->process, sizeof(apr_proc_t)));
    apr_pool_note_subprocess(lasting, process, APR_KILL_AFTER_TIMEOUT);
    apr_proc_other_child_register(&daemon->process, maintainDaemon, daemon, nullptr, daemon->pool);
    return OK;
}

} // namespace

int startDaemon(apr_pool_t *pool, server_rec *server) {
    auto *daemon = static_cast<Daemon *>(apr_pcalloc(pool, sizeof(Daemon)));
    daemon->pool = pool;
    daemon->server = server;
    return start(daemon);
}

} // namespace modtav
