// Relationship entries of the stored document.
#include "tavStoredDocument.h"
#include "tavUtil/tavString.h"

#include <cstring>

namespace {

uint32_t pairHash(int kind, const char *first, const char *second) noexcept {
    return static_cast<uint32_t>(tavHashCompute(first)) * 31U + static_cast<uint32_t>(tavHashCompute(second)) + static_cast<uint32_t>(kind);
}

StoredPair *findPair(const TavStoredDocument *stored, int kind, const char *first, const char *second) noexcept {
    return stored->pairs.find(pairHash(kind, first, second), [=](const StoredPair *pair) {
        return pair->kind == kind && std::strcmp(pair->first, first) == 0 && std::strcmp(pair->second, second) == 0;
    });
}

// The two texts of an entry, in the order of the kind's types; FALSE when one is missing.
Boolean readNames(const char *kind, json_t *entry, const char *names[2]) noexcept {
    char first[32] = {}; // the table's names are short
    const char *colon = std::strchr(kind, ':');
    std::memcpy(first, kind, static_cast<size_t>(colon - kind));
    names[0] = json_string_value(json_object_get(entry, first));
    names[1] = json_string_value(json_object_get(entry, colon + 1));
    return names[0] && names[1];
}

Boolean addEnd(TavStoredDocument *stored, StoredPair *pair, const char *name) noexcept {
    StoredPairEnd *end = stored->ends.take();
    if (!end) return FALSE;
    end->hash = static_cast<uint32_t>(tavHashCompute(name));
    end->pair = pair;
    if (stored->ends.insert(end)) return TRUE;
    stored->ends.give(end);
    return FALSE;
}

void removeEnd(TavStoredDocument *stored, const StoredPair *pair, const char *name) noexcept {
    StoredPairEnd *end =
        stored->ends.find(static_cast<uint32_t>(tavHashCompute(name)), [pair](const StoredPairEnd *at) { return at->pair == pair; });
    if (end) stored->ends.remove(end);
}

// Puts the entry at `position` of the kind's array into the index. Null without memory.
StoredPair *indexPair(TavStoredDocument *stored, int kind, json_t *entry, const char *const names[2], size_t position) noexcept {
    StoredPair *pair = stored->pairs.take();
    if (!pair) return nullptr;
    pair->hash = pairHash(kind, names[0], names[1]);
    pair->position = static_cast<uint32_t>(position);
    pair->entry = entry;
    pair->kind = kind;
    pair->first = names[0];
    pair->second = names[1];
    if (!stored->pairs.insert(pair)) {
        stored->pairs.give(pair);
        return nullptr;
    }
    if (addEnd(stored, pair, pair->first) && addEnd(stored, pair, pair->second)) return pair;
    removeEnd(stored, pair, pair->first);
    stored->pairs.remove(pair);
    return nullptr;
}

Boolean indexKind(TavStoredDocument *stored, int index, const char *kind, json_t *array) noexcept {
    stored->kinds[index].array = array;
    for (size_t i = 0; i < json_array_size(array); i++) {
        json_t *entry = json_array_get(array, i);
        const char *names[2];
        if (readNames(kind, entry, names) && !indexPair(stored, index, entry, names, i)) return FALSE;
    }
    return TRUE;
}

Boolean indexPairs(TavStoredDocument *stored) noexcept {
    if (stored->pairsIndexed) return TRUE;
    json_t *kinds = json_object_get(json_object_get(stored->document, "add"), "relationships");
    for (void *it = json_object_iter(kinds); it; it = json_object_iter_next(kinds, it)) {
        const char *kind = json_object_iter_key(it);
        const RelationshipHandler *handler = getRelationshipHandler(kind);
        json_t *array = json_object_iter_value(it);
        if (!handler || !json_is_array(array) || indexKind(stored, relationshipHandlerIndex(handler), kind, array)) continue;
        stored->pairs.clear();
        stored->ends.clear();
        return FALSE;
    }
    stored->pairsIndexed = TRUE;
    return TRUE;
}

// The member of that type, made when missing. Null without memory.
json_t *obtainMember(json_t *parent, const char *key, json_type type) noexcept {
    json_t *member = json_object_get(parent, key);
    if (member && json_typeof(member) == type) return member;
    member = type == JSON_ARRAY ? json_array() : json_object();
    return json_object_set_new(parent, key, member) == 0 ? member : nullptr;
}

// The kind's array, made when missing. Null without memory.
json_t *obtainKindArray(TavStoredDocument *stored, const RelationshipHandler *handler) noexcept {
    StoredKind *kind = &stored->kinds[relationshipHandlerIndex(handler)];
    if (kind->array) return kind->array;
    json_t *add = obtainMember(stored->document, "add", JSON_OBJECT);
    json_t *kinds = add ? obtainMember(add, "relationships", JSON_OBJECT) : nullptr;
    return kind->array = kinds ? obtainMember(kinds, handler->relationshipName, JSON_ARRAY) : nullptr;
}

StoredPair *insertPair(TavStoredDocument *stored, const RelationshipHandler *handler, json_t *entry) noexcept {
    json_t *array = obtainKindArray(stored, handler);
    json_t *copy = array ? json_deep_copy(entry) : nullptr;
    if (!copy || json_array_append_new(array, copy) != 0) return nullptr;
    const char *names[2];
    readNames(handler->relationshipName, copy, names);
    const size_t position = json_array_size(array) - 1;
    StoredPair *pair = indexPair(stored, relationshipHandlerIndex(handler), copy, names, position);
    if (!pair) json_array_remove(array, position);
    return pair;
}

// Without memory the array stays as it is.
void closeUp(TavStoredDocument *stored, int index, const char *kind) noexcept {
    json_t *array = stored->kinds[index].array;
    json_t *kept = json_array();
    bool complete = kept != nullptr;
    for (size_t i = 0; complete && i < json_array_size(array); i++) {
        json_t *entry = json_array_get(array, i);
        if (!json_is_null(entry)) complete = json_array_append(kept, entry) == 0;
    }
    if (complete) {
        json_array_clear(array); // keeps its room
        json_array_extend(array, kept);
        stored->kinds[index].holes = 0;
        for (size_t i = 0; i < json_array_size(array); i++) {
            json_t *entry = json_array_get(array, i);
            const char *names[2];
            if (!readNames(kind, entry, names)) continue;
            StoredPair *pair =
                stored->pairs.find(pairHash(index, names[0], names[1]), [entry](const StoredPair *at) { return at->entry == entry; });
            if (pair) pair->position = static_cast<uint32_t>(i);
        }
    }
    json_decref(kept);
}

void removePair(TavStoredDocument *stored, StoredPair *pair) noexcept {
    StoredKind *kind = &stored->kinds[pair->kind];
    const int index = pair->kind;
    const uint32_t position = pair->position;
    removeEnd(stored, pair, pair->first);
    removeEnd(stored, pair, pair->second);
    stored->pairs.remove(pair);
    json_array_set_new(kind->array, position, json_null());
    if (++kind->holes > 32 && kind->holes > json_array_size(kind->array) / 2)
        closeUp(stored, index, relationshipHandlerAt(index)->relationshipName);
}

} // namespace

