// Framing: twelve bytes of header, then the body. A message is handed on only when it is complete, and sent whole or queued.
#include "ipcStream.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavTime.h"

size_t ipcBufferSize(const IpcBuffer *buffer) noexcept { return buffer->end - buffer->begin; }

void ipcBufferFree(IpcBuffer *buffer) noexcept {
    tavFree(buffer->data);
    *buffer = {};
}

namespace {

// Room for `size` more bytes at the end: by moving to the front, else by growing.
bool reserve(IpcBuffer *buffer, size_t size) noexcept {
    const size_t used = ipcBufferSize(buffer);
    if (buffer->capacity - buffer->end >= size) return true;
    if (buffer->capacity - used >= size) {
        memmove(buffer->data, buffer->data + buffer->begin, used);
    } else {
        const size_t capacity = std::max(buffer->capacity * 2, used + size);
        char *data = static_cast<char *>(tavMalloc(capacity));
        if (!data) return false;
        if (used) memcpy(data, buffer->data + buffer->begin, used);
        tavFree(buffer->data);
        buffer->data = data;
        buffer->capacity = capacity;
    }
    buffer->begin = 0;
    buffer->end = used;
    return true;
}

void consume(IpcBuffer *buffer, size_t size) noexcept {
    buffer->begin += size;
    if (buffer->begin == buffer->end) buffer->begin = buffer->end = 0;
}

ssize_t sendRetry(int fd, const void *data, size_t size, int flags) noexcept {
    ssize_t sent;
    do {
        sent = send(fd, data, size, MSG_NOSIGNAL | flags);
    } while (sent < 0 && errno == EINTR);
    return sent;
}

bool wouldBlock() noexcept { return errno == EAGAIN || errno == EWOULDBLOCK; }

TavMessageHdr headerOf(const TavMessage *msg) noexcept {
    TavMessageHdr hdr = msg->hdr;
    hdr.pid = tavGetMyPid();
    return hdr;
}

bool sendBlocking(int fd, const void *data, size_t size) noexcept {
    const char *at = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t sent = sendRetry(fd, at, size, 0);
        if (sent < 1) return false;
        at += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

} // namespace

bool ipcBufferAppend(IpcBuffer *buffer, const void *data, size_t size) noexcept {
    if (!reserve(buffer, size)) return false;
    if (size) memcpy(buffer->data + buffer->end, data, size);
    buffer->end += size;
    return true;
}

bool ipcReceive(int fd, IpcBuffer *in) noexcept {
    constexpr size_t kStep = 65536;
    // A sender that never pauses must not keep the loop here: the rest comes at the next turn.
    for (int turn = 0; turn < 16; ++turn) {
        if (!reserve(in, kStep)) return false;
        const ssize_t got = recv(fd, in->data + in->end, kStep, MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && wouldBlock()) return true;
        if (got < 1) return false;
        in->end += static_cast<size_t>(got);
        if (static_cast<size_t>(got) < kStep) return true;
    }
    return true;
}

IpcRead ipcNextMessage(IpcBuffer *in, TavMessage *msg) noexcept {
    TavMessageHdr hdr;
    if (ipcBufferSize(in) < sizeof hdr) return IpcRead::Incomplete;
    memcpy(&hdr, in->data + in->begin, sizeof hdr);
    if (hdr.len < 0 || hdr.len > kIpcMaxBody) return IpcRead::Failed;
    const size_t len = static_cast<size_t>(hdr.len);
    if (ipcBufferSize(in) < sizeof hdr + len) return IpcRead::Incomplete;
    char *body = nullptr;
    if (len > 0) {
        body = static_cast<char *>(tavMalloc(len + 1)); // zero-filled: terminated whatever was sent
        if (!body) return IpcRead::Failed;
        memcpy(body, in->data + in->begin + sizeof hdr, len);
    }
    consume(in, sizeof hdr + len);
    *msg = {hdr, body};
    return IpcRead::Message;
}

bool ipcFlush(int fd, IpcBuffer *out) noexcept {
    while (ipcBufferSize(out) > 0) {
        const ssize_t sent = sendRetry(fd, out->data + out->begin, ipcBufferSize(out), MSG_DONTWAIT);
        if (sent < 0 && wouldBlock()) return true;
        if (sent < 1) return false;
        consume(out, static_cast<size_t>(sent));
    }
    return true;
}

bool ipcSendOrQueue(int fd, IpcBuffer *out, const TavMessage *msg) noexcept {
    const TavMessageHdr hdr = headerOf(msg);
    const size_t len = hdr.len >= 1 ? static_cast<size_t>(hdr.len) : 0;
    if (ipcBufferSize(out) + sizeof hdr + len > kIpcMaxQueue) return false;
    // Room for the whole message first: what is queued is never half a message.
    if (!reserve(out, sizeof hdr + len)) return false;
    ipcBufferAppend(out, &hdr, sizeof hdr);
    ipcBufferAppend(out, msg->body, len);
    return ipcFlush(fd, out);
}

bool ipcSendAll(int fd, const TavMessage *msg) noexcept {
    const TavMessageHdr hdr = headerOf(msg);
    if (!sendBlocking(fd, &hdr, sizeof hdr)) return false;
    return hdr.len < 1 || sendBlocking(fd, msg->body, static_cast<size_t>(hdr.len));
}
