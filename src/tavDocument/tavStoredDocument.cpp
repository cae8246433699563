// Object entries of the stored document: taking a complete document in, and merging a delta's entries.
//
// An entry is merged whole or not at all: what it needs is built aside first, then put in place by steps that need no memory or that can
// be undone. Its children are merged as entries of their own.
#include "tavStoredDocument.h"

#include <cstring>

#include "tav/tavRecord.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

struct JsonDecref {
    void operator()(json_t *json) const noexcept { json_decref(json); }
};
using JsonPtr = std::unique_ptr<json_t, JsonDecref>;

// ---- finding ----

StoredObject *findObject(const TavStoredDocument *stored, const char *name, size_t length, int hash) noexcept {
    return stored->objects.find(static_cast<uint32_t>(hash), [name, length](const StoredObject *object) {
        return std::strncmp(object->name, name, length) == 0 && object->name[length] == '\0';
    });
}

StoredObject *findByName(const TavStoredDocument *stored, const ObjectName *name) noexcept {
    return findObject(stored, name->text, name->length, name->hash);
}

StoredObject *findParent(const TavStoredDocument *stored, const ObjectName *name, const WalkLevel *above) noexcept {
    if (!name->hasParent) return nullptr;
    if (above->stored && objectNameHasParent(name, above->name, above->length)) return above->stored;
    return findObject(stored, name->text, name->parentLength, name->parentHash);
}

// In the documents of the other groups, which one snapshot is built from as well.
const StoredObject *findElsewhere(const ParseInfo *info, const char *name, size_t length, int hash) noexcept {
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(info->tav->connectorGroupList)) {
        const TavConnector *c = cg != info->cg ? tavConnectorGroupGetCurConnector(cg) : nullptr;
        const StoredObject *object = c && c->stored ? findObject(c->stored, name, length, hash) : nullptr;
        if (object) return object;
    }
    return nullptr;
}

// The rule of the snapshot: a type that needs a parent is refused without it. FALSE: refused.
Boolean parentIsFit(const EntryView *entry, const ObjectName *name, const StoredObject *parent, ParseInfo *info) noexcept {
    if (entry->handler->parmType != ParentMandatory) return TRUE;
    if (!name->hasParent) {
        DOC_REFUSE(info, "object", "no parent name for %s\n", entry->name);
        return FALSE;
    }
    if (!parent) parent = findElsewhere(info, name->text, name->parentLength, name->parentHash);
    if (parent && objectHandlerAcceptsParent(entry->handler, parent->handler)) return TRUE;
    DOC_REFUSE(info, "object", "parent for %s was not found\n", entry->name);
    return FALSE;
}

// ---- the index ----

StoredObject *newObject(TavStoredDocument *stored, const ObjectName *name, const ObjectHandler *handler) noexcept {
    StoredObject *object = stored->objects.take();
    if (!object) return nullptr;
    object->hash = static_cast<uint32_t>(name->hash);
    object->handler = handler;
    return object;
}

void linkBelow(StoredObject *object, StoredObject *parent) noexcept {
    if (!parent || object->handler->parmType != ParentMandatory) return;
    object->next = parent->firstChild;
    if (object->next) object->next->link = &object->next;
    object->link = &parent->firstChild;
    parent->firstChild = object;
}

void unlinkFromParent(StoredObject *object) noexcept {
    if (!object->link) return;
    *object->link = object->next;
    if (object->next) object->next->link = object->link;
    object->link = nullptr;
}

// Puts an object whose entry is in the document into the index.
bool indexObject(TavStoredDocument *stored, StoredObject *object, json_t *entry, StoredObject *parent) noexcept {
    object->entry = entry;
    object->name = json_string_value(json_object_get(entry, "name"));
    if (!stored->objects.insert(object)) return false;
    linkBelow(object, parent);
    return true;
}

// An entry of a complete document. What the snapshot will refuse is left out, silently: the replay tells.
StoredObject *indexEntry(const EntryView *entry, const WalkLevel *above, ParseInfo *info) noexcept {
    TavStoredDocument *stored = info->stored;
    const ObjectName name = objectNameScan(entry->name, documentHasUnescapedUris(info));
    if (StoredObject *existing = findByName(stored, &name)) {
        existing->repeated = TRUE;
        return existing;
    }
    StoredObject *parent = findParent(stored, &name, above);
    if (!parentIsFit(entry, &name, parent, info)) {
        if (!parent) stored->orphans = TRUE;
        return nullptr;
    }
    StoredObject *object = newObject(stored, &name, entry->handler);
    if (object) {
        object->holder = above->stored;
        object->array = info->array;
        object->position = info->array ? static_cast<uint32_t>(info->path->index) : 0;
        if (indexObject(stored, object, entry->json, parent)) return object;
        stored->objects.give(object);
    }
    info->failed = TRUE;
    return nullptr;
}

