// Buffered reading from a socket. The end of the stream is sticky: after it only what is buffered comes out.
#include "tavHttpClient/inputStream.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tavUtil/tavMemory.h"

namespace {

// Receives at least one byte, or notes the end. `size` is not 0, for which a receive would look like the end.
size_t receive(InputStream *stream, char *dst, size_t size) noexcept {
    if (stream->eof) return 0;
    ssize_t got;
    do got = recv(stream->fd, dst, size, 0);
    while (got < 0 && errno == EINTR);
    stream->eof = got < 1;
    return stream->eof ? 0 : static_cast<size_t>(got);
}

char *takeLine(InputStream *stream, size_t length, size_t terminator) noexcept {
    char *line = stream->bufPtr + stream->startIdx;
    line[length] = '\0';
    stream->startIdx += length + terminator;
    return line;
}

void moveToFront(InputStream *stream) noexcept {
    const size_t left = stream->endIdx - stream->startIdx;
    memmove(stream->bufPtr, stream->bufPtr + stream->startIdx, left);
    stream->startIdx = 0;
    stream->endIdx = left;
}

} // namespace

char *getNextLine(InputStream *stream) noexcept {
    for (;;) {
        const char *unread = stream->bufPtr + stream->startIdx;
        const size_t left = stream->endIdx - stream->startIdx;
        const auto *end = static_cast<const char *>(memmem(unread, left, "\r\n", 2));
        if (end) return takeLine(stream, static_cast<size_t>(end - unread), 2);
        moveToFront(stream);
        if (stream->endIdx == stream->bufSize) {
            stream->overlong = true;
            return nullptr;
        }
        stream->endIdx += receive(stream, stream->bufPtr + stream->endIdx, stream->bufSize - stream->endIdx);
        if (stream->eof) return stream->endIdx ? takeLine(stream, stream->endIdx, 0) : nullptr;
    }
}

size_t inputStreamRead(InputStream *stream, char *dst, size_t size) noexcept {
    size_t done = std::min(size, stream->endIdx - stream->startIdx);
    memcpy(dst, stream->bufPtr + stream->startIdx, done);
    stream->startIdx += done;
    while (done < size && !stream->eof) done += receive(stream, dst + done, size - done);
    return done;
}

Chunk *getChunk(InputStream *stream, size_t size) noexcept {
    auto *chunk = static_cast<Chunk *>(tavMalloc(sizeof(Chunk) + size + 1));
    if (!chunk) return nullptr;
    chunk->ptr = reinterpret_cast<char *>(chunk + 1);
    chunk->size = size;
    if (inputStreamRead(stream, chunk->ptr, size) == size) return chunk;
    tavFree(chunk);
    return nullptr;
}
