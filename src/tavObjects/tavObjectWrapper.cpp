// Wrappers and the object map of a snapshot.
#include <cstring>

#include "tavObjectMap.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavSharedText.h"

namespace {

constexpr size_t SLAB_WRAPPERS = 51; // a page

} // namespace

struct ObjectWrapperSlab {
    ObjectWrapperSlab *next;
    ObjectWrapper wrappers[SLAB_WRAPPERS]; // unused ones have no object
};

namespace {

void linkBelow(ObjectWrapper *wrapper, ObjectWrapper *parent) noexcept {
    if (!parent) return;
    wrapper->next = parent->firstChild;
    if (wrapper->next) wrapper->next->link = &wrapper->next;
    wrapper->link = &parent->firstChild;
    parent->firstChild = wrapper;
}

void unlinkFromParent(ObjectWrapper *wrapper) noexcept {
    if (!wrapper->link) return;
    *wrapper->link = wrapper->next;
    if (wrapper->next) wrapper->next->link = wrapper->link;
    wrapper->link = nullptr;
    wrapper->next = nullptr;
}

void releaseObject(ObjectWrapper *wrapper) noexcept {
    if (wrapper->object && wrapper->handler->release) wrapper->handler->release(wrapper->object);
    wrapper->object = nullptr;
}

// The children's objects go, their wrappers become tombstones.
void dropChildren(ObjectWrapper *wrapper) noexcept {
    while (ObjectWrapper *child = wrapper->firstChild) {
        unlinkFromParent(child);
        dropChildren(child);
        releaseObject(child);
    }
}

bool addSlab(TavRoutingInfo *ri) noexcept {
    auto *slab = static_cast<ObjectWrapperSlab *>(tavMalloc(sizeof(ObjectWrapperSlab)));
    if (!slab) return false;
    slab->next = ri->wrapperSlabs;
    ri->wrapperSlabs = slab;
    for (size_t i = SLAB_WRAPPERS; i-- > 0;) {
        slab->wrappers[i].next = ri->freeWrappers;
        ri->freeWrappers = &slab->wrappers[i];
    }
    return true;
}

ObjectWrapper *wrapperAt(const TavRoutingInfo *ri, const char *name, size_t length, int hash) noexcept {
    const TavHashEle *ele = tavHashFindEle(ri->objectMap, name, length, hash);
    return ele ? static_cast<ObjectWrapper *>(ele->val) : nullptr;
}

} // namespace

ObjectName objectNameScan(const char *text, bool unescapedUris) noexcept {
    ObjectName name{text, 0, 0, false, 0, 0};
    uint32_t hash = 0;
    size_t lastAt = 0; // of the last unescaped "/" met
    uint32_t lastHash = 0;
    bool slashMet = false;
    const char *p = text;
    for (; *p; p++) {
        if (*p == '/' && (p == text || p[-1] != '\\')) {
            name.hasParent = slashMet;
            name.parentLength = lastAt;
            name.parentHash = static_cast<int>(lastHash);
            slashMet = true;
            lastAt = static_cast<size_t>(p - text);
            lastHash = hash;
        }
        hash = hash * 33U + static_cast<unsigned char>(*p);
    }
    name.length = static_cast<size_t>(p - text);
    name.hash = static_cast<int>(hash);
    const char *uri = unescapedUris ? std::strstr(text, "/uri/") : nullptr;
    if (!uri) return name;
    name.hasParent = true;
    name.parentLength = static_cast<size_t>(uri - text);
    hash = 0;
    for (p = text; p < uri; p++) hash = hash * 33U + static_cast<unsigned char>(*p);
    name.parentHash = static_cast<int>(hash);
    return name;
}