// ---- adding ----

// The entry without its children.
json_t *copyEntry(json_t *entry) noexcept {
    JsonPtr copy(json_object());
    if (!copy) return nullptr;
    for (void *it = json_object_iter(entry); it; it = json_object_iter_next(entry, it)) {
        const char *key = json_object_iter_key(it);
        if (std::strcmp(key, "objects") == 0) continue;
        if (json_object_set_new(copy.get(), key, json_deep_copy(json_object_iter_value(it))) != 0) return nullptr;
    }
    return copy.release();
}

// The array "objects" of a JSON object, made when missing. An entry that stood alone joins it. Borrowed; null without memory.
json_t *obtainArray(TavStoredDocument *stored, json_t *owner) noexcept {
    json_t *objects = json_object_get(owner, "objects");
    if (json_is_array(objects)) return objects;
    JsonPtr made(json_array());
    if (!made || (json_is_object(objects) && json_array_append(made.get(), objects) != 0)) return nullptr;
    if (json_object_set(owner, "objects", made.get()) != 0) return nullptr;
    const char *name = json_string_value(json_object_get(json_array_get(made.get(), 0), "name"));
    StoredObject *alone = name ? findObject(stored, name, std::strlen(name), tavHashCompute(name)) : nullptr;
    json_t *array = made.get(); // the owner has it now
    if (alone && alone->entry == json_array_get(array, 0)) alone->array = array;
    return array;
}

json_t *obtainObject(json_t *object, const char *key) noexcept {
    json_t *member = json_object_get(object, key);
    if (json_is_object(member)) return member;
    member = json_object();
    return json_object_set_new(object, key, member) == 0 ? member : nullptr;
}

// The array that new children of `holder` (null: the top) go into.
json_t *obtainChildren(TavStoredDocument *stored, StoredObject *holder) noexcept {
    json_t *owner = holder ? holder->entry : obtainObject(stored->document, "add");
    return owner ? obtainArray(stored, owner) : nullptr;
}

StoredObject *insertEntry(const EntryView *entry, const ObjectName *name, StoredObject *parent, StoredObject *holder,
                          TavStoredDocument *stored) noexcept {
    json_t *array = obtainChildren(stored, holder);
    JsonPtr copy(array ? copyEntry(entry->json) : nullptr);
    StoredObject *object = copy ? newObject(stored, name, entry->handler) : nullptr;
    if (!object) return nullptr;
    object->holder = holder;
    object->array = array;
    object->position = static_cast<uint32_t>(json_array_size(array));
    if (json_array_append(array, copy.get()) == 0) {
        if (indexObject(stored, object, copy.get(), parent)) return object;
        json_array_remove(array, object->position);
    }
    stored->objects.give(object);
    return nullptr;
}

// ---- setting ----

void logSet(const EntryView *entry, ParseInfo *info, Boolean found) noexcept {
    char buffer[32];
    for (void *it = json_object_iter(entry->props); it; it = json_object_iter_next(entry->props, it)) {
        const char *name = json_object_iter_key(it);
        const char *value = jsonValueText(json_object_iter_value(it), buffer);
        if (found) {
            DOC_DEBUG(info, "deltaObjects: set property '%s' to '%s' on '%s'\n", name, value, entry->name);
        } else {
            DOC_REFUSE(info, "object", "deltaObjects failure: object not found; failed to set property '%s' to '%s' on '%s'\n", name, value,
                       entry->name);
        }
    }
}

// Replaces the named properties all at once.
bool mergeProps(const EntryView *entry, const StoredObject *object) noexcept {
    json_t *old = json_object_get(object->entry, "props");
    JsonPtr props(json_is_object(old) ? json_copy(old) : json_object());
    if (!props) return false;
    for (void *it = json_object_iter(entry->props); it; it = json_object_iter_next(entry->props, it)) {
        if (json_object_set_new(props.get(), json_object_iter_key(it), json_deep_copy(json_object_iter_value(it))) != 0) return false;
    }
    return json_object_set(object->entry, "props", props.get()) == 0;
}

StoredObject *deltaSet(const EntryView *entry, ParseInfo *info) noexcept {
    const ObjectName name = objectNameScan(entry->name, documentHasUnescapedUris(info));
    StoredObject *object = findByName(info->stored, &name);
    if (!entry->props) return object;
    const Boolean found = object && object->handler == entry->handler;
    if (found && !mergeProps(entry, object)) {
        info->failed = TRUE;
        return object;
    }
    logSet(entry, info, found);
    return object;
}

