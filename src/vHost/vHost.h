// One host:port pair, either of which may be "any": a host that is null or "*", a port of -1.
#ifndef VHOST_VHOST_H
#define VHOST_VHOST_H

#include <cstddef>
#include <string_view>

#include "URIMatcher/URIMatcher.h"

struct json_t;

inline constexpr int VHOST_ANY_PORT = -1;

typedef struct _VHost {
    TavRoutingInfo *ri; // borrowed; may be null
    char *host;         // may be null
    int port;
    URIMatcher *uriMatcher; // owned; may be null
    char *key;              // the host in lower case, "*" for none
} VHost;

// `host` is copied. Returns new, null without memory. The own matcher is named host + ":" + port.
VHost *VHostCreate(TavRoutingInfo *ri, const char *host, int port, Boolean withURIMatcher) noexcept;
VHost *VHostCreateWithURIMatcher(TavRoutingInfo *ri, const char *host, int port) noexcept;
void vHostDelete(VHost *vhost) noexcept; // null ignored

char *makeKey(const char *host) noexcept; // returns new: lower case, "*" for null; null without memory
const char *getKey(const VHost *vhost) noexcept;
const char *getHost(const VHost *vhost) noexcept;
int getPort(const VHost *vhost) noexcept;
URIMatcher *getVhostUriMatcher(const VHost *vhost) noexcept; // borrowed

Boolean isAnyHost(const VHost *vhost) noexcept;
Boolean isAnyPort(const VHost *vhost) noexcept;
// Equal ignoring case; never for a null or "*" host.
Boolean matchHost(const VHost *vhost, const char *host) noexcept;
Boolean matchPort(const VHost *vhost, int port) noexcept;
Boolean match(const VHost *vhost, const char *host, int port) noexcept;
// Both hosts any, or equal ignoring case; and the same port.
Boolean equals(const VHost *vhost, const char *host, int port) noexcept;
// The target of the own matcher when host and port match, else null.
void *matchAndgetURIMatcher(const VHost *vhost, const char *host, int port, const char *path) noexcept;
void *matchAndgetURIMatcherDebugCtx(const VHost *vhost, const char *host, int port, const char *path, TrContext *trCtx) noexcept;
int compare(const VHost *a, const VHost *b) noexcept; // by port: -1, 0, 1
char *intoch(int n) noexcept;                         // returns new decimal text

// "host" and "port" as texts. Returns new, null without memory.
json_t *vhostToJSON(const VHost *vhost) noexcept;

// ---- for the modules above ----
// Equal lengths and letters of any case; a null equals nothing.
Boolean vhostSameHost(const char *a, const char *b) noexcept;
Boolean vhostIsAnyHostName(const char *host) noexcept; // null or "*"
json_t *vhostPairToJSON(const char *host, int port) noexcept; // returns new {"host", "port"}, null without memory

#endif
