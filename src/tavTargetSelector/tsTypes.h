// The records of the routing topology. Every field is guarded by the selector lock (TargetSelector.lock) unless it is constant after
// creation or atomic. Atomic fields are written under the lock and read without it through the accessors that requests use.
#ifndef TAVTARGETSELECTOR_TSTYPES_H
#define TAVTARGETSELECTOR_TSTYPES_H

#include <atomic>
#include <cstdint>

#include <tav/types.h>

#include "tavHash/tavHash.h"
#include "tavInstance/tavInstance.h"
#include "tavList/tavList.h"
#include "tavLock/tavLock.h"
#include "tavTargetSelector/tavHttpContextForSelector.h"
#include "tavUtil/tavTime.h"

typedef struct _VirtualCluster VirtualCluster;
typedef struct _TavServerApplication TavServerApplication;
typedef struct _WebModule WebModule;
typedef struct _HealthPolicy HealthPolicy;
typedef struct _TsMember TsMember;
typedef struct _TsNotice TsNotice;
typedef struct _TsAffinityTable TsAffinityTable; // tsAffinityTable.h

typedef enum MaintenanceMode { NormalMM = 0, AffinityMM = 1, BreakMM = 2 } MaintenanceMode;

typedef enum TavServerType {
    TAVSERVERTYPE_UNKNOWN = 0,
    TAVSERVERTYPE_NODE_AGENT = 1,
    TAVSERVERTYPE_DEPLOYMENT_MANAGER = 2,
    TAVSERVERTYPE_WEB_SERVER = 3,
    TAVSERVERTYPE_APPLICATION_SERVER = 4,
    TAVSERVERTYPE_BRINDLE_SERVER = 5
} TavServerType;

inline constexpr int TS_PROTOCOLS = 2;                   // index 0 "http", 1 "https"
inline constexpr TavTime TS_FIRST_RETRY_INTERVAL = 50;   // ms
inline constexpr TavTime TS_LAST_RETRY_INTERVAL = 60000; // ms
inline constexpr TavTime TS_RESPONSE_TIME_INTERVAL = 15000;
inline constexpr TavTime TS_TIMEOUT_INTERVAL = 60000;

struct _TargetSelector {
    Tav *tav;                       // borrowed: the snapshot holds it
    TavRoutingInfo *ri;             // borrowed: it owns the selector
    TavLock *lock;                  // rank TargetSelector
    TavHashMap *virtualClusterMap;  // module name to VirtualCluster, owned
    TavHashMap *serverMapByCloneId; // clone id to TargetServer
    TavList *nodes;
    TavList *clusters;
    TrContext *trCtx;
    TrRecord *selectRec;
    TrRecord *rolloutRec;
    TrRecord *affinityRec;
    TrRecord *keepAffinityRec;
    TrRecord *breakAffinityRec;
    TrRecord *balanceRec;
    TrRecord *error503Rec;
    TrRecord *controlRec;
    TrRecord *serverStateRec;
    // private
    TargetServer *firstServer;                             // every server that lives, also those that were never initialised
    int selected;                                          // requests that hold a target
    unsigned virtualClusterGeneration;                     // one more whenever a virtual cluster goes; see TsModuleHint
    Cluster *formerClusters;                               // at zero, but a request may be reading the name
    HttpAffinityPolicy *ownedPolicies;                     // made for virtual clusters without a web module
    int serverApplicationCount;                            // those in a server's list
    uint64_t affinityGeneration;                           // one more whenever a clone id and a name may lead elsewhere than before
    std::atomic<TsAffinityTable *> affinityTable{nullptr}; // null until the first session is kept
};

struct _TargetNode {
    char *name;
    int refcnt;
    Boolean maintenanceMode;
    TargetSelector *selector;
    TavList *servers; // initialised ones, borrowed
    // private
    TavListEle *ele; // place in the selector's nodes
    Boolean deleted; // by the configuration
};

struct _Cluster {
    char *name;
    int refcnt;
    char *sessionAffinityCookies;
    char *cloneIdSeparator;
    Boolean learnServerIds;
    TavServerType serverType;
    TavList *servers; // borrowed; a server linked twice stands twice
    TargetSelector *selector;
    PartitionIDData *partitionIDData; // not used: partition data belong to the instance
    Boolean editionRolloutInProgress;
    std::atomic<int> ioTimeoutRetry{-1};
    // private
    TavListEle *ele;       // place in the selector's clusters
    TsMember *memberships; // the virtual clusters that list it
    Cluster *next;         // among formerClusters
    Boolean deleted;       // by the configuration
};

