// What the selector's sources share: the scope that holds the lock, and the inner forms that expect it.
#ifndef TAVTARGETSELECTOR_TSINTERNAL_H
#define TAVTARGETSELECTOR_TSINTERNAL_H

#include <cstdint>
#include <cstring>

#include "tavRequestMapper/tsModuleHint.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavSharedText.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavStringBuffer.h"
#include "tr/tr.h"

// Stands for "the lock of the selector that these records belong to" in the compiler's analysis: one selector's records never meet
// another's.
class TAV_CAPABILITY("selector lock") TsLockToken {};
extern TsLockToken tsSelectorLock;
#define TS_LOCKED TAV_REQUIRES(tsSelectorLock)

// One route change for a connector, gathered under the lock and sent after it.
struct _TsNotice {
    TsNotice *next;
    TavConnector *connector; // counted
    const char *path;        // shared text, counted
};
TsNotice *tsNoticeCreate(const TargetServerApplication *sapp) noexcept; // returns new, null without memory
void tsNoticeDelete(TsNotice *notice) noexcept;                         // null ignored; not under the lock

// Holds the selector lock. What must not happen under it waits here and is done right after the release, on the same thread: notices are
// sent (routes that began, then routes that ended, each in the order they came), then the connectors of freed records are let go.
class TAV_SCOPED_CAPABILITY TsScope {
public:
    TsScope(TavLock *lock, const char *who) noexcept TAV_ACQUIRES(tsSelectorLock);
    ~TsScope() noexcept TAV_RELEASES();
    TsScope(const TsScope &) = delete;
    TsScope &operator=(const TsScope &) = delete;

    void notifyBegun(TsNotice *notice) noexcept { begun_.add(notice); } // takes it; null ignored
    void notifyEnded(TsNotice *notice) noexcept { ended_.add(notice); } // the same
    void bury(TargetServerApplication *sapp) noexcept;                  // takes a record of which only the connector is left
    void bury(TargetServer *server) noexcept;                           // the same
    void mute() noexcept { muted_ = true; }                             // notices are dropped instead of sent

private:
    struct Notices {
        TsNotice *first = nullptr;
        TsNotice **last = &first;
        void add(TsNotice *notice) noexcept;
    };
    void settle() noexcept;
    void send(Notices &notices, Boolean begun) const noexcept;

    TavLock *lock_;
    Notices begun_;
    Notices ended_;
    TargetServerApplication *deadServerApplications_ = nullptr;
    TargetServer *deadServers_ = nullptr;
    bool muted_ = false;
};

// ---- membership: one place of a record in a list, chained from the record, so that leaving needs no search in the list ----
struct _TsMember {
    TsMember *next; // of the same record, younger ones first
    TavList *list;
    TavListEle ele;
    void *container; // whose list it is
};
Boolean tsMemberAdd(TsMember **chain, TavList *list, void *container, void *object) noexcept; // at the tail; FALSE without memory
TsMember *tsMemberFindOldest(TsMember *chain, const void *container) noexcept;                // null when there is none
void tsMemberDrop(TsMember **chain, TsMember *member) noexcept;                               // leaves the list and frees the member

// ---- memory ----
// Asks for the cache lines of memory that may be gone, or null: it is not touched, and no pointer is computed.
inline void tsPrefetch(const void *memory, size_t size) noexcept {
    const auto place = reinterpret_cast<uintptr_t>(memory);
    for (size_t at = 0; at < size; at += 64) __builtin_prefetch(reinterpret_cast<const void *>(place + at));
}

// ---- states: most records are in one of a few, whose texts cost nothing ----
char *tsStateCopy(const char *state) noexcept; // null for null or without memory; not to be written to
void tsStateFree(char *state) noexcept;        // null ignored

// ---- nodes and clusters ----
void nodeDelete(TargetNode *node) noexcept TS_LOCKED; // one reference; frees at zero
void nodeFree(TargetNode *node) noexcept TS_LOCKED;
void clusterDelete(Cluster *cluster) noexcept TS_LOCKED;
void clusterFree(Cluster *cluster) noexcept TS_LOCKED;
void tsFreeFormerClusters(TargetSelector *ts) noexcept TS_LOCKED;

