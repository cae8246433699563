// What a worker sends to the daemon, over its socket. The daemon ends that connection and no other, and forgets what the worker told.
#include <unistd.h>

#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "support/Ipc.h"
#include "tav/tavControl.h"
#include "tav/tavRecord.h"
#include "tavProcess/tavSapp.h"
#include "tavUtil/tavMemory.h"

namespace {

// Sends all of it and reads until the daemon has closed the connection.
void say(const std::string &frames) {
    const int fd = ipcConnect(FuzzProcess::path());
    FUZZ_CHECK(fd >= 0);
    for (size_t sent = 0; sent < frames.size();) {
        const ssize_t more = send(fd, frames.data() + sent, frames.size() - sent, MSG_NOSIGNAL);
        if (more < 1) break; // it has had enough
        sent += static_cast<size_t>(more);
    }
    shutdown(fd, SHUT_WR);
    char buffer[65536];
    while (recv(fd, buffer, sizeof buffer, 0) > 0) {
    }
    close(fd);
}

void forget(const FuzzProcess &daemon) {
    {
        TavControlScope control("fuzz");
        for (auto [name, entry] : TavHashRange<TavRoutingSapp>(daemon.tav->sappMap)) FUZZ_CHECK(tavListIsEmpty(entry->pids));
        c2sResetInfo(daemon.tav, daemon.connector);
        hmResetInfo(daemon.tav);
    }
    daemon.settle();
}

} // namespace

FUZZ_TARGET(fuzz_daemonFrames) {
    FuzzProcess &daemon = FuzzProcess::daemon();
    FuzzInput input(data, size);
    say(""); // renders the document
    forget(daemon);
    const int before = tavGetMemCount();
    say(fuzzFrames(input));
    FUZZ_CHECK(tavServerProcessGetClientCount(daemon.tav->serverProcess) == 0);
    forget(daemon);
    FUZZ_CHECK(systemBlocksBackTo(before));
    return 0;
}
