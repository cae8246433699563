// From a text to a document, and from a document to the connector that it belongs to.
#include <cstdio>
#include <cstring>

#include "tav/tavRecord.h"
#include "tavDocument.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

constexpr size_t MAX_DOCUMENT_SIZE = size_t{1} << 30; // positions and buffers are of 32 bits

json_t *refuse(Tav *tav, const char *source, const char *reason, int line) noexcept {
    char text[512];
    std::snprintf(text, sizeof text, "%s: %s (line %d)", tavOrNull(source), reason, line);
    TR_LOG(tav->trCtx, tav->invalidJSON, text);
    return nullptr;
}

} // namespace

json_t *tavParseJson(Tav *tav, const char *text, size_t len, const char *source) noexcept {
    if (!text) return refuse(tav, source, "no text", 0);
    if (len > MAX_DOCUMENT_SIZE) return refuse(tav, source, "larger than 1 GiB", 0);
    json_error_t error;
    error.line = 0;
    std::snprintf(error.text, sizeof error.text, "no memory");
    json_t *json = json_loadb(text, len, 0, &error);
    if (!json) return refuse(tav, source, error.text, error.line);
    if (json_is_object(json)) return json;
    json_decref(json);
    return refuse(tav, source, "not an object", 1);
}

TavConnector *tavFindConnectorFromJson(Tav *tav, json_t *json) noexcept {
#define FIND_DEBUG(...) TR_DEBUG(tav->trCtx, tav->ipcProcessRec, __VA_ARGS__)
    if (!json) {
        FIND_DEBUG("tavFindConnectorFromJson - null json");
        return nullptr;
    }
    const char *groupName = json_string_value(json_object_get(json, "connectorGroupName"));
    if (!groupName) {
        FIND_DEBUG("tavFindConnectorFromJson - json had no connector group name");
        return nullptr;
    }
    const char *url = json_string_value(json_object_get(json, "connectorURL"));
    if (!url) {
        FIND_DEBUG("tavFindConnectorFromJson - json had no connector URL");
        return nullptr;
    }
    TavConnectorGroup *cg = tavFindConnectorGroup(tav, groupName);
    if (!cg) {
        FIND_DEBUG("tavFindConnectorFromJson - did not find connector group %s", groupName);
        return nullptr;
    }
    TavConnector *c = tavConnectorGroupFindConnector(cg, url);
    if (!c) FIND_DEBUG("tavFindConnectorFromJson - did not find connector with URL %s", url);
    return c;
#undef FIND_DEBUG
}
