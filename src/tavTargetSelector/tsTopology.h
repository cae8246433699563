// Creating, changing, linking and deleting the topology: the configuration's side of the selector.
//
// Every function here takes the selector lock itself (the caller must not hold it) unless it says otherwise; some wake connectors after
// releasing it. Setters return TRUE when they recognise the property and took it; FALSE for another name, a refused value or without
// memory, and then nothing has changed. Texts are copied.
//
// Ownership: the selector owns every record made here, also one that was never initialised. A ...Delete gives the configuration's reference
// back: the record is not chosen any more, and is freed when the last request lets go. Whatever is left goes with tsDelete.
#ifndef TAVTARGETSELECTOR_TSTOPOLOGY_H
#define TAVTARGETSELECTOR_TSTOPOLOGY_H

#include "tavTargetSelector/tsTypes.h"

// ---- names of values ----
TavServerType tsServerTypeFromString(const char *name) noexcept;        // exact; UNKNOWN for others and null
const char *tsMaintenanceModeToString(int mode) noexcept;               // "unknown server maintenance mode" for others
const char *tsMaintenanceModeToProperty(MaintenanceMode mode) noexcept; // "false", "affinity", "break", as the configuration spells it
int tsProtocolToIndex(const char *protocol) noexcept;                   // exact "http" 0, "https" 1; others and null -1
const char *tsIndexToProtocol(int index) noexcept;                      // "invalidProtocol" for others

// ---- nodes ----
TargetNode *tsNodeCreate(TargetSelector *ts, const char *name) noexcept; // borrowed; null without memory or name
const char *tsNodeGetName(const TargetNode *node) noexcept;              // borrowed; no lock
Boolean tsNodeSetPropStr(TargetNode *node, const char *name, const char *value) noexcept;
void tsNodeDelete(TargetNode *node) noexcept; // and its servers; null ignored

// ---- clusters ----
Cluster *tsClusterCreate(TargetSelector *ts, const char *name) noexcept; // borrowed; null without memory or name
const char *tsClusterGetName(const Cluster *cluster) noexcept;           // borrowed; no lock
Boolean tsClusterSetPropStr(Cluster *cluster, const char *name, const char *value) noexcept;
Boolean tsClusterSetPropInt(Cluster *cluster, const char *name, int value) noexcept;
Boolean tsClusterSetPropBool(Cluster *cluster, const char *name, Boolean value) noexcept;
Boolean tsClusterSetSessionAffinityCookies(Cluster *cluster, const char *cookies) noexcept; // null: ignored, TRUE
Boolean tsClusterSetCloneIdSeparator(Cluster *cluster, const char *separator) noexcept;     // null: ignored, TRUE
void tsClusterSetLearnServerIds(Cluster *cluster, Boolean learn) noexcept;
void tsClusterSetIoTimeoutRetry(Cluster *cluster, int count) noexcept;
void tsClusterSetServerType(Cluster *cluster, TavServerType type) noexcept;
void tsClusterSetEditionRolloutInProgress(Cluster *cluster, Boolean inProgress) noexcept;
// Adding appends the server in every case, also a second time. FALSE: without memory, or the server to remove is not in this cluster.
Boolean tsLinkClusterServer(Cluster *cluster, TargetServer *server, Boolean add) noexcept;
void tsClusterDelete(Cluster *cluster) noexcept; // null ignored

// ---- servers ----
TargetServer *tsServerCreate(TargetNode *node, const char *name, TavConnector *connector) noexcept;       // counts the connector; borrowed
TargetServer *tsServerCreateShared(TargetNode *node, const char *name, TavConnector *connector) noexcept; // holds `name`, a shared text
Boolean tsServerInit(TargetServer *server) noexcept;                                                      // its node sees it from here on
// Getters without a lock. Texts are borrowed: name and clone id as long as the server is held, the others by the configuration thread only.
TavServerType tsServerGetType(const TargetServer *server) noexcept;
const char *tsServerGetName(const TargetServer *server) noexcept;
const char *tsServerGetSessionAffinityCookies(const TargetServer *server) noexcept; // configuration thread only
Boolean tsServerGetCloneSeparatorChange(const TargetServer *server) noexcept;
const char *tsServerGetCloneId(const TargetServer *server) noexcept; // any thread; null: none
Cluster *tsServerGetCluster(const TargetServer *server) noexcept;    // borrowed while the caller's request holds a target
TargetNode *tsServerGetNode(const TargetServer *server) noexcept;
TavConnector *tsServerGetConnector(const TargetServer *server) noexcept;
void tsServerSetType(TargetServer *server, TavServerType type) noexcept;
Boolean tsServerSetState(TargetServer *server, const char *state) noexcept; // null: ignored, TRUE
void tsServerSetMaintenanceMode(TargetServer *server, MaintenanceMode mode) noexcept;
Boolean tsServerSetCloneId(TargetServer *server, const char *id) noexcept; // the first non-empty one stays; TRUE also for a later one
void tsServerSetWeight(TargetServer *server, int weight) noexcept;
Boolean tsServerSetSessionAffinityCookies(TargetServer *server, const char *cookies) noexcept; // null: ignored, TRUE
void tsServerSetCloneSeparatorChange(TargetServer *server, Boolean change) noexcept;
void tsServerSetCluster(TargetServer *server, Cluster *cluster) noexcept; // moves the server's cluster reference only
// For the server that this library runs in, Str and Null set its custom properties, without the selector lock. Request threads may call
// tsServerSetPropStr with "id".
Boolean tsServerSetPropStr(TargetServer *server, const char *name, const char *value) noexcept;
Boolean tsServerSetPropInt(TargetServer *server, const char *name, int value) noexcept;
Boolean tsServerSetPropBool(TargetServer *server, const char *name, Boolean value) noexcept;
Boolean tsServerSetPropNull(TargetServer *server, const char *name) noexcept;
// FALSE: a link could not be made or kept for later. Requests may be running.
Boolean tsLinkServerToWebModule(TargetServer *server, WebModule *webModule, Boolean add) noexcept;
Boolean tsLinkServerToHealthPolicy(TargetServer *server, HealthPolicy *policy, Boolean add) noexcept;
void tsServerDelete(TargetServer *server) noexcept; // null ignored

