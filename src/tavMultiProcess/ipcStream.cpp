// Framing: twelve bytes of header, then the body. A message is handed on only when it is complete, and sent whole or queued.
#include "ipcStream.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
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

struct IpcFrame {
    std::atomic<int> refs;
    size_t size;

    char *bytes() noexcept { return reinterpret_cast<char *>(this + 1); }
};

struct IpcQueueItem {
    IpcFrame *frame; // counted
    IpcQueueItem *next;
};

namespace {

// An empty buffer larger than this gives its memory back.
constexpr size_t kIdleCapacity = size_t{1} << 18;

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
    if (buffer->begin != buffer->end) return;
    buffer->begin = buffer->end = 0;
    if (buffer->capacity > kIdleCapacity) ipcBufferFree(buffer);
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

// ---- frames and their queues ----

IpcFrame *ipcFrameCreate(const TavMessage *msg) noexcept {
    const TavMessageHdr hdr = headerOf(msg);
    const size_t len = hdr.len >= 1 ? static_cast<size_t>(hdr.len) : 0;
    auto *frame = static_cast<IpcFrame *>(tavMalloc(sizeof(IpcFrame) + sizeof hdr + len));
    if (!frame) return nullptr;
    frame->refs = 1;
    frame->size = sizeof hdr + len;
    memcpy(frame->bytes(), &hdr, sizeof hdr);
    if (len) memcpy(frame->bytes() + sizeof hdr, msg->body, len);
    return frame;
}

IpcFrame *ipcFrameObtain(IpcFrame *frame) noexcept {
    ++frame->refs;
    return frame;
}

void ipcFrameRelease(IpcFrame *frame) noexcept {
    if (frame && --frame->refs == 0) tavFree(frame);
}

namespace {

// What is left of `frame` from `*offset` on, as far as the socket takes it. False: the stream is broken.
bool sendSome(int fd, IpcFrame *frame, size_t *offset) noexcept {
    while (*offset < frame->size) {
        const ssize_t sent = sendRetry(fd, frame->bytes() + *offset, frame->size - *offset, MSG_DONTWAIT);
        if (sent < 0 && wouldBlock()) return true;
        if (sent < 1) return false;
        *offset += static_cast<size_t>(sent);
    }
    return true;
}

bool append(IpcQueue *queue, IpcFrame *frame, size_t offset) noexcept {
    auto *item = static_cast<IpcQueueItem *>(tavMalloc(sizeof(IpcQueueItem)));
    if (!item) return false;
    *item = {ipcFrameObtain(frame), nullptr};
    (queue->tail ? queue->tail->next : queue->head) = item;
    queue->tail = item;
    if (queue->head == item) queue->offset = offset;
    queue->bytes += frame->size - offset;
    return true;
}

void dropHead(IpcQueue *queue) noexcept {
    IpcQueueItem *item = queue->head;
    queue->head = item->next;
    if (!queue->head) queue->tail = nullptr;
    queue->offset = 0;
    ipcFrameRelease(item->frame);
    tavFree(item);
}

} // namespace

void ipcQueueFree(IpcQueue *queue) noexcept {
    while (queue->head) dropHead(queue);
    queue->bytes = 0;
}

bool ipcFlush(int fd, IpcQueue *out) noexcept {
    while (IpcQueueItem *item = out->head) {
        const size_t before = out->offset;
        if (!sendSome(fd, item->frame, &out->offset)) return false;
        out->bytes -= out->offset - before;
        if (out->offset < item->frame->size) return true;
        dropHead(out);
    }
    return true;
}

bool ipcSendOrQueue(int fd, IpcQueue *out, IpcFrame *frame) noexcept {
    size_t offset = 0;
    if (!out->head && !sendSome(fd, frame, &offset)) return false;
    if (offset == frame->size) return true;
    return out->bytes + frame->size <= kIpcMaxQueue && append(out, frame, offset);
}

bool ipcSendAll(int fd, const TavMessage *msg) noexcept {
    const TavMessageHdr hdr = headerOf(msg);
    if (!sendBlocking(fd, &hdr, sizeof hdr)) return false;
    return hdr.len < 1 || sendBlocking(fd, msg->body, static_cast<size_t>(hdr.len));
}
