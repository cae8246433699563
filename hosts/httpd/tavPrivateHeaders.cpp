// The headers that the library adds to a request, on their way to the endpoint.
//
// A dozen of them in the request's own table would be searched, copied and written one by one by everything that the request passes. They
// stand in one text of their own instead, which joins the request behind its first line when that is sent. The client's of the same names
// leave the table when the library sets or removes them.
#include <algorithm>
#include <cstring>

#include "tavModule.h"

namespace modtav {

namespace {

// The names differ in their last letters; equal bits only cost a search.
uint64_t bitOf(const char *name, size_t length) {
    const auto last = length > 1 ? static_cast<unsigned>(name[length - 1]) * 5 + static_cast<unsigned>(name[length - 2]) * 7 : 0;
    return uint64_t{1} << (last & 63);
}

void reserve(apr_pool_t *pool, PrivateHeaders &headers, size_t more) {
    if (headers.length + more <= headers.capacity) return;
    headers.capacity = std::max<size_t>(256, 2 * (headers.length + more));
    char *text = static_cast<char *>(apr_palloc(pool, headers.capacity));
    if (headers.length) memcpy(text, headers.text, headers.length);
    headers.text = text;
}

// Takes the line out, into a new text: an earlier try may still be sending the old one.
void removeLine(apr_pool_t *pool, PrivateHeaders &headers, const char *name, size_t nameLength) {
    const char *const end = headers.text + headers.length;
    for (const char *line = headers.text, *next = nullptr; line < end; line = next) {
        next = static_cast<const char *>(memchr(line, '\n', static_cast<size_t>(end - line))) + 1;
        if (static_cast<size_t>(next - line) <= nameLength || memcmp(line, name, nameLength) != 0 || line[nameLength] != ':') continue;
        const auto before = static_cast<size_t>(line - headers.text), after = static_cast<size_t>(end - next);
        char *text = static_cast<char *>(apr_palloc(pool, headers.capacity));
        memcpy(text, headers.text, before);
        memcpy(text + before, next, after);
        headers.text = text;
        headers.length = before + after;
        return;
    }
}

// "name: value"; a value of several lines, such as a certificate, becomes one.
void addLine(apr_pool_t *pool, PrivateHeaders &headers, const char *name, size_t nameLength, const char *value) {
    const size_t valueLength = strlen(value);
    reserve(pool, headers, nameLength + valueLength + strlen(": " CRLF));
    char *at = headers.text + headers.length;
    memcpy(at, name, nameLength);
    at += nameLength;
    *at++ = ':';
    *at++ = ' ';
    memcpy(at, value, valueLength);
    for (char line : {'\r', '\n'}) {
        if (memchr(at, line, valueLength)) std::replace(at, at + valueLength, line, ' ');
    }
    at += valueLength;
    *at++ = '\r';
    *at++ = '\n';
    headers.length = static_cast<size_t>(at - headers.text);
}

// What follows the request line; null when the line's end is not there.
apr_bucket *behindFirstLine(apr_bucket_brigade *brigade) {
    for (apr_bucket *bucket = APR_BRIGADE_FIRST(brigade); bucket != APR_BRIGADE_SENTINEL(brigade); bucket = APR_BUCKET_NEXT(bucket)) {
        const char *data = nullptr;
        apr_size_t length = 0;
        if (APR_BUCKET_IS_METADATA(bucket) || apr_bucket_read(bucket, &data, &length, APR_NONBLOCK_READ) != APR_SUCCESS) continue;
        const auto *end = static_cast<const char *>(memchr(data, '\n', length));
        if (!end) continue;
        const auto line = static_cast<apr_size_t>(end + 1 - data);
        if (line < length && apr_bucket_split(bucket, line) != APR_SUCCESS) return nullptr;
        return APR_BUCKET_NEXT(bucket);
    }
    return nullptr;
}

} // namespace

void setPrivateHeader(EnvHttpContext *env, const char *name, const char *value) {
    request_rec *r = env->r;
    PrivateHeaders &headers = env->privateHeaders;
    const size_t length = strlen(name);
    const uint64_t bit = bitOf(name, length);
    apr_table_unset(r->headers_in, name);
    if (headers.names & bit) removeLine(r->pool, headers, name, length);
    if (!value) return;
    headers.names |= bit;
    addLine(r->pool, headers, name, length, value);
}

void sendPrivateHeaders(const EnvHttpContext *env, apr_bucket_brigade *brigade) {
    const PrivateHeaders &headers = env->privateHeaders;
    if (headers.length == 0) return;
    if (apr_bucket *next = behindFirstLine(brigade))
        APR_BUCKET_INSERT_BEFORE(next, apr_bucket_pool_create(headers.text, headers.length, env->r->pool, brigade->bucket_alloc));
}

} // namespace modtav