// ---- server applications (the configuration's object is the handle) ----
// Fills `handle`, which the caller keeps; counts the connector. FALSE without memory: the handle is then stale.
Boolean tsServerApplicationCreate(TargetServer *server, const char *path, TavConnector *connector, TavServerApplication *handle) noexcept;
// The same, holding `path`, a shared text, instead of a copy.
Boolean tsServerApplicationCreateShared(TargetServer *server, const char *path, TavConnector *connector,
                                        TavServerApplication *handle) noexcept;
Boolean tsServerApplicationInit(TavServerApplication *handle) noexcept; // nothing to do
// The handle of the server application of that simple name, borrowed, or null.
TavServerApplication *tsServerGetTavServerApplication(TargetServer *server, const char *name) noexcept;
TargetServer *tsServerApplicationGetServer(const TargetServerApplication *sapp) noexcept; // borrowed; no lock
Boolean tsServerApplicationSetPropStr(TavServerApplication *handle, const char *name, const char *value) noexcept;
Boolean tsServerApplicationSetPropInt(TavServerApplication *handle, const char *name, int value) noexcept;      // always FALSE
Boolean tsServerApplicationSetPropBool(TavServerApplication *handle, const char *name, Boolean value) noexcept; // always FALSE
void tsServerApplicationDelete(TavServerApplication *handle) noexcept; // the handle leads nowhere from here on; it is not freed
// The record lives on without its handle, which may then be freed. Also after tsDelete.
void tsServerApplicationForgetHandle(TavServerApplication *handle) noexcept;

// ---- endpoints ----
TavTargetEndpoint *tsEndPointCreate(TargetServer *server, const char *name) noexcept;       // borrowed; null without server, name or memory
TavTargetEndpoint *tsEndPointCreateShared(TargetServer *server, const char *name) noexcept; // holds `name`, a shared text
// Attaches the endpoint to its server. FALSE: neither "http" nor "https" (not attached), or the host gave no object (attached).
Boolean tsEndPointInit(TavTargetEndpoint *endpoint) noexcept;
const char *tsEndPointGetName(const TavTargetEndpoint *endpoint) noexcept; // no lock, like the next four
const char *tsEndpointGetHost(const TavTargetEndpoint *endpoint) noexcept; // valid while the caller's request holds the endpoint
int tsEndpointGetPort(const TavTargetEndpoint *endpoint) noexcept;         // -1: unset
TargetServer *tsEndPointGetServer(const TavTargetEndpoint *endpoint) noexcept;
EnvTargetEndpoint *tsEndPointGetEnvEndPoint(const TavTargetEndpoint *endpoint) noexcept; // like the host
Boolean tsEndPointSetPropStr(TavTargetEndpoint *endpoint, const char *name, const char *value) noexcept;
Boolean tsEndPointSetPropInt(TavTargetEndpoint *endpoint, const char *name, int value) noexcept;
Boolean tsEndPointSetPropBool(TavTargetEndpoint *endpoint, const char *name, Boolean value) noexcept; // always FALSE
void tsEndPointDelete(TavTargetEndpoint *endpoint) noexcept;                                          // null ignored

// ---- virtual clusters: who can serve a web module ----
// Finds or makes it, gives it the module (borrowed, may be null) and forgets its affinity policy. Borrowed; null without memory or name.
VirtualCluster *tsVirtualClusterCreate(TargetSelector *ts, WebModule *webModule, const char *name) noexcept;
void tsVirtualClusterDelete(VirtualCluster *vc) noexcept; // null ignored
Boolean tsLinkVirtualClusterToCluster(VirtualCluster *vc, Cluster *cluster, Boolean add) noexcept;
VirtualCluster *tsFindVirtualCluster(TargetSelector *ts, const char *moduleName) noexcept; // borrowed; null when absent

#endif
