// The private request headers: what the back end learns about the client, whom only this process has seen. A client could send them
// itself, so every header is set, or removed when the request has no such property, unless the client is a trusted proxy.
#include <charconv>
#include <cstring>

#include "tavHttpContext/hcInternal.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"

static void setRequestHeader(TavHttpContext *ctx, const char *name, const char *value) noexcept {
    hcCall(ctx, hcHost(ctx).request.setHeaderValue, 0, hcName(name), hcName(value));
}

void tavHttpContextBreakAffinity(TavHttpContext *ctx) noexcept {
    if (ctx) setRequestHeader(ctx, "$ZVFO", "true");
}

// The cluster's partition version, or "". Copied to `buffer` or `longVersion`, because it may be replaced once the lock is released.
static const char *partitionVersion(TavHttpContext *ctx, char *buffer, size_t size, TavText *longVersion) noexcept {
    if (!ctx->targetEndpoint || !tavHasPartitionData(ctx->tav)) return "";
    const char *cluster = tavTargetEndpointGetClusterName(ctx->targetEndpoint);
    tavLockPartitionData(ctx->tav, "tavHttpContextAddPrivateHeaders");
    PartitionIDData *data = tavGetPartitionData(ctx->tav, cluster);
    const char *version = data ? tsPartitionIDDataGetVersion(data) : nullptr;
    size_t length = version ? strlen(version) : 0;
    if (length < size)
        memcpy(buffer, version ? version : "", length + 1);
    else
        longVersion->reset(tavStrdup(version));
    tavUnlockPartitionData(ctx->tav);
    return length < size ? buffer : *longVersion ? longVersion->get() : "";
}

static void addPartitionVersion(TavHttpContext *ctx) noexcept {
    char buffer[128];
    TavText longVersion;
    setRequestHeader(ctx, HC_PARTITION_VERSION_HEADER, partitionVersion(ctx, buffer, sizeof buffer, &longVersion));
}

static const char *portText(TavHttpContext *ctx) noexcept {
    int port = tavHttpContextGetVirtualPort(ctx);
    if (ctx->portText[0] && ctx->portOfText == port) return ctx->portText; // a pooled context mostly serves one port
    *std::to_chars(ctx->portText, ctx->portText + sizeof ctx->portText - 1, port).ptr = '\0';
    ctx->portOfText = port;
    return ctx->portText;
}

static bool isTrustedProxy(TavHttpContext *ctx, const char *clientIp) noexcept {
    return tavIsTrustedProxyEnabled(ctx->tav) && tavIsTrustedProxy(ctx->tav, clientIp);
}

static void addClientHeaders(TavHttpContext *ctx) noexcept {
    const auto &request = hcHost(ctx).request;
    const char *clientIp = hcCall(ctx, request.getClientIpAddr, nullptr);
    const bool keep = isTrustedProxy(ctx, clientIp);
    auto add = [&](const char *name, const char *value) noexcept {
        if (!keep || !hcCall(ctx, request.getHeaderValue, nullptr, hcName(name))) setRequestHeader(ctx, name, value);
    };
    add("$ZVRA", clientIp);
    add("$ZVRH", clientIp); // the address again: no name is looked up for this
    add("$ZVSN", hcCall(ctx, request.getVirtualHost, nullptr));
    add("$ZVSP", portText(ctx));
    add("$ZVPR", hcCall(ctx, request.getProtocolVersion, nullptr));
    const char *scheme = hcCall(ctx, request.getProtocol, nullptr);
    const bool secure = tavStrEquals(scheme, "https");
    add("$ZVSC", scheme);
    add("$ZVIS", secure ? "TRUE" : "FALSE");
    add("$ZVCC", hcCall(ctx, request.getClientCertificate, nullptr));
    add("$ZVCS", hcCall(ctx, request.getSSLCipherSuite, nullptr));
    add("$ZVSI", hcCall(ctx, request.getSSLSessionId, nullptr));
    add("$ZVAT", hcCall(ctx, request.getAuthType, nullptr));
    add("$ZVRU", hcCall(ctx, request.getUserName, nullptr));
}

void tavHttpContextAddPrivateHeaders(TavHttpContext *ctx) noexcept {
    if (!ctx || ctx->privateHeadersAdded) return;
    ctx->privateHeadersAdded = TRUE;
    addPartitionVersion(ctx);
    if (!tavPrivateHeadersDisabled(ctx->tav)) addClientHeaders(ctx);
}
