// One object entry, applied to a snapshot.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tavJsonWalk.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavSharedText.h"
#include "tavUtil/tavString.h"

namespace {

ObjectWrapper *parentOf(const ObjectName *name, const WalkLevel *above, const ParseInfo *info) noexcept {
    if (above->wrapper && above->wrapper->object && objectNameHasParent(name, above->name, above->length)) return above->wrapper;
    return tavObjectMapFindParent(info->ri, name);
}

// The parent that the type needs; null (with the log line) when there is none.
ObjectWrapper *mandatoryParent(const EntryView *entry, const ObjectName *name, const WalkLevel *above, ParseInfo *info) noexcept {
    if (!name->hasParent) {
        DOC_REFUSE_ONCE(info, "object", "no parent name for %s\n", entry->name);
        return nullptr;
    }
    ObjectWrapper *parent = parentOf(name, above, info);
    if (parent && objectHandlerAcceptsParent(entry->handler, parent->handler)) return parent;
    DOC_REFUSE_ONCE(info, "object", "parent for %s was not found\n", entry->name);
    return nullptr;
}

ObjectWrapper *createObject(const EntryView *entry, const ObjectName *name, const WalkLevel *above, ParseInfo *info) noexcept {
    const ObjectHandler *handler = entry->handler;
    ObjectWrapper *parent = nullptr;
    if (handler->parmType == ParentMandatory && !(parent = mandatoryParent(entry, name, above, info))) return nullptr;
    void *argument = parent ? parent->object : static_cast<void *>(info->ri);
    if (handler->parmType == ParentOptional) argument = parent = parentOf(name, above, info);
    const TavSharedText shared(tavObjectMapShareName(info->ri, name));
    Object *object = shared ? handler->create(argument, shared.get(), info->c) : nullptr;
    if (!object) {
        DOC_REFUSE(info, "object", "failed to create %s object: %s\n", entry->type, entry->name);
        info->failed = TRUE;
        return nullptr;
    }
    ObjectWrapper *wrapper = tavObjectMapAdd(info->ri, name, shared.get(), handler, object, parent);
    if (wrapper) return wrapper;
    if (DeleteFcn discard = handler->delete_ ? handler->delete_ : handler->release) discard(object);
    info->failed = TRUE;
    return nullptr;
}

// Applies properties to a new object and finishes it.
ObjectWrapper *addObject(const EntryView *entry, const ObjectName *name, const WalkLevel *above, ParseInfo *info) noexcept {
    ObjectWrapper *wrapper = createObject(entry, name, above, info);
    if (!wrapper) return nullptr;
    jsonHandleProps(entry, wrapper->object, info);
    if (entry->handler->init) {
        DOC_DEBUG(info, "initializing object type=%s, name=%s\n", entry->type, entry->name);
        entry->handler->init(wrapper->object);
    }
    return wrapper;
}

// A server application may come again: its server knows whether it still has it.
ObjectWrapper *addServerApplicationAgain(const EntryView *entry, const ObjectName *name, const WalkLevel *above, ObjectWrapper *existing,
                                         ParseInfo *info) noexcept {
    ObjectWrapper *server = parentOf(name, above, info);
    const bool hasServer = server && objectHandlerAcceptsParent(entry->handler, server->handler);
    TavServerApplication *handle =
        hasServer ? tsServerGetTavServerApplication(static_cast<TargetServer *>(server->object), tavPathToName(entry->name)) : nullptr;
    if (handle) {
        if (existing->object != handle && entry->handler->release) entry->handler->release(existing->object);
        existing->object = handle;
        DOC_REFUSE_ONCE(info, "object", "won't add %s object which already exists: %s\n", entry->type, entry->name);
        jsonHandleProps(entry, handle, info);
        return existing;
    }
    DOC_DEBUG(info, "wrapper already exists, override default behavior and allow add %s object: %s\n", entry->type, entry->name);
    entry->handler->delete_(existing->object);
    existing->object = nullptr;
    return addObject(entry, name, above, info);
}

ObjectWrapper *applyAdd(const EntryView *entry, const ObjectName *name, const WalkLevel *above, ParseInfo *info) noexcept {
    ObjectWrapper *existing = tavObjectMapFind(info->ri, name);
    if (!existing || !existing->object) return addObject(entry, name, above, info);
    if (existing->handler == entry->handler && objectHandlerIsServerApplication(entry->handler))
        return addServerApplicationAgain(entry, name, above, existing, info);
    DOC_REFUSE_ONCE(info, "object", "failed to add %s object which already exists: %s\n", entry->type, entry->name);
    return existing;
}

ObjectWrapper *applySet(const EntryView *entry, const ObjectName *name, ParseInfo *info) noexcept {
    ObjectWrapper *existing = tavObjectMapFind(info->ri, name);
    if (existing && existing->object && existing->handler == entry->handler) {
        jsonHandleProps(entry, existing->object, info);
    } else {
        DOC_REFUSE_ONCE(info, "object", "set operation but object of type '%s' at '%s' was not found\n", entry->type, entry->name);
    }
    return existing;
}

// A type with a parent has its object deleted only while that is there; else the object went with it.
void applyDelete(const EntryView *entry, const ObjectName *name, ParseInfo *info) noexcept {
    ObjectWrapper *wrapper = tavObjectMapFind(info->ri, name);
    if (!wrapper || wrapper->handler != entry->handler) {
        DOC_REFUSE_ONCE(info, "object", "deltaObjects failure: delete failed because '%s' was not found\n", entry->name);
        return;
    }
    if (wrapper->object) {
        DOC_DEBUG(info, "calling delete handler");
        tavObjectMapDelete(info->ri, name);
    } else {
        DOC_DEBUG(info, " no parent wrapper, only calling delete wrapper");
        tavObjectMapDeleteWrapper(info->ri, name);
    }
}

} // namespace