namespace {

struct NamedBy {
    const char *name;
    bool operator()(const StoredPairEnd *end) const noexcept {
        return std::strcmp(end->pair->first, name) == 0 || std::strcmp(end->pair->second, name) == 0;
    }
};

} // namespace

Boolean storedDocumentGatherPairs(ParseInfo *info, const char *name) noexcept {
    TavStoredDocument *stored = info->stored;
    if (!indexPairs(stored)) return FALSE;
    bool complete = true;
    // A predicate that is never true: it visits the ends of that hash.
    stored->ends.find(static_cast<uint32_t>(tavHashCompute(name)), [&](const StoredPairEnd *end) {
        if (!complete || !NamedBy{name}(end)) return false;
        json_t *del = obtainMember(info->document, "del", JSON_OBJECT);
        json_t *kinds = del ? obtainMember(del, "relationships", JSON_OBJECT) : nullptr;
        json_t *array = kinds ? obtainMember(kinds, relationshipHandlerAt(end->pair->kind)->relationshipName, JSON_ARRAY) : nullptr;
        complete = array && json_array_append(array, end->pair->entry) == 0;
        return false;
    });
    return complete;
}

void storedDocumentDropPairs(TavStoredDocument *stored, const char *name) noexcept {
    const auto hash = static_cast<uint32_t>(tavHashCompute(name));
    while (StoredPairEnd *end = stored->ends.find(hash, NamedBy{name})) removePair(stored, end->pair);
}

void deltaRel(const RelationshipHandler *handler, json_t *entry, const char *const names[2], ParseInfo *info) noexcept {
    TavStoredDocument *stored = info->stored;
    const char *kind = handler->relationshipName;
    if (!indexPairs(stored)) {
        info->failed = TRUE;
        return;
    }
    StoredPair *pair = findPair(stored, relationshipHandlerIndex(handler), names[0], names[1]);
    const bool adding = info->op == AddOp;
    if (adding == (pair != nullptr)) {
        DOC_REFUSE(info, "relationship", "deltaRel: %s failure: reason='%s', type='%s', name1='%s', name2='%s'\n", info->opName,
                   adding ? "already exists" : "delete", kind, names[0], names[1]);
        return;
    }
    if (!adding) {
        removePair(stored, pair);
        DOC_DEBUG(info, "deltaRel: successful deletion: relationship='%s', name1='%s', name2='%s'\n", kind, names[0], names[1]);
        return;
    }
    info->jsonToAdd = entry;
    if (!insertPair(stored, handler, entry)) info->failed = TRUE;
    info->jsonToAdd = nullptr;
    if (info->failed) return;
    DOC_DEBUG(info, "deltaRel: successful addition: relationship='%s', name1='%s', name2='%s'\n", kind, names[0], names[1]);
}
