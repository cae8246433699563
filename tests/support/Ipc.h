// What a daemon and its workers send each other, put together by hand.
#ifndef SUPPORT_IPC_H
#define SUPPORT_IPC_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <memory>
#include <string>

#include "tavHealthMonitor/hmInternal.h"
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavMultiProcess/tavMultiProcess.h"

// `wrong` is added to the length.
inline std::string ipcFrame(int type, const std::string &body = "", int wrong = 0) {
    const TavMessageHdr hdr = {type, 4711, static_cast<int>(body.size()) + wrong};
    return std::string(reinterpret_cast<const char *>(&hdr), sizeof hdr) + body;
}

// A socket that is connected to the path; -1 when nobody listens there.
inline int ipcConnect(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 ? fd : -1;
}

// A health trigger as a worker sends it.
inline std::string triggerBlock(bool triggered, const char *policy, const char *server, const char *group, const char *url) {
    std::string texts;
    int head[6] = {0, triggered ? 1 : 0, 0, 0, 0, 0};
    for (int i = 0; i < 4; i++) {
        head[2 + i] = static_cast<int>(sizeof head + texts.size());
        const char *const all[] = {policy, server, group, url};
        texts.append(all[i], strlen(all[i]) + 1);
    }
    head[0] = static_cast<int>(sizeof head + texts.size());
    return std::string(reinterpret_cast<const char *>(head), sizeof head) + texts;
}

// Gives the daemon such a block, or nearly, from memory of exactly that size: a read past it is seen. The control lock must be held.
inline void receiveTrigger(Tav *tav, const std::string &bytes, int reporter) {
    const std::unique_ptr<char[]> copy(new char[bytes.size()]);
    memcpy(copy.get(), bytes.data(), bytes.size());
    const auto *req = reinterpret_cast<const HealthPolicyTriggerReq *>(copy.get());
    if (hmTriggerReqFits(req, static_cast<int>(bytes.size()))) hmServerProcessHandleMessage(tav, req, reporter);
}

#endif
