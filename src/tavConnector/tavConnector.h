// Connector groups: a controller's REST service, the URLs through which it is reached, and the requests sent to it.
//
// The group owns its connectors, the instance its groups. A connector holds a reference on its group and the group one on the instance;
// tavConnectorGroupDelete breaks the circle. Two layers: the exported forms of tav/connector.h and the ones without a lock word take the
// control lock, unless the thread holds it; "control lock held" forms expect it. What request threads and the instance's own thread touch
// (state, processing mark, gathered routes, failures, outstanding requests) is guarded by the connector's own lock, which never calls out.
#ifndef TAVCONNECTOR_TAVCONNECTOR_H
#define TAVCONNECTOR_TAVCONNECTOR_H

#include <jansson.h>

#include <atomic>

#include <tav/connector.h>
#include <tav/instance.h>

#include "tavList/tavList.h"
#include "tavLock/tavLock.h"
#include "tavProperties/tavProperties.h"

typedef struct _TrRecord TrRecord;
typedef struct _TavRestRequest TavRestRequest;
typedef struct _TavStoredDocument TavStoredDocument;
typedef struct IpcFrame IpcFrame;

typedef enum TavRestRequestType {
    RRT_INIT = 0,
    RRT_WAIT_FOR_DELTA = 1,
    RRT_ROUTE_CHANGE = 2,
    RRT_HEALTH_POLICY_TRIGGER = 3
} TavRestRequestType;

// Every field is guarded by the control lock unless it is constant after creation, atomic or says otherwise.
struct _TavConnectorGroup {
    std::atomic<int> refcnt;
    Tav *tav; // counted
    char *interestSpec;
    char *name;
    Boolean initialized; // after the first successful init response
    std::atomic<TavComponentState> state;
    std::atomic<int> waitTime; // s
    TavProperties *props;
    TavList *connectorList; // each element counts its connector
    TavConnector *curConnector;
    std::atomic<int> maxRetryInterval; // s
    std::atomic<int> maxRetries;
    std::atomic<int> maxWaitOffset; // s
    std::atomic<Boolean> enableAdminTraffic;
    int consecutiveFailures;
    char *uri;
    char *restURI TAV_GUARDED_BY(uriLock);
    std::atomic<Boolean> isBrindle;
    TrContext *trCtx;
    TrRecord *debugCtl;
    TrRecord *noConnectorERR;
    TrRecord *jsonSentRec;
    TrRecord *connectorStateChangeRec;
    // private
    unsigned int generation; // grows whenever polling starts or ends: what belongs to an older one does nothing
    TavLock *uriLock;        // a leaf: requests for the controller are made on any thread
};

struct _TavConnector {
    std::atomic<int> refcnt;
    Tav *tav;
    TavConnectorGroup *cg; // counted
    char *URL;
    std::atomic<TavComponentState> state;
    TavProperties *props;
    EnvConnectorClient *client; // of the poll; control lock
    json_t *json;               // the stored document; counted; control lock
    int64_t vid;
    int64_t restVersion;
    Boolean isInit; // an init request was answered
    Boolean processingJSON TAV_GUARDED_BY(lock);
    Boolean isBrindle;
    json_t *addRoutes TAV_GUARDED_BY(lock); // gathered while a document is applied; null while empty
    json_t *delRoutes TAV_GUARDED_BY(lock);
    std::atomic<int> failures;
    TavList *outstandingRestRequestList TAV_PT_GUARDED_BY(lock);
    TavListEle *listEle;
    // private
    TavLock *lock;
    char *lastError;           // why it failed last; null: it has started since; owned; control lock
    TavStoredDocument *stored; // index over `json`; owned; control lock
    IpcFrame *documentFrame;   // `json` as workers get it; counted; null: not rendered since it changed; control lock
};

// A request belongs to its sender until it is sent, and to its response from then on; a sender keeps it alive until the host's sendRequest
// has returned.
struct _TavRestRequest {
    TavRestRequestType type;
    Tav *tav;
    TavConnectorGroup *cg; // counted
    TavConnector *c;       // counted once per send
    EnvCallBacks *cb;
    const char *method;
    char *uri;
    char *body;
    Boolean freeBody; // `body` is the request's own
    json_t *json;     // counted
    EnvConnectorClient *client;
    int maxWait; // s
    void (*freeResponse)(TavHttpResponse *response);
    void (*close)(EnvConnectorClient *client);
    TrContext *ctx;
    TrRecord *rec;
    // private
    std::atomic<int> refs;
    unsigned int generation; // of the group, when polling began; polls only
    // The rest is guarded by the connector's lock.
    Boolean canceled;                 // the response, when it comes, frees itself and the request and nothing else
    Boolean ownsClient;               // `client` was opened for this request alone
    Boolean sending;                  // the host's sendRequest has not returned
    Boolean closeAfterSend;           // the sender closes the client then
    Boolean answeredInside;           // sendRequest itself brought the response; sending thread only
    TavHttpResponse *pendingResponse; // handed over to the instance's own thread
};