ObjectWrapper *jsonApplyEntry(const EntryView *entry, const WalkLevel *above, ParseInfo *info) noexcept {
    if (info->op == DelOp && entryHasChildren(entry)) return nullptr;
    const ObjectName name = objectNameScan(entry->name, documentHasUnescapedUris(info));
    if (entry->handler->requiresRoutingInfoReset && tavRoutingInfoIsPublished(info->ri)) {
        // Requests read these without a lock: they come with a snapshot of their own.
        DOC_REFUSE(info, "object", "jsonHandleObjects: %s object %s can not change in a snapshot in use\n", entry->type, entry->name);
        return tavObjectMapFind(info->ri, &name);
    }
    switch (info->op) {
        case AddOp:
            return applyAdd(entry, &name, above, info);
        case SetOp:
            return applySet(entry, &name, info);
        case DelOp:
            applyDelete(entry, &name, info);
            return nullptr;
    }
    return nullptr;
}

// ---- properties ----

const char *jsonValueText(json_t *value, char *buffer) noexcept {
    switch (json_typeof(value)) {
        case JSON_STRING:
            return json_string_value(value);
        case JSON_INTEGER:
            std::snprintf(buffer, 32, "%lld", static_cast<long long>(json_integer_value(value)));
            return buffer;
        case JSON_REAL:
            std::snprintf(buffer, 32, "%.17g", json_real_value(value));
            return buffer;
        case JSON_TRUE:
            return "true";
        case JSON_FALSE:
            return "false";
        case JSON_NULL:
            return "null";
        default:
            return json_is_array(value) ? "[...]" : "{...}";
    }
}

namespace {

// Both log lines of one value type: no setter, and a setter that did not take it.
void setString(const EntryView *entry, Object *object, ParseInfo *info) noexcept {
    const char *name = info->propName;
    const char *value = json_string_value(info->propValue);
    DOC_DEBUG(info, "setting property '%s' to '%s' for '%s'\n", name, value, entry->name);
    if (!entry->handler->setPropStr) {
        DOC_REFUSE(info, "property", "skip set property %s on object %s; null string property handler for object type %s\n", name,
                   entry->name, entry->type);
    } else if (!entry->handler->setPropStr(object, name, value)) {
        DOC_REFUSE(info, "property", "failed to set string property %s on object %s\n", name, entry->name);
    }
}

void setInteger(const EntryView *entry, Object *object, ParseInfo *info) noexcept {
    const char *name = info->propName;
    const json_int_t value = json_integer_value(info->propValue);
    DOC_DEBUG(info, "setting property '%s' to '%lld' for '%s'\n", name, static_cast<long long>(value), entry->name);
    if (!entry->handler->setPropInt) {
        DOC_REFUSE(info, "property", "skip set property %s on object %s; null integer property handler for object type %s\n", name,
                   entry->name, entry->type);
    } else if (!entry->handler->setPropInt(object, name, tavClampInt(value))) {
        DOC_REFUSE(info, "property", "failed to set integer property %s on object %s\n", name, entry->name);
    }
}

void setBoolean(const EntryView *entry, Object *object, ParseInfo *info) noexcept {
    const char *name = info->propName;
    const Boolean value = json_is_true(info->propValue);
    DOC_DEBUG(info, "setting property '%s' to '%s' for '%s'\n", name, value ? "true" : "false", entry->name);
    if (!entry->handler->setPropBool) {
        DOC_REFUSE(info, "property", "skip set property %s on object %s; null tav_boolean property handler for object type %s\n", name,
                   entry->name, entry->type);
    } else if (!entry->handler->setPropBool(object, name, value)) {
        DOC_REFUSE(info, "property", "failed to set tav_boolean property %s on object %s\n", name, entry->name);
    }
}

void setNull(const EntryView *entry, Object *object, ParseInfo *info) noexcept {
    const char *name = info->propName;
    DOC_DEBUG(info, "setting property '%s' to null for '%s'\n", name, entry->name);
    if (!entry->handler->setPropNull) {
        DOC_REFUSE(info, "property", "skip set property %s on object %s; null property handler for object type %s\n", name, entry->name,
                   entry->type);
    } else if (!entry->handler->setPropNull(object, name)) {
        DOC_REFUSE(info, "property", "failed to set null property %s on object %s\n", name, entry->name);
    }
}

void setProperty(const EntryView *entry, Object *object, ParseInfo *info) noexcept {
    switch (json_typeof(info->propValue)) {
        case JSON_STRING:
            return setString(entry, object, info);
        case JSON_INTEGER:
            return setInteger(entry, object, info);
        case JSON_TRUE:
        case JSON_FALSE:
            return setBoolean(entry, object, info);
        case JSON_NULL:
            return setNull(entry, object, info);
        default:
            DOC_REFUSE(info, "property", "unknown type for property %s on object %s\n", info->propName, entry->name);
    }
}

} // namespace

void jsonHandleProps(const EntryView *entry, Object *object, ParseInfo *info) noexcept {
    if (!entry->props) {
        DOC_DEBUG(info, "no props for %s on %s operation\n", entry->name, info->opName);
        return;
    }
    DocumentStep props(info, "props");
    for (void *it = json_object_iter(entry->props); it; it = json_object_iter_next(entry->props, it)) {
        info->propName = json_object_iter_key(it);
        info->propValue = json_object_iter_value(it);
        DocumentStep step(info, info->propName);
        setProperty(entry, object, info);
    }
}
