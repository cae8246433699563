// What the library reads and changes in the back end's response: the partition table that a cluster announces, and the affinity cookie
// for servers that do not set one of their own form.
#include <cstring>
#include <string_view>

#include "tavHash/tavHash.h"
#include "tavHttpContext/hcInternal.h"
#include "tavRequestMapper/tavHttpAffinityPolicy.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavStringBuffer.h"

static constexpr const char *PARTITION_TABLE_HEADER = "$ZVPT";

static char *responseHeader(TavHttpContext *ctx, const char *name) noexcept {
    return hcCall(ctx, hcHost(ctx).response.getHeaderValue, nullptr, hcName(name));
}

static void setResponseHeader(TavHttpContext *ctx, const char *name, const char *value) noexcept {
    hcCall(ctx, hcHost(ctx).response.setHeaderValue, 0, hcName(name), hcName(value));
}

// ---- partition table ----

// Puts "key:value" into the map; an item without both is skipped. FALSE without memory.
static bool addPartition(TavHashMap *map, char *item) noexcept {
    char *last = nullptr;
    char *key = tavStrtok(item, ":", &last);
    char *value = key ? tavStrtok(nullptr, ":", &last) : nullptr;
    if (!value) return true;
    char *copy = tavStrdup(value);
    if (!copy) return false;
    void *displaced = tavHashPut(map, key, copy);
    tavFree(displaced);
    return displaced != copy;
}

// The table's data, the shared default for an empty one; null without memory. Cuts `table` into pieces.
static PartitionIDData *parsePartitionTable(char *table, const char *version) noexcept {
    TavHashMapPtr map(tavHashMapCreate2(tavFree));
    if (!map) return nullptr;
    char *last = nullptr;
    for (char *item = tavStrtok(table, ";", &last); item; item = tavStrtok(nullptr, ";", &last))
        if (!addPartition(map.get(), item)) return nullptr;
    if (tavHashMapGetCount(map.get()) == 0) return tsDefaultPartitionIDData();
    return tsPartitionIDDataCreate(map.release(), version);
}

static void storePartitionTable(TavHttpContext *ctx, char *table, const char *version) noexcept {
    PartitionIDData *data = parsePartitionTable(table, version);
    const char *cluster = tavTargetEndpointGetClusterName(ctx->targetEndpoint);
    TR_DEBUG(ctx->trContext, ctx->responseProcess, "tavHttpContextPerformResponseProcessing: partition table of cluster '%s', version %s\n",
             tavOrNull(cluster), version);
    if (!tavSetPartitionData(ctx->tav, cluster, data)) tsPartitionIDDataDelete(data); // a server that has no cluster
}

static void processPartitionTable(TavHttpContext *ctx) noexcept {
    const char *value = responseHeader(ctx, PARTITION_TABLE_HEADER);
    if (!value) return;
    TavText table(tavStrdup(value)); // the host may reuse its buffer for the next header
    const char *version = responseHeader(ctx, HC_PARTITION_VERSION_HEADER);
    if (!version) return;
    if (ctx->targetEndpoint && table) storePartitionTable(ctx, table.get(), version);
    setResponseHeader(ctx, PARTITION_TABLE_HEADER, nullptr);
    setResponseHeader(ctx, HC_PARTITION_VERSION_HEADER, nullptr);
}

// ---- session cookies ----

// The text after the first "=" of a Set-Cookie value that holds `name` anywhere; null for another one.
static const char *cookieText(const char *header, const char *name) noexcept {
    if (!header || !strstr(header, name)) return nullptr;
    const char *equals = strchr(header, '=');
    return equals && equals > header ? equals + 1 : nullptr;
}

static const char *cookieOfName(char *const *headers, const char *name) noexcept {
    for (; headers && *headers; headers++)
        if (const char *text = cookieText(*headers, name)) return text;
    return nullptr;
}

// An empty name would be contained in every header.
template <typename Find>
static const char *firstOfNames(const HttpAffinityPolicy *policy, Find find) noexcept {
    const char *const *names = hapGetCookieNames(policy);
    for (; names && *names; names++)
        if (const char *found = **names ? find(*names) : nullptr) return found;
    return nullptr;
}

// The response's session cookie (value and attributes), borrowed from the host; null when it sets none.
static const char *responseSessionCookie(TavHttpContext *ctx) noexcept {
    const auto &response = hcHost(ctx).response;
    if (response.getHeaderValues) {
        char **headers = response.getHeaderValues(ctx->envHttpContext, hcName(HC_SET_COOKIE_HEADER));
        return firstOfNames(ctx->policy, [&](const char *name) noexcept { return cookieOfName(headers, name); });
    }
    const char *header = responseHeader(ctx, HC_SET_COOKIE_HEADER);
    return firstOfNames(ctx->policy, [&](const char *name) noexcept { return cookieText(header, name); });
}