// ---- servers ----
void serverRecomputeSelectability(TargetServer *server) noexcept TS_LOCKED;
void serverInitRetry(TargetServer *server) noexcept TS_LOCKED;
Boolean serverSetState(TargetServer *server, const char *state) noexcept TS_LOCKED;
Boolean serverSetCloneId(TargetServer *server, const char *id) noexcept TS_LOCKED;
void serverForget(TargetServer *server) noexcept TS_LOCKED; // not selectable any more
void serverClearCloneId(TargetServer *server) noexcept TS_LOCKED;
void serverDelete(TsScope &scope, TargetServer *server) noexcept TS_LOCKED;
void serverFree(TsScope &scope, TargetServer *server) noexcept TS_LOCKED;
// Settles which endpoint each protocol gets, after any change of the endpoints.
void serverChooseEndPoints(TargetServer *server) noexcept TS_LOCKED;
// The first of its list with that name that was not deleted, or null.
TargetServerApplication *serverFindServerApplication(const TargetServer *server, const char *name) noexcept TS_LOCKED;
// The same with the name's tavHashCompute at hand.
TargetServerApplication *serverFindServerApplication(const TargetServer *server, const char *name, int hash) noexcept TS_LOCKED;

// ---- server applications ----
Boolean serverApplicationSetState(TsScope &scope, TargetServerApplication *sapp, const char *state) noexcept TS_LOCKED;
// Tells the connector when the last request of a server application that is not routable any more has ended.
void serverApplicationSettleRoute(TsScope &scope, TargetServerApplication *sapp) noexcept TS_LOCKED;
void serverApplicationForget(TargetServerApplication *sapp) noexcept TS_LOCKED;
void serverApplicationDelete(TsScope &scope, TargetServerApplication *sapp) noexcept TS_LOCKED;
void serverApplicationFree(TsScope &scope, TargetServerApplication *sapp) noexcept TS_LOCKED;

// ---- endpoints ----
Boolean endPointObtain(TavTargetEndpoint *endpoint) noexcept TS_LOCKED; // the host's object; TRUE when it holds one
void endPointGiveUp(TavTargetEndpoint *endpoint) noexcept TS_LOCKED;    // the host's object
void endPointTrim(TavTargetEndpoint *endpoint) noexcept TS_LOCKED;      // frees what no request can read any more
void endPointDelete(TavTargetEndpoint *endpoint) noexcept TS_LOCKED;
void endPointFree(TavTargetEndpoint *endpoint) noexcept TS_LOCKED; // leaves no list
// The first of a list that the configuration has not deleted, or null: a deleted one stays in the list until its requests let go.
TavTargetEndpoint *endPointFirst(const TavList *list) noexcept;

// ---- virtual clusters ----
VirtualCluster *virtualClusterFind(TargetSelector *ts, const char *name) noexcept TS_LOCKED;
VirtualCluster *virtualClusterFindOrCreate(TargetSelector *ts, const char *name) noexcept TS_LOCKED; // null without memory
void virtualClusterFree(VirtualCluster *vc) noexcept TS_LOCKED;
Boolean virtualClusterAdd(VirtualCluster *vc, TargetServerApplication *sapp) noexcept TS_LOCKED; // once; FALSE without memory
void virtualClusterRemove(VirtualCluster *vc, TargetServerApplication *sapp) noexcept TS_LOCKED;
void virtualClusterDropCluster(VirtualCluster *vc, Cluster *cluster) noexcept TS_LOCKED;
int virtualClusterArray(VirtualCluster *vc) noexcept TS_LOCKED; // brings sappArray up to date; its length
// Retries the deferred links that wait for this server application.
void serverApplicationRetryLinks(TargetServerApplication *sapp) noexcept TS_LOCKED;
void linkRequestDelete(void *request) noexcept;

// ---- selection ----
// The first session cookie, asked for before the lock is taken.
struct TsCookieAhead {
    const HttpAffinityPolicy *policy; // by which it was asked for; null: it was not
    const char *const *names;         // from the name that gave the value; at the end: the request has none
    const char *value;                // the host's, good until it is asked for anything else
};