StoredObject *deltaAdd(const EntryView *entry, const WalkLevel *above, ParseInfo *info) noexcept {
    TavStoredDocument *stored = info->stored;
    const ObjectName name = objectNameScan(entry->name, documentHasUnescapedUris(info));
    if (StoredObject *existing = findByName(stored, &name)) {
        DOC_REFUSE(info, "object", "deltaObjects failure: not added because object already found: %s\n", entry->name);
        // The snapshot gives a server application that comes again its properties.
        if (existing->handler == entry->handler && objectHandlerIsServerApplication(entry->handler) && entry->props &&
            !mergeProps(entry, existing))
            info->failed = TRUE;
        return existing;
    }
    StoredObject *parent = findParent(stored, &name, above);
    if (!parentIsFit(entry, &name, parent, info)) return nullptr;
    StoredObject *holder = parent ? parent : above->stored;
    DOC_DEBUG(info, "deltaObjects: create objects under '%s'\n", holder ? holder->name : "");
    info->jsonToAdd = entry->json;
    StoredObject *object = insertEntry(entry, &name, parent, holder, stored);
    info->jsonToAdd = nullptr;
    if (!object) info->failed = TRUE;
    return object;
}

// ---- deleting ----

// Closes an array up and tells its entries their new places. Without memory it stays as it is.
void closeUp(TavStoredDocument *stored, json_t *array, uint32_t *holes) noexcept {
    JsonPtr kept(json_array());
    for (size_t i = 0; kept && i < json_array_size(array); i++) {
        json_t *entry = json_array_get(array, i);
        if (!json_is_null(entry) && json_array_append(kept.get(), entry) != 0) return;
    }
    if (!kept) return;
    json_array_clear(array); // keeps its room, so that it takes the same entries without memory
    json_array_extend(array, kept.get());
    *holes = 0;
    for (size_t i = 0; i < json_array_size(array); i++) {
        const char *name = json_string_value(json_object_get(json_array_get(array, i), "name"));
        if (!name) continue;
        StoredObject *object = findObject(stored, name, std::strlen(name), tavHashCompute(name));
        if (object && object->array == array && object->entry == json_array_get(array, i)) object->position = static_cast<uint32_t>(i);
    }
}

// Takes the object's entry out of the document, which frees it.
void removeEntry(TavStoredDocument *stored, const StoredObject *object) noexcept {
    json_t *owner = object->holder ? object->holder->entry : json_object_get(stored->document, "add");
    if (!object->array) {
        // What stands alone below a later entry of its holder's name is emptied where it is.
        if (json_object_get(owner, "objects") == object->entry) {
            json_object_del(owner, "objects");
        } else {
            json_object_clear(object->entry);
        }
        return;
    }
    uint32_t *holes = object->holder ? &object->holder->holes : &stored->holes;
    json_array_set_new(object->array, object->position, json_null());
    if (++*holes > 32 && *holes > json_array_size(object->array) / 2) closeUp(stored, object->array, holes);
}

// Calls act(object) for the indexed objects among the entries of `json`.
template <typename Act>
bool forEachIndexed(const TavStoredDocument *stored, json_t *json, Act act) noexcept {
    if (json_is_array(json)) {
        bool going = true;
        // Backwards: the array may be closed up meanwhile.
        for (size_t i = json_array_size(json); going && i-- > 0;) going = forEachIndexed(stored, json_array_get(json, i), act);
        return going;
    }
    const char *name = json_string_value(json_object_get(json, "name"));
    StoredObject *object = name ? findObject(stored, name, std::strlen(name), tavHashCompute(name)) : nullptr;
    if (object && object->entry == json) return act(object);
    return !json_is_object(json) || forEachIndexed(stored, json_object_get(json, "objects"), act);
}

// The pairs of the object and of all that goes with it. FALSE without memory.
bool gatherPairs(const StoredObject *object, ParseInfo *info) noexcept {
    if (!storedDocumentGatherPairs(info, object->name)) return false;
    for (const StoredObject *child = object->firstChild; child; child = child->next) {
        if (!gatherPairs(child, info)) return false;
    }
    return forEachIndexed(info->stored, json_object_get(object->entry, "objects"),
                          [info](const StoredObject *below) { return below->link ? true : gatherPairs(below, info); });
}

void removeObject(StoredObject *object, ParseInfo *info) noexcept;

// What stands below an entry without going with its object goes from the document only: then the snapshot is built again.
void removeBelow(json_t *entry, ParseInfo *info) noexcept {
    forEachIndexed(info->stored, json_object_get(entry, "objects"), [info](StoredObject *below) {
        info->resetRoutingInfo = TRUE;
        removeObject(below, info);
        return true;
    });
}

// With everything that goes with it, children first.
void removeObject(StoredObject *object, ParseInfo *info) noexcept {
    TavStoredDocument *stored = info->stored;
    while (object->firstChild) removeObject(object->firstChild, info);
    removeBelow(object->entry, info);
    storedDocumentDropPairs(stored, object->name);
    unlinkFromParent(object);
    const StoredObject gone = *object;
    stored->objects.remove(object);
    removeEntry(stored, &gone);
}