static bool requestHasSessionCookie(TavHttpContext *ctx) noexcept {
    auto slot = hcHost(ctx).request.getCookieValue;
    return firstOfNames(ctx->policy, [&](const char *name) noexcept -> const char * { return hcCall(ctx, slot, nullptr, hcName(name)); }) !=
           nullptr;
}

static const char *delimiterOf(const TavHttpContext *ctx) noexcept {
    const char *delimiter = hapGetDelimiter(ctx->policy);
    return delimiter ? delimiter : ":";
}

// "aa", the delimiter, the clone id and what follows it. Returns new; null without memory.
static char *affinityValue(const TavHttpContext *ctx, const char *cloneId, const char *rest, const char *rest2) noexcept {
    TavStringBufferPtr sb(sbCreate(128));
    if (!sb) return nullptr;
    for (const char *text : {"aa", delimiterOf(ctx), cloneId, rest, rest2}) sbAdd(sb.get(), text);
    return sb->failed ? nullptr : tavStrdup(sbStr(sb.get()));
}

// The same with the attributes of the server's own cookie. One without attributes gives none.
static char *createCookieValue(const TavHttpContext *ctx, const char *cloneId, const char *cookie) noexcept {
    const char *attributes = strchr(cookie, ';');
    return attributes ? affinityValue(ctx, cloneId, attributes, "") : nullptr;
}

// A host that sets no cookies by name gets the whole header. Null value: nothing is set.
static void setAffinityCookie(TavHttpContext *ctx, const char *name, const char *value) noexcept {
    if (!value) return;
    if (auto setCookie = hcHost(ctx).response.setCookieValue) {
        setCookie(ctx->envHttpContext, hcName(name), hcName(value));
        return;
    }
    TavStringBufferPtr sb(sbCreate(128));
    if (!sb) return;
    for (const char *text : {name, "=", value}) sbAdd(sb.get(), text);
    if (!sb->failed) setResponseHeader(ctx, HC_SET_COOKIE_HEADER, sbStr(sb.get()));
}

static bool hasText(const char *text) noexcept { return text && *text; }

// The second piece of the cookie's value is the clone id that the server gave itself. TRUE when there is one.
static bool learnCloneId(TavHttpContext *ctx, TargetServer *server, const char *cookie) noexcept {
    if (!hapGetLearnServerIDs(ctx->policy)) return false;
    TavText value(tavStrndup(cookie, strcspn(cookie, ";")));
    char **pieces = tavStrSplit(value.get(), delimiterOf(ctx));
    const char *cloneId = pieces && pieces[0] ? pieces[1] : nullptr;
    const bool learned = hasText(cloneId);
    if (learned) {
        tsServerSetPropStr(server, "id", cloneId);
        TR_DEBUG(ctx->trContext, ctx->responseProcess, "tavHttpContextPerformResponseProcessing: matched server %s for cloneID %s\n",
                 tavOrNull(tsServerGetName(server)), cloneId);
    }
    tavFreeStrSplitArray(pieces);
    return learned;
}

// A server that is no application server does not put its clone id into its own cookie: a second cookie carries it.
static void followSessionCookie(TavHttpContext *ctx, TargetServer *server, const char *cookie) noexcept {
    if (learnCloneId(ctx, server, cookie)) return;
    const char *cloneId = tsServerGetCloneId(server);
    if (!hasText(cloneId)) return;
    TavText value(createCookieValue(ctx, cloneId, cookie));
    setAffinityCookie(ctx, "ZVJSESSIONID", value.get());
}

// The cookie's name lacks the S after the J: it is another cookie than the one above.
static void setStickyCookie(TavHttpContext *ctx, TargetServer *server) noexcept {
    const char *cloneId = tsServerGetCloneId(server);
    if (!hasText(cloneId) || requestHasSessionCookie(ctx)) return;
    TavText value(affinityValue(ctx, cloneId, "; Path=", ctx->contextRoot ? ctx->contextRoot : ""));
    setAffinityCookie(ctx, "ZVJESSIONID", value.get());
}

static void processSessionCookies(TavHttpContext *ctx) noexcept {
    TargetServer *server = ctx->targetEndpoint ? tsEndPointGetServer(ctx->targetEndpoint) : nullptr;
    if (!server) return;
    const char *cookie = responseSessionCookie(ctx);
    if (!cookie) {
        if (ctx->sticky) setStickyCookie(ctx, server);
    } else if (tsServerGetType(server) != TAVSERVERTYPE_APPLICATION_SERVER) {
        followSessionCookie(ctx, server, cookie);
    }
}

int tavHttpContextPerformResponseProcessing(TavHttpContext *ctx) noexcept {
    if (!ctx) return -1;
    processPartitionTable(ctx);
    if (ctx->performedLoadBalancing) processSessionCookies(ctx);
    return 0;
}
