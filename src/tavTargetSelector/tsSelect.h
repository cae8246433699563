// Choosing an endpoint for a request, the accounting that the choice depends on, and read-only views of the topology.
#ifndef TAVTARGETSELECTOR_TSSELECT_H
#define TAVTARGETSELECTOR_TSSELECT_H

#include <tav/endpoint.h>

#include "tavTargetSelector/tsTypes.h"

struct json_t;

// The endpoint for the request, or null: the context is then rejected with a status and a reason. The context holds the endpoint from
// here on. Takes the selector lock; calls the host's cookie and path getters under it.
TavTargetEndpoint *tsSelect(TargetSelector *ts, TavHttpContext *ctx) noexcept;
// One endpoint of a list: with the property enableEndpointSelectionBasedOnMatchedVHost the first that the request's virtual-host group
// accepts, otherwise and failing that the first. Null for an empty list. The selector lock must be held.
TavTargetEndpoint *selectEndpoint(TavHttpContext *ctx, TargetSelector *ts, const TavList *endpointList) noexcept;

// A connection to the server's endpoint succeeded or failed. Take the selector lock; null ignored.
void tsServerConnectSuccess(TargetServer *server) noexcept;
void tsServerConnectFailure(TargetServer *server) noexcept;

// A request to `sapp` ended at `curTime` (0: no sample). `serviceTime` in ms. Returns the server application's new count of outstanding
// requests. Takes the selector lock; may wake the connector after it. The caller's context still holds its target.
int tsServerApplicationDecrementOutstandingRequestCount(TavHttpContext *ctx, TargetServerApplication *sapp, TavTime curTime,
                                                        TavTime serviceTime, Boolean timeout) noexcept;
// Lets go of what the context holds and clears its target info. Takes the selector lock when there is something to let go.
void tsTargetInfoDecrementRefCnt(TavHttpContext *ctx) noexcept;

// The affinity policy of a virtual cluster, computed on first use; null without memory. Borrowed until the snapshot goes. Takes the
// selector lock.
HttpAffinityPolicy *tsVirtualClusterGetAffinityPolicy(VirtualCluster *vc) noexcept;

// The topology as JSON by cluster and server. Takes the selector lock. Returns new, null without memory.
json_t *tsToJSON(TargetSelector *ts) noexcept;

// ---- why a server is not chosen ----
typedef struct TsVisit {
    const VirtualCluster *virtualCluster; // null: the server application is in none
    const TargetServerApplication *sapp;  // null: the server has none
    const TargetServer *server;
} TsVisit;
typedef void (*TsVisitFcn)(const TsVisit *visit, void *passback);
// Calls fn for every server application of every virtual cluster (map order, then list order), then for those that are in none and for
// servers without one. Under the selector lock: fn must not call anything here but the two functions below.
void tsForEachServerApplication(TargetSelector *ts, TsVisitFcn fn, void *passback) noexcept;
// Calls fn for every cluster, and for every server in it once, that the configuration has not deleted; in the order of the document.
// `server` is null for the call that begins a cluster. Under the selector lock, like the one above.
typedef void (*TsClusterFcn)(const Cluster *cluster, const TargetServer *server, void *passback);
void tsForEachCluster(TargetSelector *ts, TsClusterFcn fn, void *passback) noexcept;
// The reason, a constant text, why the server application is not selectable for affinity or for load balancing at `now`; null: it is.
// The selector lock must be held.
const char *tsServerApplicationReason(const TargetServerApplication *sapp, TavTime now, Boolean affinity) noexcept;
// "transport is not valid" when the server's endpoint for that protocol (or, without one, the other) is missing or has no port; else null.
// The selector lock must be held.
const char *tsServerTransportReason(const TargetServer *server, int protoIndex) noexcept;

// Why no new request without a session is given to the server application at `now`, as the balancing would tell; null: it is. A constant
// text or one in `buffer`. The selector lock must be held.
const char *tsServerApplicationIdleReason(const TargetServerApplication *sapp, TavTime now, char *buffer, size_t size) noexcept;
// The same for the server: null when one of its server applications can be chosen, else the reason of the first.
const char *tsServerIdleReason(const TargetServer *server, TavTime now, char *buffer, size_t size) noexcept;
// The same for an endpoint that the server has. A constant text.
const char *tsEndPointIdleReason(const TavTargetEndpoint *endpoint, TavTime now) noexcept;

// ---- partition data ----
// Takes the map (partition id to clone id, may be null) and a copy of the version; returns new. Without memory null, and the map is gone.
PartitionIDData *tsPartitionIDDataCreate(TavHashMap *map, const char *version) noexcept;
const char *tsPartitionIDDataGetVersion(const PartitionIDData *data) noexcept; // borrowed; "" for the default; null for null
void tsPartitionIDDataDelete(void *data) noexcept;                             // null and the shared default are ignored
PartitionIDData *tsDefaultPartitionIDData() noexcept;                          // shared by everyone, never freed

#endif
