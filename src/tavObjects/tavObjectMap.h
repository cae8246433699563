// The snapshot's map of configuration objects: full name to wrapper, and which objects go with which.
//
// A name is kept once: the wrapper holds it as a shared text, the map's key is that text, and the object may hold it too.
// The map's entries are part of the wrappers.
//
// A wrapper whose type needs a parent stands in its parent's list of children. When the parent is deleted, the children's objects go with
// it; their wrappers stay in the map as tombstones (no object) until an add or a delete of the same name meets them.
#ifndef TAV_TAVOBJECTMAP_H
#define TAV_TAVOBJECTMAP_H

#include "tavObjectHandler.h"

// A full name taken apart in one pass: its length and hash, and those of its parent.
typedef struct ObjectName {
    const char *text;
    size_t length;
    int hash; // tavHashCompute()
    bool hasParent;
    size_t parentLength;
    int parentHash;
} ObjectName;

// `unescapedUris`: the parent of a uri is what stands before the first "/uri/".
ObjectName objectNameScan(const char *text, bool unescapedUris) noexcept;
// Is `parent` (of `length` bytes) the parent of `name`?
inline bool objectNameHasParent(const ObjectName *name, const char *parent, size_t length) noexcept {
    return name->hasParent && name->parentLength == length && std::char_traits<char>::compare(name->text, parent, length) == 0;
}

// All with the control lock held. Returned wrappers are borrowed until they are removed.
ObjectWrapper *tavObjectMapFind(const TavRoutingInfo *ri, const ObjectName *name) noexcept;       // tombstones too; null when absent
ObjectWrapper *tavObjectMapFindParent(const TavRoutingInfo *ri, const ObjectName *name) noexcept; // null for a tombstone
// The name as a shared text (null without memory): that of the map, when it has a wrapper of that name. The caller releases it.
char *tavObjectMapShareName(const TavRoutingInfo *ri, const ObjectName *name) noexcept;
// Puts an object into the map, in the place of a tombstone if there is one, below `parent` (may be null); `shared` is the name from
// tavObjectMapShareName (the map becomes another holder). Null without memory: the object stays the caller's.
ObjectWrapper *tavObjectMapAdd(TavRoutingInfo *ri, const ObjectName *name, const char *shared, const ObjectHandler *handler, Object *object,
                               ObjectWrapper *parent) noexcept;
// Takes the wrapper out of the map and deletes it with its object (objectWrapperDelete), or without.
void tavObjectMapDelete(TavRoutingInfo *ri, const ObjectName *name) noexcept;
void tavObjectMapDeleteWrapper(TavRoutingInfo *ri, const ObjectName *name) noexcept;
// The snapshot goes: frees what neither mapper nor selector owns, every wrapper and the map. Before mapper and selector are deleted.
void tavObjectMapRelease(TavRoutingInfo *ri) noexcept;

// ---- request-trace rules: the instance's set holds those of its current snapshot ----
// The snapshot is about to become current: its trace rules join the instance's; nothing when they have. FALSE without memory: none joined.
Boolean tavTraceRulesActivate(TavRoutingInfo *ri) noexcept;
// The snapshot is current no more (null: nothing): its trace rules leave the instance's set and are freed. After the successor's joined.
void tavTraceRulesDeactivate(TavRoutingInfo *ri) noexcept;

#endif