// Takes the later entries of the object's name out of `json`, an array of entries or something that has "objects". Else a rebuild would
// bring back, from one of them, what has been deleted.
void dropRepeats(json_t *json, const StoredObject *object, ParseInfo *info) noexcept {
    const auto isRepeat = [object](json_t *entry) { return tavStrEquals(json_string_value(json_object_get(entry, "name")), object->name); };
    for (size_t i = json_array_size(json); i-- > 0;) {
        json_t *element = json_array_get(json, i);
        if (element == object->entry) continue;
        if (isRepeat(element)) {
            removeBelow(element, info);
            json_array_set_new(json, i, json_null());
        } else {
            dropRepeats(element, object, info);
        }
    }
    json_t *objects = json_object_get(json, "objects");
    if (!objects || objects == object->entry) return;
    if (!isRepeat(objects)) return dropRepeats(objects, object, info);
    removeBelow(objects, info);
    json_object_del(json, "objects");
}

void deltaDel(const EntryView *entry, ParseInfo *info) noexcept {
    if (entryHasChildren(entry)) return;
    const ObjectName name = objectNameScan(entry->name, documentHasUnescapedUris(info));
    StoredObject *object = findByName(info->stored, &name);
    if (!object || object->handler != entry->handler) {
        DOC_REFUSE(info, "object", "deltaObjects failure: delete failed because '%s' was not found\n", entry->name);
        return;
    }
    // The only step that needs memory comes first.
    if (!gatherPairs(object, info)) {
        info->failed = TRUE;
        return;
    }
    if (object->repeated) dropRepeats(json_object_get(info->stored->document, "add"), object, info);
    removeObject(object, info);
    DOC_DEBUG(info, "deltaObjects: deleted %s\n", entry->name);
}

// ---- complete documents ----

// One operation of a complete document, in the order of a walk.
void takeIn(json_t *document, const char *opName, OpType op, Boolean indexing, ParseInfo *info) noexcept {
    info->op = op;
    info->opName = opName;
    info->indexing = indexing;
    json_t *opValue = json_object_get(document, opName);
    if (!json_is_object(opValue) || info->failed) return;
    DocumentStep step(info, opName);
    jsonHandleOp(opValue, info);
}

} // namespace

StoredObject *deltaObjects(const EntryView *entry, const WalkLevel *above, ParseInfo *info) noexcept {
    if (info->indexing) return indexEntry(entry, above, info);
    switch (info->op) {
        case AddOp:
            return deltaAdd(entry, above, info);
        case SetOp:
            return deltaSet(entry, info);
        case DelOp:
            deltaDel(entry, info);
            return nullptr;
    }
    return nullptr;
}

Boolean storedDocumentsHaveObject(const ParseInfo *info, const char *name, const char *type) noexcept {
    const size_t length = std::strlen(name);
    const int hash = tavHashCompute(name);
    const StoredObject *object = findObject(info->stored, name, length, hash);
    if (!object) object = findElsewhere(info, name, length, hash);
    return object && std::strcmp(object->handler->objectType, type) == 0;
}

Boolean tavStoredDocumentSetVersion(json_t *document, int64_t version) noexcept {
    json_t *stored = json_object_get(document, "version");
    if (json_is_integer(stored)) return json_integer_set(stored, version) == 0;
    return json_object_set_new(document, "version", json_integer(version)) == 0;
}

TavStoredDocument *tavStoredDocumentCreate(json_t *document, TavConnector *c, const DocumentObserver *observer) noexcept {
    TavStoredDocument *stored = tavNewRecord<TavStoredDocument>();
    if (!stored) return nullptr;
    stored->document = document;
    stored->observer = observer;
    ParseInfo info{};
    info.tav = c->tav;
    info.c = c;
    info.cg = c->cg;
    info.jsonToUpdate = document;
    info.stored = stored;
    info.resetRoutingInfo = TRUE;
    takeIn(document, "add", AddOp, TRUE, &info);
    info.trCtx = c->tav->trCtx;
    info.trRec = c->tav->processRec;
    info.observer = observer;
    takeIn(document, "set", SetOp, FALSE, &info);
    const int64_t version = json_integer_value(json_object_get(document, "version"));
    if (info.failed || !tavStoredDocumentSetVersion(document, version)) {
        tavStoredDocumentDelete(stored);
        return nullptr;
    }
    json_object_del(document, "set");
    return stored;
}

void tavStoredDocumentDelete(TavStoredDocument *stored) noexcept {
    if (!stored) return;
    stored->objects.clear();
    stored->pairs.clear();
    stored->ends.clear();
    tavDestroyRecord(stored);
}
