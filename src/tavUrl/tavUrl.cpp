// Taking an absolute URL apart: the working copy is cut in place at "://" and ":", the path keeps its "/" in a copy of its own.
#include "tavUrl/tavUrl.h"

#include <climits>
#include <cstring>

#include "tavUtil/tavMemory.h"

// The decimal value of a text that is all digits, else -1.
static int parsePort(const char *text) noexcept {
    long long value = 0;
    if (!*text) return -1;
    for (; *text; ++text) {
        if (*text < '0' || *text > '9') return -1;
        value = value * 10 + (*text - '0');
        if (value > INT_MAX) return -1;
    }
    return static_cast<int>(value);
}

static bool defaultPort(const char *protocol, int *port) noexcept {
    static constexpr struct {
        const char *protocol;
        int port;
    } DEFAULTS[] = {{"http", 80}, {"https", 443}};
    for (const auto &entry : DEFAULTS) {
        if (strcmp(entry.protocol, protocol) != 0) continue;
        *port = entry.port;
        return true;
    }
    return false;
}

// Cuts `record->url`. FALSE without memory or port.
static bool cutUrl(TavUrl *record) noexcept {
    char *mark = strstr(record->url, "://");
    if (!mark) return false;
    *mark = '\0';
    record->protocol = record->url;
    record->host = mark + 3;
    char *slash = strchr(record->host, '/');
    record->path = tavStrdup(slash ? slash : "/");
    if (slash) *slash = '\0';
    char *colon = strchr(record->host, ':');
    if (colon) *colon = '\0';
    if (!colon && !defaultPort(record->protocol, &record->port)) return false;
    if (colon) record->port = parsePort(colon + 1);
    return record->path != nullptr;
}

TavUrl *tavUrlCreate(const char *text) noexcept {
    auto *record = text ? tavNewRecord<TavUrl>() : nullptr;
    if (!record) return nullptr;
    record->url = tavStrdup(text);
    if (record->url && cutUrl(record)) return record;
    tavUrlDelete(record);
    return nullptr;
}

const char *tavUrlGetProtocol(const TavUrl *url) noexcept { return url ? url->protocol : nullptr; }
const char *tavUrlGetHost(const TavUrl *url) noexcept { return url ? url->host : nullptr; }
int tavUrlGetPort(const TavUrl *url) noexcept { return url ? url->port : -1; }
const char *tavUrlGetPath(const TavUrl *url) noexcept { return url ? url->path : nullptr; }

void tavUrlDelete(TavUrl *url) noexcept {
    if (!url) return;
    tavFree(url->path);
    tavFree(url->url);
    tavDestroyRecord(url);
}
