// The instance's record. Only the top floor sees it; everyone else asks tavInstance/tavInstance.h.
#ifndef TAV_TAVRECORD_H
#define TAV_TAVRECORD_H

#include <jansson.h>

#include <atomic>

#include <tav/tav.h>

#include "tavHash/tavHash.h"
#include "tavInstance/tavInstance.h"
#include "tavList/tavList.h"
#include "tavLock/tavLock.h"
#include "tavProperties/tavProperties.h"
#include "tavThread/tavThread.h"

typedef struct TavServerProcess TavServerProcess;
typedef struct TavClientProcess TavClientProcess;

typedef enum TavProcessType { StandaloneProcess = 0, ServerProcess = 1, ClientProcess = 2 } TavProcessType;

typedef struct PartitionIDTable {
    TavHashMap *map; // cluster name to PartitionIDData
    TavLock *lock;
} PartitionIDTable;

// Where a thread leaves the context of its last request; see tavIdleContexts.cpp. One to two cache lines, which others do not write to.
struct TavIdleContext {
    std::atomic<TavHttpContext *> ctx;
    char apart[120];
};
inline constexpr unsigned TAV_IDLE_CONTEXTS = 16;

struct _Tav {
    std::atomic<int> refcnt;
    EnvCallBacks env;
    std::atomic<TavComponentState> state;
    std::atomic<TavSSLMapMode> sslMapMode;
    TavList *connectorGroupList; // owns the groups; control lock
    TavProperties *props;
    TavHashMap *defaultProps; // instance-level values; owned texts
    TavHashMap *serverProps;  // values last set by server custom properties; owned texts
    std::atomic<int> maxHttpContextPoolSize;
    TavList *contextPool;
    TavLock *contextPoolLock;
    TavTargetEndpoint *targetEndpoint;
    std::atomic<int> maxTargetEndpointsPerRequest;
    TavLock *stopLock;
    TavLock *routingInfoLock;
    std::atomic<TavRoutingInfo *> routingInfo; // changed, and counted, under routingInfoLock
    TavRoutingInfo *newRoutingInfo;            // control lock
    TavHashMap *endPointRefMap;                // endpoint name to EndPointRef; guarded by endPointRefLock
    TavHashMap *sappMap;
    PartitionIDTable partitionIDData;
    TrMgr *trMgr;
    std::atomic<TrSpec *> customPropDefaultRequestTraceSpec; // counted; changed, and obtained, under trSpecLock
    TavLock *trSpecLock;
    TrContext *trCtx;
    TrRecord *processRec;
    TrRecord *controlStateChangeRec;
    TrRecord *jsonReceivedRec;
    TrRecord *jsonUpdatedRec;
    TrRecord *invalidJSON;
    TrRecord *invalidAction;
    TrRecord *invalidKey;
    TrRecord *ipcProcessRec;
    TrRecord *requestTraceSpecAdded;
    TrRecord *requestTraceSpecRemoved;
    TrRecord *defaultReqTraceSpecSet;
    TrRecord *defaultReqTraceSpecReset;
    TrRecord *defaultTraceSpecSet;
    TrRecord *defaultTraceSpecSetEmpty;
    TrRecord *defaultTraceSpecReset;
    TavProcessType processType;
    char *unixDomainSocketPath;
    uid_t unixDomainSocketUid;
    TavServerProcess *serverProcess;
    std::atomic<int> requestsPerDaemon;
    std::atomic<int> maxRequestsPerDaemon;
    TavClientProcess *clientProcess;
    Language *httpLanguage;
    TavRules *requestTraceRules;
    std::atomic<int> maxSecondsToWaitDuringAtomicRollout;
    std::atomic<const char *> serverName; // the names are interned: a replaced one stays readable
    std::atomic<const char *> ppid;
    std::atomic<const char *> serverPath;
    std::atomic<const char *> cellPath;
    HealthMonitor *healthMonitor;
    TavCondition *asyncWorkCondition;
    TavList *asyncWorkQueue; // AsyncWork; guarded by the condition's lock
    TavThread *asyncWorkThread;
    json_t *controlState; // control lock
    std::atomic<Boolean> privateHeadersDisabled;
    std::atomic<TavTime> maxElapsedTimePerRequestInMillis;
    std::atomic<Boolean> enableTrustedProxy;
    TavList *trustedProxyList; // texts; guarded by nameLock

    TavLock *endPointRefLock;
    TavLock *nameLock;           // interned names, trusted proxies, custom property maps
    TavList *internedNames;      // every distinct name ever set
    TavHashMap *trustedProxySet; // the list's texts, for the look-up
    std::atomic<Boolean> selectEndpointByVHost;
    std::atomic<int> partitionCount; // entries of the partition table
    bool asyncAwaited;               // tavDestroy waits for the thread; likewise
    bool asyncStopping;              // guarded by the async condition's lock
    std::atomic<int> asyncRunning;   // not 0 while the thread is in its loop
    pid_t asyncPid;                  // of the process that started the thread
    TrSpec *noticeTraceSpec;         // ":NOTICE" compiled once, for requests to copy
    std::atomic<bool> terminateQueued;
    bool rebuildDue;     // memory ran out while a delta was applied: the next document builds the snapshot anew; control lock
    int stopsInProgress; // tavStop2 calls that wait with the locks released; control lock
    unsigned stopCount;  // stops and destroys so far: a start that waits sees that it was overtaken; control lock
    bool destroying;     // tavDestroy2 has begun: nothing starts and no group joins any more; control lock
    std::atomic<long long> configVersion; // of the current snapshot; written with the control lock held
    TavIdleContext idleContexts[TAV_IDLE_CONTEXTS];
};

// ---- control and stop lock ----
void tavControlLock(const char *who) noexcept;
void tavControlUnlock() noexcept;
void tavStopLock(Tav *tav, const char *who) noexcept;
void tavStopUnlock(Tav *tav) noexcept;

// ---- life (control lock held) ----
int tavStart2(Tav *tav, int timeoutInSecs) noexcept;
int tavStop2(Tav *tav, const char *reason) noexcept;
void tavDestroy2(Tav *tav) noexcept;
void tavCheckState(Tav *tav) noexcept;
void tavSetState(Tav *tav, TavComponentState state, const char *reason) noexcept;
Boolean isStartable(Tav *tav) noexcept;
Boolean isStoppable(Tav *tav) noexcept;
Boolean isInitialized(Tav *tav) noexcept;

// Moves every idle context to the pool and gives its snapshot back. After a change of `routingInfo`; no lock but control may be held.
void tavSweepIdleContexts(Tav *tav) noexcept;

// ---- the instance's parts ----
char *tavSetProperty(void *tav, char *name, char *value) noexcept; // the property set's setter
// The custom properties that the controller is asked for, in order; a null ends them.
extern const char *const tavCustomPropertyNames[];
json_t *tavConnectorGroupsToJSON(Tav *tav) noexcept; // returns new, keyed by group name; control lock held
// Sends the control state to one client (`fd`) or to all (-1). Control lock held.
void tavUpdateControlState(Tav *tav, int fd) noexcept;
TavServerProcess *tavGetServerProcess(Tav *tav) noexcept;      // returns borrowed; null unless marked as the daemon
int tavClientProcessSendJson(Tav *tav, json_t *json) noexcept; // -1 without a client process, memory or text

#endif
