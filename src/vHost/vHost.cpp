// One host:port pair. Letters are compared without case, in every locale alike. The record owns its texts and its own matcher.
#include "vHost/vHost.h"

#include <cstring>

#include "tavUtil/tavJson.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

Boolean vhostSameHost(const char *a, const char *b) noexcept {
    if (!a || !b) return FALSE;
    for (; *a && tavAsciiLower(*a) == tavAsciiLower(*b); ++a) ++b;
    return *a == *b;
}

Boolean vhostIsAnyHostName(const char *host) noexcept { return !host || strcmp(host, "*") == 0; }

char *makeKey(const char *host) noexcept {
    char *key = tavStrdup(host ? host : "*");
    for (char *c = key; c && *c; ++c) *c = tavAsciiLower(*c);
    return key;
}

static URIMatcher *createOwnMatcher(TavRoutingInfo *ri, const char *host, int port) noexcept {
    const TavText portText(intoch(port));
    const TavText prefix(tavStrJoin(host ? host : "*", ":"));
    const TavText name(portText && prefix ? tavStrJoin(prefix.get(), portText.get()) : nullptr);
    return name ? URIMatcherCreate(ri, name.get()) : nullptr;
}

VHost *VHostCreate(TavRoutingInfo *ri, const char *host, int port, Boolean withURIMatcher) noexcept {
    auto *vhost = tavNewRecord<VHost>();
    if (!vhost) return nullptr;
    vhost->ri = ri;
    vhost->host = tavStrdup(host);
    vhost->port = port;
    vhost->key = makeKey(host);
    vhost->uriMatcher = withURIMatcher ? createOwnMatcher(ri, host, port) : nullptr;
    if (vhost->key && (vhost->host || !host) && (vhost->uriMatcher || !withURIMatcher)) return vhost;
    vHostDelete(vhost);
    return nullptr;
}

VHost *VHostCreateWithURIMatcher(TavRoutingInfo *ri, const char *host, int port) noexcept { return VHostCreate(ri, host, port, TRUE); }

void vHostDelete(VHost *vhost) noexcept {
    if (!vhost) return;
    URIMatcherDelete(vhost->uriMatcher);
    tavFree(vhost->key);
    tavFree(vhost->host);
    tavDestroyRecord(vhost);
}

const char *getKey(const VHost *vhost) noexcept { return vhost->key; }
const char *getHost(const VHost *vhost) noexcept { return vhost->host; }
int getPort(const VHost *vhost) noexcept { return vhost->port; }
URIMatcher *getVhostUriMatcher(const VHost *vhost) noexcept { return vhost->uriMatcher; }

Boolean isAnyHost(const VHost *vhost) noexcept { return vhostIsAnyHostName(vhost->host); }
Boolean isAnyPort(const VHost *vhost) noexcept { return vhost->port == VHOST_ANY_PORT; }

Boolean matchHost(const VHost *vhost, const char *host) noexcept { return !vhostIsAnyHostName(host) && vhostSameHost(vhost->host, host); }

Boolean matchPort(const VHost *vhost, int port) noexcept { return isAnyPort(vhost) || vhost->port == port; }

Boolean match(const VHost *vhost, const char *host, int port) noexcept {
    return matchPort(vhost, port) && (isAnyHost(vhost) || matchHost(vhost, host));
}

Boolean equals(const VHost *vhost, const char *host, int port) noexcept {
    const bool sameHost = vhostIsAnyHostName(host) ? isAnyHost(vhost) : matchHost(vhost, host);
    return sameHost && vhost->port == port;
}

void *matchAndgetURIMatcher(const VHost *vhost, const char *host, int port, const char *path) noexcept {
    if (!vhost->uriMatcher || !match(vhost, host, port)) return nullptr;
    return URIMatcherMatch(vhost->uriMatcher, path, nullptr);
}

void *matchAndgetURIMatcherDebugCtx(const VHost *vhost, const char *host, int port, const char *path, TrContext *trCtx) noexcept {
    void *target = matchAndgetURIMatcher(vhost, host, port, path);
    TR_DEBUG(trCtx, GET_TRREC(), "matchAndgetURIMatcher: vhost %s:%d host=%s port=%d path=%s %s\n", tavOrNull(vhost->host), vhost->port,
             tavOrNull(host), port, tavOrNull(path), target ? "matches" : "does not match");
    return target;
}

int compare(const VHost *a, const VHost *b) noexcept { return (a->port > b->port) - (a->port < b->port); }

char *intoch(int n) noexcept { return tavToString(n); }

json_t *vhostPairToJSON(const char *host, int port) noexcept {
    const TavText portText(intoch(port));
    if (!portText) return nullptr;
    JsonObject pair;
    pair.text("host", host);
    pair.text("port", portText.get());
    return pair.release();
}

json_t *vhostToJSON(const VHost *vhost) noexcept { return vhostPairToJSON(vhost->host ? vhost->host : "*", vhost->port); }
