// What any module may ask of the instance and of a snapshot: plain getters, implemented by the core. Everything here may be called from
// any thread; what drives the instance stays in the top floor.
#ifndef TAVINSTANCE_TAVINSTANCE_H
#define TAVINSTANCE_TAVINSTANCE_H

#include <tav/instance.h>

typedef struct _TavRoutingInfo TavRoutingInfo;
typedef struct _TargetSelector TargetSelector;
typedef struct _RequestMapper RequestMapper;
typedef struct _HealthMonitor HealthMonitor;
typedef struct _Language Language;
typedef struct _TavRules TavRules;
typedef struct _TrRecord TrRecord;
typedef struct _TrSpec TrSpec;
typedef struct _PartitionIDData PartitionIDData;

TrMgr *getTavTrMgr(Tav *tav) noexcept;
TrRecord *tavGetProcessRec(Tav *tav) noexcept; // "control.process"
TrRecord *tavGetDebugIPC(Tav *tav) noexcept;   // "control.ipc"
Language *tavGetHttpLanguage(Tav *tav) noexcept;
TavRules *tavGetRequestTraceRules(Tav *tav) noexcept;
HealthMonitor *tavGetHealthMonitor(Tav *tav) noexcept;
Boolean tavIsTrustedProxyEnabled(Tav *tav) noexcept; // "TrustedProxyEnable"
// "enableEndpointSelectionBasedOnMatchedVHost": the server custom property if it has one, else the property set's.
Boolean tavSelectsEndpointByVHost(Tav *tav) noexcept;
// A copy of a property's value (the server custom property if it has one, else the property set's); returns new, null when unset.
char *tavCopyProperty(Tav *tav, const char *name) noexcept;
// TRUE when `name` is the path of the server that this library runs in.
Boolean tavIsOwnServerPath(Tav *tav, const char *name) noexcept;
// Takes a server custom property (value null: removed). TRUE when the name was recognised. Not under the selector lock.
Boolean tavSetServerCustomProperty(Tav *tav, const char *name, const char *value) noexcept;

// The instance's default trace context and "control.defaultdebug" for code without an instance at hand; null before the first instance.
TrContext *GET_TRCTX() noexcept;
TrRecord *GET_TRREC() noexcept;

// ---- a snapshot's parts ----
Tav *tavRoutingInfoGetTav(TavRoutingInfo *ri) noexcept; // null for null
RequestMapper *tavRoutingInfoGetRequestMapper(TavRoutingInfo *ri) noexcept;
TargetSelector *tavRoutingInfoGetTargetSelector(TavRoutingInfo *ri) noexcept;
// TRUE once requests may hold it: what they read without a lock is then replaced, never changed.
Boolean tavRoutingInfoIsPublished(TavRoutingInfo *ri) noexcept;

// ---- partition data: cluster name to partition table, shared by all snapshots ----
void tavLockPartitionData(Tav *tav, const char *who) noexcept;
void tavUnlockPartitionData(Tav *tav) noexcept;
PartitionIDData *tavGetPartitionData(Tav *tav, const char *key) noexcept; // the partition lock must be held; null for a null key
// Takes `data` over and deletes what it replaces; takes the partition lock. FALSE (nothing happens) when either is null.
Boolean tavSetPartitionData(Tav *tav, const char *key, PartitionIDData *data) noexcept;
// FALSE while the table is empty, without a lock: then no clone id is a partition id.
Boolean tavHasPartitionData(Tav *tav) noexcept;

// ---- work on the instance's own thread ----
typedef void (*AsyncCallbackFcn)(Tav *tav, void *obj);
// Queues handler(tav, obj); never waits. When the work can never run (shutdown, no memory) `discard` (may be null) gets `obj` instead.
void tavProcessAsync(Tav *tav, void *obj, AsyncCallbackFcn handler, void (*discard)(void *obj)) noexcept;

// ---- host endpoints shared by all endpoints of one name ----
typedef struct _EndPointRef EndPointRef;
// Finds or makes the shared host object of the endpoint's name and counts one holder; null when the host gives none. Returns the counted
// reference record; tavEndPointRefGet gives the host's object.
EndPointRef *tavEndPointRefObtain(Tav *tav, TavTargetEndpoint *endpoint) noexcept;
void tavEndPointRefRelease(Tav *tav, EndPointRef *ref) noexcept; // the last holder's release calls targetEndpoint.delete_
// The name no longer leads to `ref` (its endpoint changed): the next obtain makes a new host object; holders keep the old one.
void tavEndPointRefDetach(Tav *tav, EndPointRef *ref) noexcept;
EnvTargetEndpoint *tavEndPointRefGet(const EndPointRef *ref) noexcept;

#endif
