// From a text to a document, and from a document to the connector that it belongs to.
#include <cstdio>
#include <cstring>

#include "tav/tavRecord.h"
#include "tavDocument.h"
#include "tavUtil/tavMemory.h"
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

json_t *loadOnce(const char *text, size_t len, json_error_t *error) noexcept {
    // Where the parser says nothing it had no memory. The code is the text's last byte.
    *error = {};
    std::snprintf(error->text, sizeof error->text, "no memory");
    error->text[JSON_ERROR_TEXT_LENGTH - 1] = json_error_out_of_memory;
    return json_loadb(text, len, 0, error);
}

// Counts a failure that comes of want of memory. The parser may call a text malformed then, but not twice at the same place.
json_t *load(const char *text, size_t len, json_error_t *error) noexcept {
    json_t *json = loadOnce(text, len, error);
    if (json) return json;
    bool noMemory = json_error_code(error) == json_error_out_of_memory;
    if (!noMemory) {
        json_error_t first = *error;
        json = loadOnce(text, len, error);
        noMemory = json_error_code(error) == json_error_out_of_memory || error->position != first.position;
    }
    if (!json && noMemory) tavNoteAllocationFailure();
    return json;
}

} // namespace

json_t *tavParseJson(Tav *tav, const char *text, size_t len, const char *source) noexcept {
    if (!text) return refuse(tav, source, "no text", 0);
    if (len > MAX_DOCUMENT_SIZE) return refuse(tav, source, "larger than 1 GiB", 0);
    json_error_t error;
    json_t *json = load(text, len, &error);
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