// What one selection knows about its request.
struct TsRequest {
    TargetSelector *ts;
    TavHttpContext *ctx;
    TrContext *trCtx; // the request's
    const char *moduleName;
    const char *appName;
    TsModuleHint *hint; // may be null
    int protoIndex;     // of the request, then of the endpoint
    int counted;        // as how many requests: 1, of a trial 0
    bool byVHost;       // endpoints are chosen by the request's virtual-host group
    TsCookieAhead ahead;

    // The time of the selection: read once, by the first server that waits for its next try. Mostly there is none.
    TavTime now() const noexcept {
        if (!clockRead) clock = tavGetCurrentTime();
        clockRead = true;
        return clock;
    }
    mutable TavTime clock;
    mutable bool clockRead;
};

// tsServerApplicationReason with a clock that is read only when it matters.
template <typename Clock>
inline const char *serverApplicationReason(const TargetServerApplication *sapp, Boolean affinity, const Clock &now) noexcept TS_LOCKED {
    const TargetServer *server = sapp->server;
    const char *own = affinity ? sapp->reasonForNoAffinity : sapp->reasonForNoLoadBalancing;
    if (own) return own;
    const char *ofServer = affinity ? server->reasonForNoAffinity : server->reasonForNoLoadBalancing;
    if (ofServer) return ofServer;
    const TavTime retryTime = server->nextRetryTime.load(std::memory_order_relaxed);
    if (retryTime != 0 && tavTimeIsBefore(now(), retryTime)) return "connect failure";
    return server->cluster.load(std::memory_order_relaxed) ? nullptr : "no cluster associated with the server";
}

// Why affinity cannot be kept. A client decides how many reasons there are: the request gets what fits, without memory being asked for; all
// of it is only built when it is traced.
class TsReason {
public:
    explicit TsReason(bool traced) noexcept : traced_(traced) {}
    void add(const char *text) noexcept;
    void add(const char *before, const char *name, const char *after) noexcept;
    void add(const TsReason &other) noexcept;
    bool any() const noexcept { return any_; }
    bool traced() const noexcept { return traced_; }
    const char *text() const noexcept { return whole_ ? sbStr(whole_.get()) : ""; } // all of it; "" unless it is traced
    const char *brief() noexcept; // what fits, without a line break at the end; valid until the next add

private:
    void addWhole(const char *text) noexcept;
    void addBrief(const char *text, size_t length) noexcept;

    TavStringBufferPtr whole_;
    size_t length_ = 0; // of the brief form
    bool traced_;
    bool any_ = false;
    char brief_[TS_BREAK_REASON_SIZE];
};

HttpAffinityPolicy *getAffinityPolicy(VirtualCluster *vc) noexcept TS_LOCKED;
// Fills `req.ahead` by the module's last policy and asks for the memory of what its cookie will lead to. Without the lock.
void readCookieAhead(TsRequest &req) noexcept;
TargetServerApplication *getAffinityTargetServerApplication(const TsRequest &req, VirtualCluster *vc, HttpAffinityPolicy *policy,
                                                            TsReason &breakReason) noexcept TS_LOCKED;
void balancePrefetch(const TsModuleHint *hint) noexcept; // the same for load balancing
TargetServerApplication *wlorLoadBalance(const TsRequest &req, VirtualCluster *vc) noexcept TS_LOCKED;
TavTargetEndpoint *selectEndpointFromServer(const TsRequest &req, const TargetServer *server) noexcept TS_LOCKED;
inline bool checkIfMaxConnectionsExceeded(const TargetServer *server) noexcept TS_LOCKED {
    return server->maxConnections >= 0 && server->outstandingRequestCount >= server->maxConnections;
}
// "number of outstanding requests ..." into a caller's buffer; returns the buffer.
const char *serverFullReason(const TargetServer *server, char *buffer, size_t size) noexcept TS_LOCKED;
void tsTargetInfoIncrementRefCnt(TsTargetInfo *info, TargetServerApplication *sapp, TavTargetEndpoint *endpoint) noexcept TS_LOCKED;
json_t *clusterToJSON(const Cluster *cluster, bool full) noexcept TS_LOCKED; // returns new, null without memory

#endif