struct _TargetServer {
    char *name; // shared text, counted
    std::atomic<TavServerType> type{TAVSERVERTYPE_UNKNOWN};
    int refcnt;
    TargetNode *node; // counted
    TargetSelector *selector;
    TavConnector *connector;              // counted
    char *state;                          // see tsStateCopy
    std::atomic<char *> cloneId{nullptr}; // set once
    char *sessionAffinityCookies;
    std::atomic<Boolean> cloneSeparatorChange{FALSE};
    Boolean started;
    int weight;
    std::atomic<int> connectTimeout{5}; // s, like the next three
    std::atomic<int> ioTimeout{900};
    std::atomic<int> wsIoTimeout{30};
    std::atomic<int> wsIdleTimeout{900};
    int maxConnections; // negative: no limit
    std::atomic<Boolean> waitForContinue{FALSE};
    std::atomic<Boolean> extendedHandshake{FALSE};
    MaintenanceMode maintenanceMode;
    const char *reasonForNoLoadBalancing; // constant texts; null: selectable
    const char *reasonForNoAffinity;
    TavList *endPoints[TS_PROTOCOLS]; // in the record, like serverApplications
    int outstandingRequestCount;
    std::atomic<TavTime> nextRetryInterval;
    std::atomic<TavTime> nextRetryTime;      // 0: at any time
    std::atomic<Cluster *> cluster{nullptr}; // counted
    TavList *linkRequests;                   // of LinkServerToWebModuleRequest, owned; null until the first
    TavList *serverApplications;
    TavList *healthPolicies; // of HealthPolicyLink, owned; null until the first
    TavTime avgResponseTime; // ms
    TavAvgCalc avgResponseTimeCalc;
    TavTimeoutCalc timeoutCalc;
    // private
    TavTargetEndpoint *usualEndPoint[TS_PROTOCOLS]; // selectEndpointFromServer without virtual hosts; kept up by tsServerChooseEndPoints
    TavHashMap *serverApplicationMap;               // name to the first living one of that name; null while they are few
    TavTargetEndpoint *firstEndPoint;               // every endpoint made for the server, attached or not
    TsMember *memberships;                          // every place in a cluster's list
    TavListEle *nodeEle;                            // place in the node's servers; null until initialised
    TargetServer *next;                             // among all servers of the selector
    TargetServer *prev;
    TavList endPointLists[TS_PROTOCOLS];
    TavList serverApplicationList;
    Boolean deleted; // by the configuration: not found by clone id, in no virtual cluster
};

struct _TargetServerApplication {
    const char *name; // inside `path`
    char *path;       // shared text, counted
    int refcnt;
    TargetServer *server;
    char *state;                          // see tsStateCopy
    const char *reasonForNoLoadBalancing; // constant texts; null: selectable
    const char *reasonForNoAffinity;
    Boolean routable; // the connector was told so
    int outstandingRequestCount;
    TavConnector *connector;                    // counted
    TavServerApplication *tavServerApplication; // the configuration's handle; null once it let go
    // private
    TsNotice *endNotice;               // in stock while routable: saying that the route ended needs no memory
    TsMember *memberships;             // the virtual clusters that list it
    TavListEle ele;                    // place in the server's list; without an object: in none
    TargetServerApplication *nextDead; // waiting for its connector to be let go
    Boolean deleted;                   // by the configuration: not found by name, in no virtual cluster
};

// The configuration's handle, so that a freed server application is never touched. The configuration owns the memory; the selector sets
// `stale` when the record goes. Before freeing a handle that still leads to a record call tsServerApplicationForgetHandle.
struct _TavServerApplication {
    std::atomic<Boolean> stale{FALSE};
    TavLock *lock; // the selector's; not to be followed once stale
    TargetServerApplication *serverApplication;
};

// What the endpoint's accessors gave from one change of the endpoint to the next. A period ends with the next change; what ended with it is
// freed when no request of this or an earlier period is left.
struct _TsEndPointPeriod {
    TsEndPointPeriod *next; // younger
    int requests;           // selected in this period and not yet released
    char *text;             // the text that ended with the period
    EndPointRef *ref;       // the host's object that ended with it, counted
};

struct _TavTargetEndpoint {
    char *name; // shared text, counted
    int refcnt;
    TargetServer *server;
    std::atomic<char *> host{nullptr};
    std::atomic<int> port{-1};
    std::atomic<int> protoIndex{-1};
    char *sslProfile; // not set by any property
    std::atomic<char *> namedEndpoint{nullptr};
    std::atomic<int> persistentTimeout{30}; // s
    std::atomic<EnvTargetEndpoint *> envTargetEndpoint{nullptr};
    // private
    EndPointRef *ref;         // counted; the record behind envTargetEndpoint
    TsEndPointPeriod *oldest; // the first period that a request may still be in
    TsEndPointPeriod *current;
    TsEndPointPeriod *spare; // in stock while there is a ref: giving it up needs no memory
    int attachedIndex;       // the list it stands in, whatever protoIndex became since; -1: none
    TavTargetEndpoint *next; // among all endpoints of the server
    Boolean deleted;         // by the configuration: not chosen any more
};

struct _VirtualCluster {
    char *name; // the module's, own copy
    TargetSelector *selector;
    TavList *sappList;                   // borrowed
    TargetServerApplication **sappArray; // the list, null-terminated; see tsVirtualClusterArray
    int loadBalanceIndex;
    HttpAffinityPolicy *affinityPolicy; // borrowed: the web module's, or one of ownedPolicies
    TavList *clusterList;               // borrowed
    Cluster *cluster;                   // head of clusterList
    WebModule *webModule; // borrowed; null when only a server link made the virtual cluster; not followed after the mapper died
    // private
    TargetServer **serverArray; // the servers of sappArray's entries, in its block
    int sappCapacity;           // room of sappArray without the terminator
    Boolean arrayStale;         // membership changed since sappArray was filled
};

struct _PartitionIDData {
    TavHashMap *partition2CloneIdMap; // owned; may be null
    char *version;                    // owned
};

typedef struct _LinkServerToWebModuleRequest {
    char *appName;
    char *moduleName;
} LinkServerToWebModuleRequest;

#endif
