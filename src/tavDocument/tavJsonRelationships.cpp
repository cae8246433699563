// The walk over an operation's relationships.
#include <cstring>

#include "tavStoredDocument.h"
#include "tavUtil/tavString.h"

namespace {

constexpr const char *kReloadKind = "vHostGroup:webModule";

// A kind's key, taken apart.
struct Kind {
    const char *name;
    const RelationshipHandler *handler;
    char first[32];
    const char *second;
};

bool readKind(const char *name, Kind *kind, ParseInfo *info) noexcept {
    const char *colon = std::strchr(name, ':');
    if (!colon) {
        DOC_REFUSE_ONCE(info, "relationship", "no colon found in relationship %s\n", name);
        return false;
    }
    const RelationshipHandler *handler = getRelationshipHandler(name);
    if (!handler) {
        DOC_REFUSE_ONCE(info, "relationship", "no relationship handler found for %s\n", name);
        return false;
    }
    *kind = {name, handler, {}, colon + 1};
    std::memcpy(kind->first, name, static_cast<size_t>(colon - name)); // the table's names are short
    return true;
}

// One name of an entry; null (with the log lines) when it is missing.
const char *readEnd(const Kind *kind, json_t *entry, const char *type, ParseInfo *info) noexcept {
    json_t *value = json_object_get(entry, type);
    if (json_is_string(value)) return json_string_value(value);
    if (info->stored && !value) DOC_DEBUG(info, "deltaRel: '%s' relationship has no '%s' type value\n", kind->name, type);
    if (info->stored && value) DOC_DEBUG(info, "deltaRel: '%s' relationship has no '%s' string value\n", kind->name, type);
    DOC_REFUSE_ONCE(info, "relationship", "skip relationship %s; type %s not found\n", kind->name, type);
    return nullptr;
}

Boolean refuseSet(const Kind *kind, ParseInfo *info) noexcept {
    if (info->op != SetOp) return FALSE;
    DOC_REFUSE_ONCE(info, "relationship", "unexpected %s operation in %s relationship\n", info->opName, kind->name);
    return TRUE;
}

// ---- the stored document ----

void mergePair(const Kind *kind, json_t *entry, const char *const names[2], ParseInfo *info) noexcept {
    if (refuseSet(kind, info)) return;
    if (info->op == DelOp && tavStrCmpIgnoreCase(kind->name, kReloadKind) == 0) {
        DOC_DEBUG(info, "relationship vHostGroup:webModule was deleted, setting resetRoutingInfo to TRUE to reload the URL matcher\n");
        info->resetRoutingInfo = TRUE;
    }
    const char *types[2] = {kind->first, kind->second};
    for (int i = 0; i < 2 && info->op == AddOp; i++) {
        if (storedDocumentsHaveObject(info, names[i], types[i])) continue;
        DOC_REFUSE(info, "relationship", "skip relationship %s; object %s not found\n", kind->name, names[i]);
        return;
    }
    deltaRel(kind->handler, entry, names, info);
}

// ---- the snapshot ----

Object *findEnd(const Kind *kind, const char *type, const char *name, ParseInfo *info) noexcept {
    const ObjectName parsed = objectNameScan(name, false);
    const ObjectWrapper *wrapper = tavObjectMapFind(info->ri, &parsed);
    if (wrapper && wrapper->object && std::strcmp(wrapper->handler->objectType, type) == 0) return wrapper->object;
    DOC_REFUSE_ONCE(info, "relationship", "skip relationship %s; object %s not found\n", kind->name, name);
    return nullptr;
}

void linkPair(const Kind *kind, const char *const names[2], ParseInfo *info) noexcept {
    Object *first = findEnd(kind, kind->first, names[0], info);
    Object *second = first ? findEnd(kind, kind->second, names[1], info) : nullptr;
    if (!second || refuseSet(kind, info)) return;
    const Boolean add = info->op == AddOp;
    if (add) {
        DOC_DEBUG(info, "adding relationship type %s between %s and %s\n", kind->name, names[0], names[1]);
    } else {
        DOC_DEBUG(info, "removing relationship type %s between %s and %s\n", kind->name, names[0], names[1]);
    }
    if (!kind->handler->link(first, second, add))
        DOC_REFUSE(info, "relationship", "relationship %s between %s and %s was not taken\n", kind->name, names[0], names[1]);
}

void handlePair(const Kind *kind, json_t *entry, ParseInfo *info) noexcept {
    if (json_is_null(entry)) return; // its pair was deleted
    const char *first = readEnd(kind, entry, kind->first, info);
    const char *second = first ? readEnd(kind, entry, kind->second, info) : nullptr;
    if (!second) return;
    const char *names[2] = {first, second};
    if (info->stored) mergePair(kind, entry, names, info);
    if (info->callObjectHandlers) linkPair(kind, names, info);
}

void handleKind(const char *name, json_t *entries, ParseInfo *info) noexcept {
    Kind kind;
    DocumentStep step(info, name);
    if (!readKind(name, &kind, info) || !json_is_array(entries)) return;
    DOC_DEBUG(info, "processing %ld %s relationships\n", static_cast<long>(json_array_size(entries)), name);
    DocumentStep place(info, size_t{0});
    for (size_t i = 0; i < json_array_size(entries) && !info->failed; i++) {
        place.setIndex(i);
        handlePair(&kind, json_array_get(entries, i), info);
    }
}

} // namespace

void jsonHandleRelationships(json_t *relationships, ParseInfo *info) noexcept {
    if (info->indexing || !json_is_object(relationships)) return; // pairs are indexed on the first need
    DOC_DEBUG(info, "jsonHandleRelationships - op=%s\n", info->opName);
    for (void *it = json_object_iter(relationships); it && !info->failed; it = json_object_iter_next(relationships, it))
        handleKind(json_object_iter_key(it), json_object_iter_value(it), info);
    DOC_DEBUG(info, "jsonHandleRelationships - exit\n");
}
