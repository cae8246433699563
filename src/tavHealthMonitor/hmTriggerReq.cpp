// The block that carries a trigger between threads and processes. It comes off a socket too, so nothing in it is believed unchecked.
#include <climits>
#include <cstddef>
#include <cstring>

#include "tavHealthMonitor/hmInternal.h"
#include "tavUtil/tavMemory.h"

static_assert(sizeof(HealthPolicyTriggerReq) == 24 && offsetof(HealthPolicyTriggerReq, policyNameOffset) == 8);

namespace {

// Appends a text at `*offset` and moves it on; returns where the text begins.
int appendText(HealthPolicyTriggerReq *req, size_t *offset, const char *text) noexcept {
    const size_t begin = *offset;
    const size_t size = strlen(text) + 1;
    memcpy(reinterpret_cast<char *>(req) + begin, text, size);
    *offset += size;
    return static_cast<int>(begin);
}

// The text at `offset`, or null when it does not begin and end inside the block behind its fixed part.
const char *textAt(const HealthPolicyTriggerReq *req, size_t len, int offset) noexcept {
    if (offset < static_cast<int>(sizeof(*req)) || static_cast<size_t>(offset) >= len) return nullptr;
    const char *text = reinterpret_cast<const char *>(req) + offset;
    return memchr(text, '\0', len - static_cast<size_t>(offset)) ? text : nullptr;
}

} // namespace

HealthPolicyTriggerReq *hmTriggerReqCreate(const TriggerNames &names, Boolean triggered) noexcept {
    size_t len = sizeof(HealthPolicyTriggerReq);
    for (const char *text : {names.policy, names.server, names.connectorGroup, names.connectorUrl}) len += strlen(text) + 1;
    auto *req = len <= INT_MAX ? static_cast<HealthPolicyTriggerReq *>(tavMalloc(len)) : nullptr;
    if (!req) return nullptr;
    size_t offset = sizeof(*req);
    req->len = static_cast<int>(len);
    req->triggered = triggered;
    req->policyNameOffset = appendText(req, &offset, names.policy);
    req->serverNameOffset = appendText(req, &offset, names.server);
    req->connectorGroupNameOffset = appendText(req, &offset, names.connectorGroup);
    req->connectorUrlOffset = appendText(req, &offset, names.connectorUrl);
    return req;
}

Boolean hmTriggerReqFits(const HealthPolicyTriggerReq *req, int len) noexcept {
    return req && len >= static_cast<int>(sizeof(*req)) && req->len == len;
}

bool hmTriggerReqRead(const HealthPolicyTriggerReq *req, TriggerNames *names) noexcept {
    if (!req || req->len < static_cast<int>(sizeof(*req))) return false;
    const auto len = static_cast<size_t>(req->len);
    names->policy = textAt(req, len, req->policyNameOffset);
    names->server = textAt(req, len, req->serverNameOffset);
    names->connectorGroup = textAt(req, len, req->connectorGroupNameOffset);
    names->connectorUrl = textAt(req, len, req->connectorUrlOffset);
    return names->policy && names->server && names->connectorGroup && names->connectorUrl;
}
