// Health policies: servers whose average response time or share of time-outs reaches a threshold are reported to the controller.
//
// Checks run on request threads under the selector lock and only queue work for the instance's own thread. The trigger map belongs to the
// process that owns the controller connection and has its own lock; reports are decided under it and sent after it.
#ifndef TAVHEALTHMONITOR_TAVHEALTHMONITOR_H
#define TAVHEALTHMONITOR_TAVHEALTHMONITOR_H

#include <tav/types.h>

#include "tavHash/tavHash.h"
#include "tavInstance/tavInstance.h"
#include "tavList/tavList.h"
#include "tavLock/tavLock.h"

typedef struct _TargetServer TargetServer;

typedef enum HealthPolicyType {
    HEALTHPOLICY_UNINITIALIZED = 0,
    HEALTHPOLICY_EXCESSIVE_RESPONSE_TIME = 1,
    HEALTHPOLICY_EXCESSIVE_REQUEST_TIMEOUTS = 2
} HealthPolicyType;

struct _HealthMonitor {
    Tav *tav; // borrowed: the instance owns its monitor
    TavLock *lock;
    TavHashMap *triggeredPolicyMap TAV_PT_GUARDED_BY(lock); // group to policy to server to reporter ids; made on first use
    TrContext *trCtx;
    TrRecord *debugCtl;
    TrRecord *debugReq;
    TrRecord *logResponsePolicyTriggered;
    TrRecord *logTimeoutPolicyTriggered;
};

typedef struct _HealthPolicyLink HealthPolicyLink;

// Everything but the name and the connector is guarded by the selector lock.
typedef struct _HealthPolicy {
    char *name;
    HealthPolicyType type;
    int threshold;           // ms or percent
    TavConnector *connector; // counted; may be null
    Boolean triggered;       // not used: whether it is triggered depends on the server
    // private
    int refcnt;              // the configuration's reference and one per link
    HealthPolicyLink *links; // every link to it, newest first
    TargetSelector *selector;
} HealthPolicy;

// One per server and policy, in the server's list. Guarded by the selector lock.
struct _HealthPolicyLink {
    HealthPolicy *policy; // counted
    Boolean triggered;
    // private
    TavList *owner;         // the server's list
    HealthPolicyLink *next; // among the policy's links
    HealthPolicyLink *prev;
};

// One contiguous block in the machine's byte order; the four texts follow at offset 24.
typedef struct _HealthPolicyTriggerReq {
    int len;
    Boolean triggered;
    int policyNameOffset;
    int serverNameOffset;
    int connectorGroupNameOffset;
    int connectorUrlOffset;
} HealthPolicyTriggerReq;

HealthMonitor *hmCreate(Tav *tav) noexcept; // returns new, null without memory
void hmDelete(HealthMonitor *hm) noexcept;  // null ignored
const char *hmHealthPolicyTypeToString(HealthPolicyType type) noexcept;

// Counts the connector, which may be null. Returns new; null without name or memory.
HealthPolicy *hmHealthPolicyCreate(TargetSelector *ts, const char *name, TavConnector *connector) noexcept;
// TRUE when the name is known and the value was taken.
Boolean hmHealthPolicySetPropStr(HealthPolicy *policy, const char *name, const char *value) noexcept; // takes the selector lock
Boolean hmHealthPolicySetPropInt(HealthPolicy *policy, const char *name, int value) noexcept;         // takes the selector lock
// Removes every link and gives the configuration's reference back; takes the selector lock. Null ignored.
void hmHealthPolicyDelete(HealthPolicy *policy) noexcept;
const char *hmHealthPolicyGetName(const HealthPolicy *policy) noexcept;

// The selector lock must be held. `policies` is the server's list; its destructor is hmHealthPolicyLinkDelete.
void hmLinkServerToHealthPolicy(Tav *tav, TargetServer *server, TavList *policies, HealthPolicy *policy, Boolean add) noexcept;
// The selector lock must be held. Destroys a link and gives its policy reference back.
void hmHealthPolicyLinkDelete(void *link) noexcept;
// The selector lock must be held; only queues. Servers are reported in the order of their links. avgRT TAV_NO_VALUE and timeoutPct -1 mean
// "no sample"; ctx may be null.
void hmCheckHealthPolicies(Tav *tav, TavHttpContext *ctx, TargetServer *server, TavList *policies, TavTime avgRT, int timeoutPct) noexcept;

// ---- in the process that owns the controller connection ----
// TRUE when `len` received bytes are as many as the block says it has. Null: FALSE.
Boolean hmTriggerReqFits(const HealthPolicyTriggerReq *req, int len) noexcept;
// The memory has to be as large as the block says; one whose texts lie outside it is dropped. Control lock held.
void hmServerProcessHandleMessage(Tav *tav, const HealthPolicyTriggerReq *req, int reporterId) noexcept;
void hmClientProcessCleanup(Tav *tav, int fd) noexcept; // control lock held
// Reports every triggered policy as no longer triggered and forgets all reporters. Control lock held.
void hmResetInfo(Tav *tav) noexcept;
void hmDumpTriggerMap(Tav *tav) noexcept;

#endif
