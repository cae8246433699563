// Configuration objects by type name: what a document may do with each, and the wrapper that the snapshot keeps of it.
#ifndef TAV_TAVOBJECTHANDLER_H
#define TAV_TAVOBJECTHANDLER_H

#include "tavConnector/tavConnector.h"
#include "tavHash/tavHash.h"
#include "tavSnapshot/tavRoutingInfo.h"

typedef enum TavObjectHandlerParmType { RoutingInfo = 0, ParentMandatory = 1, ParentOptional = 2 } TavObjectHandlerParmType;

typedef void Object;
typedef Boolean tav_boolean; // the configuration's name for it
// `name` is a shared text (tavSharedText.h), so that an object which keeps it needs no copy.
typedef Object *(*CreateFcn)(void *parentOrSnapshot, const char *name, TavConnector *connector);
typedef Boolean (*SetPropStrFcn)(Object *object, const char *name, const char *value);
typedef Boolean (*SetPropIntFcn)(Object *object, const char *name, int value);
typedef Boolean (*SetPropBoolFcn)(Object *object, const char *name, tav_boolean value);
typedef Boolean (*SetPropNullFcn)(Object *object, const char *name);
typedef Boolean (*InitFcn)(Object *object);
typedef void (*DeleteFcn)(Object *object);
typedef Boolean (*LinkFcn)(Object *first, Object *second, Boolean add);

// One row per object type. A null slot: the type does not accept that operation.
typedef struct ObjectHandler {
    const char *objectType = nullptr;
    TavObjectHandlerParmType parmType = RoutingInfo;
    Boolean requiresRoutingInfoReset = FALSE; // a delta that touches the type rebuilds the snapshot
    CreateFcn create = nullptr;
    SetPropStrFcn setPropStr = nullptr;
    SetPropIntFcn setPropInt = nullptr;
    SetPropBoolFcn setPropBool = nullptr;
    SetPropNullFcn setPropNull = nullptr;
    InitFcn init = nullptr; // after the properties of a new object
    DeleteFcn delete_ = nullptr;
    const char *parentTypes = nullptr; // "a,b": what the parent must be; null for types without one
    DeleteFcn release = nullptr;       // frees what the object's owner does not: called instead of delete_ when the owner goes. May be null
} ObjectHandler;

// One row per kind; the first object is of the first type.
typedef struct RelationshipHandler {
    const char *relationshipName;
    LinkFcn link;
} RelationshipHandler;

struct _ObjectWrapper {
    const ObjectHandler *handler;
    Object *object;   // null: the object went with its parent
    const char *name; // shared text, counted; the object map's key

    TavHashEle entry;          // in the object map; its key is `name`
    ObjectWrapper *firstChild; // wrappers whose objects go with this one, newest first
    ObjectWrapper *next;       // sibling
    ObjectWrapper **link;      // what points to this one among its siblings; null: no parent
};

const ObjectHandler *getObjectHandler(const char *type) noexcept;             // null when absent
const RelationshipHandler *getRelationshipHandler(const char *name) noexcept; // null when absent
inline constexpr int RELATIONSHIP_KINDS = 5;
int relationshipHandlerIndex(const RelationshipHandler *handler) noexcept; // 0 to RELATIONSHIP_KINDS - 1
const RelationshipHandler *relationshipHandlerAt(int index) noexcept;
// Is an object of type `parent` what `child` needs above it?
Boolean objectHandlerAcceptsParent(const ObjectHandler *child, const ObjectHandler *parent) noexcept;

// ---- wrappers (control lock held); see also tavObjectMap.h ----
// They live in the snapshot's slabs: one allocation for many, none for a removal.
// Becomes another holder of `name`, a shared text. Null without memory.
ObjectWrapper *objectWrapperCreate(TavRoutingInfo *ri, const ObjectHandler *handler, Object *object, const char *name) noexcept;
void objectWrapperDelete(TavRoutingInfo *ri, ObjectWrapper *wrapper) noexcept;        // the objects that go with it and its own too
void objectWrapperDeleteWrapper(TavRoutingInfo *ri, ObjectWrapper *wrapper) noexcept; // the wrapper only; null ignored

#endif
