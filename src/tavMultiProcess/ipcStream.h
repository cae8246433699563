// Whole messages over a stream socket: a reader that collects what has arrived, frames that are sent whole, and a queue for those that
// could not be sent yet.
#ifndef TAVMULTIPROCESS_IPCSTREAM_H
#define TAVMULTIPROCESS_IPCSTREAM_H

#include <cstddef>

#include "tavMultiProcess.h"

// The largest body that is taken; a larger length is a framing error.
inline constexpr int32_t kIpcMaxBody = 1 << 30;
// A client that lets this much pile up is dropped.
inline constexpr size_t kIpcMaxQueue = size_t{1} << 30;

// A growing byte buffer read from the front.
typedef struct IpcBuffer {
    char *data;
    size_t begin, end, capacity;
} IpcBuffer;

size_t ipcBufferSize(const IpcBuffer *buffer) noexcept;
void ipcBufferFree(IpcBuffer *buffer) noexcept;

enum class IpcRead { Message, Incomplete, Failed };

// Takes what a non-blocking socket has to give. False: end of stream or error.
bool ipcReceive(int fd, IpcBuffer *in) noexcept;
// The next complete message of the buffer; its body (one byte longer than `len`, terminated) is the caller's to free with tavFree.
IpcRead ipcNextMessage(IpcBuffer *in, TavMessage *msg) noexcept;

// Header and body in one block, which every queue that it waits in shares. Constant but for its count.
typedef struct IpcFrame IpcFrame;
IpcFrame *ipcFrameCreate(const TavMessage *msg) noexcept; // copies the body; returns new, null without memory
IpcFrame *ipcFrameObtain(IpcFrame *frame) noexcept;       // returns the frame with one more reference; any thread
void ipcFrameRelease(IpcFrame *frame) noexcept;           // null ignored; any thread

// Frames that wait for the socket, in the order sent.
typedef struct IpcQueue {
    struct IpcQueueItem *head, *tail;
    size_t offset; // of the head's bytes that are out
    size_t bytes;  // that are not
} IpcQueue;

void ipcQueueFree(IpcQueue *queue) noexcept;
// Sends as much of the frame as the non-blocking socket takes and queues the rest. False: the stream is broken, the queue too long, or
// there is no memory for it; the stream may be inside a message then.
bool ipcSendOrQueue(int fd, IpcQueue *out, IpcFrame *frame) noexcept;
// Sends what is queued as far as it goes. False: the stream is broken.
bool ipcFlush(int fd, IpcQueue *out) noexcept;
// Sends the whole message on a blocking socket. False when any send took less than one byte.
bool ipcSendAll(int fd, const TavMessage *msg) noexcept;

#endif
