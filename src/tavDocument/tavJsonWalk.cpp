// The walk over a document's operations and object entries.
//
// One walk serves three passes, told apart by the parse context: indexing a complete document (tavStoredDocument.h), merging a delta into
// the stored document, and applying either to a snapshot. What makes an entry unfit is decided here for all three, so that the snapshot and
// the stored document cannot differ about it. A refused entry is passed over by itself; its children are entries of their own.
#include "tavJsonWalk.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "tavStoredDocument.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

void documentPathPush(ParseInfo *info, DocumentPath *frame) noexcept { info->path = frame; }

namespace {

// One turn over the members instead of a look-up for each.
EntryView readEntry(json_t *json) noexcept {
    EntryView entry{json, nullptr, nullptr, nullptr, nullptr, nullptr};
    for (void *it = json_object_iter(json); it; it = json_object_iter_next(json, it)) {
        const char *key = json_object_iter_key(it);
        json_t *value = json_object_iter_value(it);
        if (std::strcmp(key, "name") == 0) {
            entry.name = json_string_value(value);
        } else if (std::strcmp(key, "type") == 0) {
            entry.type = json_string_value(value);
        } else if (std::strcmp(key, "props") == 0) {
            entry.props = json_is_object(value) ? value : nullptr;
        } else if (std::strcmp(key, "objects") == 0) {
            entry.objects = json_is_object(value) || json_is_array(value) ? value : nullptr;
        }
    }
    return entry;
}

Boolean entryIsFit(EntryView *entry, ParseInfo *info) noexcept {
    if (!entry->type) {
        DOC_REFUSE_ONCE(info, "object", "object with no type\n");
        return FALSE;
    }
    entry->handler = getObjectHandler(entry->type);
    if (!entry->handler) {
        DOC_REFUSE_ONCE(info, "object", "no object handler for type %s\n", entry->type);
        return FALSE;
    }
    if (!entry->name) {
        DOC_REFUSE_ONCE(info, "object", "object of type %s with no name\n", entry->type);
        return FALSE;
    }
    if (info->op == AddOp && info->delta && entry->name[0] != '/') {
        DOC_REFUSE_ONCE(info, "object", "object of type %s: %s is not a full name\n", entry->type, entry->name);
        return FALSE;
    }
    return TRUE;
}

void noteReset(const EntryView *entry, ParseInfo *info) noexcept {
    if (!entry->handler->requiresRoutingInfoReset || info->resetRoutingInfo) return;
    info->resetRoutingInfo = TRUE;
    DOC_DEBUG(info, "jsonHandleObjects: set resetRoutingInfo to TRUE because object type=%s mandates it.\n", entry->type);
}

void walkObjects(json_t *json, const WalkLevel *above, ParseInfo *info, int depth, int nesting) noexcept;

void walkEntry(json_t *json, const WalkLevel *above, ParseInfo *info, int depth) noexcept {
    EntryView entry = readEntry(json);
    if (!entryIsFit(&entry, info)) return;
    noteReset(&entry, info);
    WalkLevel level{entry.name, std::strlen(entry.name), nullptr, nullptr};
    if (info->callObjectHandlers) {
        level.wrapper = jsonApplyEntry(&entry, above, info);
    } else if (info->stored) {
        level.stored = deltaObjects(&entry, above, info);
    }
    if (!entry.objects || info->failed) return;
    DocumentStep step(info, "objects");
    walkObjects(entry.objects, &level, info, depth + 1, 0);
}

void walkObjects(json_t *json, const WalkLevel *above, ParseInfo *info, int depth, int nesting) noexcept {
    if (depth >= DOCUMENT_MAX_DEPTH || nesting >= DOCUMENT_MAX_DEPTH) {
        DOC_REFUSE_ONCE(info, "object", "jsonHandleObjects: skip objects under %s; nesting deeper than %d\n", tavOrNull(above->name),
                        DOCUMENT_MAX_DEPTH);
        return;
    }
    if (json_is_object(json)) {
        if (nesting == 0) info->array = nullptr;
        return walkEntry(json, above, info, depth);
    }
    if (!json_is_array(json)) {
        if (!json_is_null(json))
            DOC_REFUSE_ONCE(info, "object", "deltaObjects: skip array element with no name under %s\n", tavOrNull(above->name));
        return;
    }
    DocumentStep step(info, size_t{0});
    for (size_t i = 0; i < json_array_size(json) && !info->failed; i++) {
        step.setIndex(i);
        info->array = json;
        walkObjects(json_array_get(json, i), above, info, depth, nesting + 1);
    }
}

void appendPointer(std::string *text, const DocumentPath *path) {
    if (!path) return;
    appendPointer(text, path->up);
    *text += '/';
    if (!path->key) {
        *text += std::to_string(path->index);
        return;
    }
    for (const char *p = path->key; *p; p++) {
        if (*p == '~') {
            *text += "~0";
        } else if (*p == '/') {
            *text += "~1";
        } else {
            *text += *p;
        }
    }
}

constexpr const char *kOpNames[] = {"add", "del", "set"};

} // namespace

void documentFinding(const ParseInfo *info, const char *kind, const char *format, ...) noexcept {
    if (!info->observer || !info->observer->finding) return;
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (char *end = std::strrchr(text, '\n'); end && !end[1]) *end = '\0';
    try {
        std::string pointer;
        appendPointer(&pointer, info->path);
        info->observer->finding(info->observer->passback, pointer.c_str(), kind, text);
    } catch (const std::bad_alloc &) {
        info->observer->finding(info->observer->passback, "", kind, text);
    }
}

void jsonHandleObjects(json_t *json, const char *parentName, ParseInfo *info, int depth) noexcept {
    const WalkLevel above{parentName, parentName ? std::strlen(parentName) : 0, nullptr, nullptr};
    if (json) walkObjects(json, &above, info, depth, 0);
}

namespace {

void handleMember(json_t *opValue, const char *key, ParseInfo *info, void (*handle)(json_t *, ParseInfo *) noexcept) noexcept {
    json_t *value = json_object_get(opValue, key);
    if (!value || info->failed) return;
    DocumentStep step(info, key);
    handle(value, info);
}

void handleObjects(json_t *objects, ParseInfo *info) noexcept {
    if (json_is_array(objects) || json_is_object(objects)) jsonHandleObjects(objects, nullptr, info, 0);
}

} // namespace

void jsonHandleOp(json_t *opValue, ParseInfo *info) noexcept {
    if (info->op == DelOp) handleMember(opValue, "relationships", info, jsonHandleRelationships);
    handleMember(opValue, "objects", info, handleObjects);
    if (info->op != DelOp) handleMember(opValue, "relationships", info, jsonHandleRelationships);
}

int64_t jsonHandle(json_t *document, ParseInfo *info) noexcept {
    if (!document) return -1;
    const int64_t version = json_integer_value(json_object_get(document, "version"));
    const json_t *restVersion = json_object_get(document, "restVersion");
    info->document = document;
    tavConnectorSetProcessingJSON(info->c, TRUE, TRUE);
    tavConnectorSetRestVersion(info->c, json_is_integer(restVersion) ? json_integer_value(restVersion) : -1);
    for (const OpType op : {DelOp, AddOp, SetOp}) {
        info->op = op;
        info->opName = kOpNames[op];
        json_t *opValue = json_object_get(document, info->opName);
        if (!json_is_object(opValue) || info->failed) continue;
        DocumentStep step(info, info->opName);
        jsonHandleOp(opValue, info);
    }
    tavConnectorSetProcessingJSON(info->c, FALSE, TRUE);
    return version;
}
