#include "processLoop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

#include "tavInstanceForProcess.h"
#include "tavThread/tavThread.h"

Boolean processInit(TavProcess *process, Tav *tav) noexcept {
    process->tav = tav;
    process->state = PS_NOT_RUNNING;
    process->trCtx = tavGetTrContext(tav);
    process->debugIPC = tavGetDebugIPC(tav);
    process->wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    process->socketWriteLock = tavLockCreateRanked(TavLockRank::SocketWrite);
    return process->wakeFd >= 0 && process->socketWriteLock;
}

void processFini(TavProcess *process) noexcept {
    if (process->wakeFd >= 0) close(process->wakeFd);
    tavLockDestroy(process->socketWriteLock);
}

int processStart(TavProcess *process, void (*run)(void *owner), void *owner) noexcept {
    int expected = PS_NOT_RUNNING;
    if (!process->state.compare_exchange_strong(expected, PS_STARTING)) return -1;
    tavObtainRef(process->tav, "processStart");
    if (tavThreadCreate(run, owner, tavGetEnvCallBacks(process->tav))) return 0;
    process->state = PS_NOT_RUNNING;
    tavReleaseRef(process->tav, "processStart");
    return -1;
}

bool processBegin(TavProcess *process) noexcept {
    process->loopThread = pthread_self();
    process->loopIsHere = true;
    int expected = PS_STARTING;
    return process->state.compare_exchange_strong(expected, PS_STARTED);
}

void processEnd(TavProcess *process) noexcept {
    // Never the last reference: whoever destroys the instance waits for this loop, and needs the control lock to go on.
    tavReleaseRef(process->tav, "processEnd");
    process->loopIsHere = false;
    process->state = PS_NOT_RUNNING;
    process->state.notify_all();
    tavControlUnlock();
}

bool processIsStopping(const TavProcess *process) noexcept { return process->state == PS_STOPPING; }

void processWake(TavProcess *process) noexcept {
    const uint64_t one = 1;
    ssize_t written;
    do {
        written = write(process->wakeFd, &one, sizeof one);
    } while (written < 0 && errno == EINTR);
}

void processStop(TavProcess *process) noexcept {
    if (process->state == PS_NOT_RUNNING) return;
    process->state = PS_STOPPING;
    processWake(process);
    if (process->loopIsHere && pthread_equal(process->loopThread, pthread_self())) return;
    tavControlUnlock();
    for (int state = process->state; state != PS_NOT_RUNNING; state = process->state) process->state.wait(state);
    tavControlLock("processStop");
}

int processWait(TavProcess *process, struct pollfd *fds, unsigned long count, int timeout) noexcept {
    fds[0] = {process->wakeFd, POLLIN, 0};
    tavControlUnlock();
    int ready;
    do {
        ready = poll(fds, count, timeout);
    } while (ready < 0 && errno == EINTR);
    const int error = errno;
    tavControlLock("processWait");
    if (ready > 0 && fds[0].revents) {
        uint64_t drained;
        while (read(process->wakeFd, &drained, sizeof drained) > 0) {
        }
    }
    errno = error;
    return ready;
}
