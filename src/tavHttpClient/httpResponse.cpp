// Status line, headers and body of one response. Header names and values are compared with case, a value begins two characters after its
// colon, and only "Close" closes: the controller is known to speak like that, and everything else is a guess.
#include "tavHttpClient/httpResponse.h"

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>

#include "tavList/tavList.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

struct ResponseHead {
    int code = 0; // 0: the status line has no number
    bool hasLength = false;
    size_t length = 0;
    bool chunked = false;
    bool close = false;
};

// The second field of the line as a number.
int parseStatusCode(const char *line) noexcept {
    while (isspace(static_cast<unsigned char>(*line))) ++line;
    while (*line && !isspace(static_cast<unsigned char>(*line))) ++line;
    return tavParseInt(line);
}

bool readStatusLine(InputStream *stream, bool reused, ResponseHead *head) noexcept {
    char *line = getNextLine(stream);
    while (reused && line && !*line) line = getNextLine(stream);
    if (!line) return false;
    head->code = parseStatusCode(line);
    return true;
}

bool parseLength(const char *value, ResponseHead *head) noexcept {
    size_t length = 0;
    const char *digit = value;
    for (; *digit >= '0' && *digit <= '9' && length <= HTTP_MAX_BODY; ++digit) length = length * 10 + static_cast<size_t>(*digit - '0');
    if (!*value || *digit || length > HTTP_MAX_BODY) {
        printf("bad response: Content-Length response header value: %s\n", value);
        return false;
    }
    head->length = length;
    head->hasLength = true;
    return true;
}

bool parseHeader(char *line, ResponseHead *head) noexcept {
    char *colon = strchr(line, ':');
    if (!colon) return false;
    *colon = '\0';
    const char *value = colon[1] ? colon + 2 : "";
    if (strcmp(line, "Content-Length") == 0) return parseLength(value, head);
    if (strcmp(line, "Transfer-Encoding") == 0 && strcmp(value, "chunked") == 0) head->chunked = true;
    if (strcmp(line, "Connection") == 0 && strcmp(value, "Close") == 0) head->close = true;
    return true;
}

bool readHeaders(InputStream *stream, ResponseHead *head) noexcept {
    char *line = getNextLine(stream);
    for (; line && *line; line = getNextLine(stream)) {
        if (!parseHeader(line, head)) return false;
    }
    return !stream->overlong;
}

// The record, the body and its NUL are one block.
TavHttpResponse *createResponse(int code, size_t length) noexcept {
    auto *response = static_cast<TavHttpResponse *>(tavMalloc(sizeof(TavHttpResponse) + length + 1));
    if (!response) return nullptr;
    response->responseCode = code;
    response->body = reinterpret_cast<char *>(response + 1);
    return response;
}

TavHttpResponse *readCountedBody(InputStream *stream, const ResponseHead &head) noexcept {
    TavHttpResponse *response = createResponse(head.code, head.length);
    if (!response) return nullptr;
    const size_t got = inputStreamRead(stream, response->body, head.length);
    if (got == head.length) return response;
    printf("Didn't read entire body: %d bytes of %d read: '%s'\n", static_cast<int>(got), static_cast<int>(head.length), response->body);
    tavFree(response);
    return nullptr;
}

int hexDigit(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    const char lower = tavAsciiLower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The leading hexadecimal digits; -1 for a negative number and for one that no int holds.
long long parseChunkSize(const char *line) noexcept {
    if (*line == '-' && hexDigit(line[1]) >= 0) return -1;
    long long size = 0;
    for (; hexDigit(*line) >= 0; ++line) {
        size = size * 16 + hexDigit(*line);
        if (size > INT_MAX) return -1;
    }
    return size;
}

// The size of the next chunk, 0 for the end of the body, -1 for a failure. `total` bytes have come before.
long long readChunkSize(InputStream *stream, size_t total) noexcept {
    char *line = getNextLine(stream);
    while (line && !*line) line = getNextLine(stream); // the line end after each chunk's data
    if (!line) {
        printf("no chunk found; unexpected EOF");
        return -1;
    }
    const long long size = parseChunkSize(line);
    if (size >= 0 && total + static_cast<size_t>(size) <= HTTP_MAX_BODY) return size;
    printf("bad response: invalid chunk size: %s\n", line);
    return -1;
}

TavHttpResponse *joinChunks(const TavList *chunks, int code, size_t total) noexcept {
    TavHttpResponse *response = createResponse(code, total);
    if (!response) return nullptr;
    char *end = response->body;
    for (const Chunk *chunk : TavListRange<Chunk>(chunks)) {
        memcpy(end, chunk->ptr, chunk->size);
        end += chunk->size;
    }
    return response;
}

TavHttpResponse *readChunkedBody(InputStream *stream, const ResponseHead &head) noexcept {
    TavListPtr chunks(tavListCreate(tavFree));
    if (!chunks) return nullptr;
    size_t total = 0;
    for (;;) {
        const long long size = readChunkSize(stream, total);
        if (size < 0) return nullptr;
        if (size == 0) return joinChunks(chunks.get(), head.code, total);
        Chunk *chunk = getChunk(stream, static_cast<size_t>(size));
        if (!chunk || !tavListAddTail(chunks.get(), chunk)) return nullptr;
        total += static_cast<size_t>(size);
    }
}

} // namespace

TavHttpResponse *readHttpResponse(InputStream *stream, bool reused, bool *keepOpen) noexcept {
    ResponseHead head;
    if (!readStatusLine(stream, reused, &head) || !readHeaders(stream, &head)) return nullptr;
    *keepOpen = !head.close;
    if (head.chunked) return readChunkedBody(stream, head);
    if (head.hasLength) return readCountedBody(stream, head);
    printf("No Content-Length header or chunked encoding found\n");
    return nullptr;
}
