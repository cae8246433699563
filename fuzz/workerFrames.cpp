// What a daemon sends to a worker. Requests go on whatever it is, and a complete sequence afterwards makes good what went wrong.
#include <sys/socket.h>
#include <unistd.h>

#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "support/Ipc.h"
#include "tav/tavControl.h"
#include "tav/tavRecord.h"
#include "tavMultiProcess/ipcStream.h"
#include "tavProcess/tavIpc.h"
#include "tavUtil/tavMemory.h"

namespace {

// As the worker's loop hears them, in pieces of `piece` bytes.
void hear(Tav *tav, const std::string &frames, size_t piece) {
    int fds[2];
    FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
    TavControlScope control("fuzz");
    IpcBuffer in{};
    IpcRead result = IpcRead::Incomplete;
    for (size_t at = 0; at < frames.size() && result != IpcRead::Failed; at += piece) {
        const std::string part = frames.substr(at, piece);
        FUZZ_CHECK(send(fds[0], part.data(), part.size(), 0) == static_cast<ssize_t>(part.size()));
        FUZZ_CHECK(ipcReceive(fds[1], &in));
        TavMessage msg;
        while ((result = ipcNextMessage(&in, &msg)) == IpcRead::Message) {
            tavClientProcessHandleMessage(tav, &msg);
            tavFree(msg.body);
        }
    }
    ipcBufferFree(&in);
    close(fds[0]);
    close(fds[1]);
}

std::string complete() {
    const std::string text = R"({"connectorGroupName": "g", "connectorURL": "http://127.0.0.1:1", )" + shop::document(1).substr(1);
    return ipcFrame(MT_S2C_BEGIN_ROUTING_INFO, "") + ipcFrame(MT_S2C_ROUTING_INFO, text) + ipcFrame(MT_S2C_END_ROUTING_INFO, "");
}

// The worker's dump after a complete sequence.
std::string takenWhole(const FuzzProcess &worker, const std::string &sequence) {
    hear(worker.tav, sequence, 60000);
    worker.settle();
    return worker.dump();
}

} // namespace

FUZZ_TARGET(fuzz_workerFrames) {
    const FuzzProcess &worker = FuzzProcess::worker();
    static const std::string good = complete();
    static const std::string expected = takenWhole(worker, good);
    FuzzInput input(data, size);
    const size_t piece = 1 + input.pick(2) * 60000 + input.pick(200);
    hear(worker.tav, fuzzFrames(input), piece);
    shop::serverFor(worker.tav, "/shop/x.jsp");
    FUZZ_CHECK(takenWhole(worker, good) == expected);
    FUZZ_CHECK(!worker.tav->newRoutingInfo);
    return 0;
}