ObjectWrapper *objectWrapperCreate(TavRoutingInfo *ri, const ObjectHandler *handler, Object *object, const char *name) noexcept {
    if (!ri->freeWrappers && !addSlab(ri)) return nullptr;
    ObjectWrapper *wrapper = ri->freeWrappers;
    ri->freeWrappers = wrapper->next;
    *wrapper = {handler, object, tavSharedTextObtain(name), {}, nullptr, nullptr, nullptr};
    return wrapper;
}

void objectWrapperDelete(TavRoutingInfo *ri, ObjectWrapper *wrapper) noexcept {
    dropChildren(wrapper);
    if (wrapper->object && wrapper->handler->delete_) wrapper->handler->delete_(wrapper->object);
    objectWrapperDeleteWrapper(ri, wrapper);
}

void objectWrapperDeleteWrapper(TavRoutingInfo *ri, ObjectWrapper *wrapper) noexcept {
    if (!wrapper) return;
    unlinkFromParent(wrapper);
    tavSharedTextRelease(wrapper->name);
    *wrapper = {};
    wrapper->next = ri->freeWrappers;
    ri->freeWrappers = wrapper;
}

ObjectWrapper *tavObjectMapFind(const TavRoutingInfo *ri, const ObjectName *name) noexcept {
    return wrapperAt(ri, name->text, name->length, name->hash);
}

ObjectWrapper *tavObjectMapFindParent(const TavRoutingInfo *ri, const ObjectName *name) noexcept {
    if (!name->hasParent) return nullptr;
    ObjectWrapper *parent = wrapperAt(ri, name->text, name->parentLength, name->parentHash);
    return parent && parent->object ? parent : nullptr;
}

char *tavObjectMapShareName(const TavRoutingInfo *ri, const ObjectName *name) noexcept {
    const ObjectWrapper *wrapper = tavObjectMapFind(ri, name);
    return wrapper ? tavSharedTextObtain(wrapper->name) : tavSharedTextCreate(name->text);
}

ObjectWrapper *tavObjectMapAdd(TavRoutingInfo *ri, const ObjectName *name, const char *shared, const ObjectHandler *handler, Object *object,
                               ObjectWrapper *parent) noexcept {
    if (ObjectWrapper *tombstone = tavObjectMapFind(ri, name)) {
        unlinkFromParent(tombstone);
        tombstone->handler = handler;
        tombstone->object = object;
        linkBelow(tombstone, parent);
        return tombstone;
    }
    ObjectWrapper *wrapper = objectWrapperCreate(ri, handler, object, shared);
    if (!wrapper) return nullptr;
    wrapper->entry = {nullptr, name->hash, wrapper->name, wrapper};
    tavHashLink(ri->objectMap, &wrapper->entry);
    linkBelow(wrapper, parent);
    return wrapper;
}

static ObjectWrapper *takeOut(TavRoutingInfo *ri, const ObjectName *name) noexcept {
    ObjectWrapper *wrapper = tavObjectMapFind(ri, name);
    if (wrapper) tavHashUnlink(ri->objectMap, &wrapper->entry);
    return wrapper;
}

void tavObjectMapDelete(TavRoutingInfo *ri, const ObjectName *name) noexcept {
    if (ObjectWrapper *wrapper = takeOut(ri, name)) objectWrapperDelete(ri, wrapper);
}

void tavObjectMapDeleteWrapper(TavRoutingInfo *ri, const ObjectName *name) noexcept { objectWrapperDeleteWrapper(ri, takeOut(ri, name)); }

void tavObjectMapRelease(TavRoutingInfo *ri) noexcept {
    tavHashMapForget(ri->objectMap); // the entries go with the wrappers
    tavHashMapDestroy(ri->objectMap);
    ri->objectMap = nullptr;
    while (ObjectWrapperSlab *slab = ri->wrapperSlabs) {
        for (ObjectWrapper &wrapper : slab->wrappers) {
            releaseObject(&wrapper);
            tavSharedTextRelease(wrapper.name);
        }
        ri->wrapperSlabs = slab->next;
        tavFree(slab);
    }
}
