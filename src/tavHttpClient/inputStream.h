// Buffered reading from a socket: lines, and exact numbers of bytes.
#ifndef TAVHTTPCLIENT_INPUTSTREAM_H
#define TAVHTTPCLIENT_INPUTSTREAM_H

#include <cstddef>

inline constexpr size_t HTTP_BUFFER_SIZE = 2048;

// One per call, over the caller's buffer of bufSize bytes and one more for a NUL.
typedef struct InputStream {
    int fd;
    size_t startIdx; // next unread byte
    size_t endIdx;   // end of the valid bytes
    char *bufPtr;
    size_t bufSize;
    bool eof;      // a receive returned 0 or an error; a time-out is one
    bool overlong; // a line did not fit into the buffer
} InputStream;

typedef struct Chunk {
    char *ptr; // NUL-terminated, in the record's own block
    size_t size;
} Chunk;

// The next line without its CR LF, or what is left when the stream ends. Null at the end, and with `overlong` set when a line fills the
// buffer. Borrowed from the buffer until the next read.
char *getNextLine(InputStream *stream) noexcept;
// Exactly `size` bytes; returns new (tavFree). Null when the stream ends before that, or without memory.
Chunk *getChunk(InputStream *stream, size_t size) noexcept;
// Up to `size` bytes into `dst`, fewer only when the stream ends. Returns how many.
size_t inputStreamRead(InputStream *stream, char *dst, size_t size) noexcept;

#endif
