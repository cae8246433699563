// Whole messages over a stream socket: a reader that collects what has arrived and a queue for what could not be sent yet.
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
bool ipcBufferAppend(IpcBuffer *buffer, const void *data, size_t size) noexcept; // false without memory: nothing was added
void ipcBufferFree(IpcBuffer *buffer) noexcept;

enum class IpcRead { Message, Incomplete, Failed };

// Takes what a non-blocking socket has to give. False: end of stream or error.
bool ipcReceive(int fd, IpcBuffer *in) noexcept;
// The next complete message of the buffer; its body (one byte longer than `len`, terminated) is the caller's to free with tavFree.
IpcRead ipcNextMessage(IpcBuffer *in, TavMessage *msg) noexcept;

// Sends as much of the message as the non-blocking socket takes and queues the rest. False: the stream is broken or the queue too long.
bool ipcSendOrQueue(int fd, IpcBuffer *out, const TavMessage *msg) noexcept;
// Sends what is queued as far as it goes. False: the stream is broken.
bool ipcFlush(int fd, IpcBuffer *out) noexcept;
// Sends the whole message on a blocking socket. False when any send took less than one byte.
bool ipcSendAll(int fd, const TavMessage *msg) noexcept;

#endif