// ---- groups (control lock held) ----
void tavConnectorGroupRun(TavConnectorGroup *cg) noexcept;
void tavConnectorGroupRunByAlarm(void *alarm) noexcept; // takes the control lock
// Ends the pending alarm of a group that cannot be stopped (a failed one), without a change of state. A polling group is left alone.
void tavConnectorGroupQuiesce(TavConnectorGroup *cg) noexcept;
void tavConnectorGroupUpdateRestURI(TavConnectorGroup *cg) noexcept;
TavConnector *tavConnectorGroupGetNextConnectorToTry(TavConnectorGroup *cg) noexcept; // borrowed
TavConnector *tavConnectorGroupGetCurConnector(TavConnectorGroup *cg) noexcept;       // borrowed
Boolean tavConnectorGroupIsStopped(TavConnectorGroup *cg) noexcept;
Boolean tavConnectorGroupIsInitialized(TavConnectorGroup *cg) noexcept;
void tavConnectorGroupSetState(TavConnectorGroup *cg, TavComponentState state, const char *reason) noexcept;
json_t *tavConnectorGroupToJSON(TavConnectorGroup *cg) noexcept; // returns new
void tavConnectorGroupObtainRef(TavConnectorGroup *cg, const char *reason) noexcept;
void tavConnectorGroupReleaseRef(TavConnectorGroup *cg, const char *reason) noexcept;

// ---- connectors ----
void tavConnectorObtainRef(TavConnector *c, const char *reason) noexcept; // any thread
// Any thread, without a connector lock. The last release runs nothing on the caller's thread: the connector is freed on the instance's own.
void tavConnectorReleaseRef(TavConnector *c, const char *reason) noexcept;
void tavConnectorSetState(TavConnector *c, TavComponentState state, const char *reason) noexcept; // control lock held
// The stored document is about to change, or has: what was rendered of it is dropped. Control lock held.
void tavConnectorDocumentChanged(TavConnector *c) noexcept;
// STOPPED or DELETED. In a worker, whose connectors are never run, only DELETED. Any thread.
Boolean tavConnectorIsStopped(TavConnector *c) noexcept;
void tavConnectorStop(TavConnector *c) noexcept;   // control lock held
void tavConnectorDelete(TavConnector *c) noexcept; // control lock held
// Marks that a document is being applied. When the mark goes off, gathered routes are sent in one document. Any thread, no lock but the
// connector's own.
void tavConnectorSetProcessingJSON(TavConnector *c, Boolean on, Boolean fromDaemonSide) noexcept;
// Tells the controller that server application `path` became routable (add) or stopped being so. Any thread; never under the selector lock.
void tavConnectorPostRoutingChange(TavConnector *c, const char *path, Boolean add, Boolean fromDaemonSide) noexcept;
// Sends `json` (borrowed; a worker adds the connector's name to it) as a request of that type. Any thread.
void tavConnectorRequestSend(TavConnector *c, TavRestRequestType type, json_t *json) noexcept;
int64_t tavConnectorGetVersion(TavConnector *c) noexcept;
const char *tavConnectorGetLastError(const TavConnector *c) noexcept; // borrowed; null: none; control lock held
void tavConnectorSetVersion(TavConnector *c, int64_t vid) noexcept;
int64_t tavConnectorGetRestVersion(TavConnector *c) noexcept;
void tavConnectorSetRestVersion(TavConnector *c, int64_t restVersion) noexcept;
json_t *tavConnectorGetJSON(TavConnector *c) noexcept;            // borrowed; control lock held
void tavConnectorSetJSON(TavConnector *c, json_t *json) noexcept; // takes a reference of its own; control lock held
// Adds "connectorGroupName" and "connectorURL" to a document. FALSE without memory.
Boolean tavConnectorAddName(TavConnector *c, json_t *json) noexcept;
json_t *tavConnectorToJSON(TavConnector *c) noexcept;        // returns new
json_t *tavConnectorsToJSON(TavConnectorGroup *cg) noexcept; // returns new, keyed by URL

// ---- requests ----
const char *tavRestRequestTypeToString(TavRestRequestType type) noexcept;
TavRestRequest *tavRestRequestCreate(TavRestRequestType type, TavConnectorGroup *cg) noexcept; // returns new, null without memory
// 0: the response owns the request now (in a worker: it is done, and still the caller's). -1: it is still the caller's. Any thread; no lock
// but the control lock may be held.
int tavRestRequestSend(TavRestRequest *req) noexcept;
// The callback given to the host. Takes `response`, which may be null, and the request; takes the control lock.
void tavRestResponseHandler(TavHttpResponse *response, TavHttpResponseContext *req) noexcept;
void tavRestRequestCancel(TavRestRequest *req) noexcept; // an outstanding one: its response will find nothing to do
void tavRestRequestDelete(TavRestRequest *req) noexcept; // one that is not outstanding; null ignored

#endif
