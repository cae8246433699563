// The request context: one HTTP request's way through the library. The public half is tav/context.h. What the matcher, the mapper and the
// selector call is declared in their own folders (tavHttpContextForMatching.h, ...ForMapper.h, ...ForSelector.h) and implemented here.
//
// A context belongs to one request thread at a time; it takes no lock of its own. Its texts live in its own arena (or, once that is full,
// in counted memory): they are valid until the release, or until the setter of the same text is called again.
#ifndef TAVHTTPCONTEXT_TAVHTTPCONTEXT_H
#define TAVHTTPCONTEXT_TAVHTTPCONTEXT_H

#include <atomic>

#include <tav/context.h>
#include <tav/env.h>

#include "tavHttpContext/tavInstanceForContext.h"
#include "tavList/tavList.h"
#include "tavRequestMapper/tavHttpContextForMapper.h"
#include "tavRule/tavRule.h"
#include "tavTargetSelector/tavHttpContextForSelector.h"
#include "tavURLMatcher/tavHttpContextForMatching.h"
#include "tr/tr.h"

inline constexpr size_t TAV_HTTP_CONTEXT_ARENA = 1024; // bytes; the texts of a usual request fit

struct _TavHttpContext {
    Tav *tav;                    // alive while the context pins a snapshot
    TrContext *trContext;        // owned; its specification is chosen per request
    TrSpec *trSpec;              // counted: the context's own ":NOTICE"
    TavRoutingInfo *routingInfo; // counted, from obtain to release
    EnvHttpContext *envHttpContext;
    Boolean requestMapped;
    Boolean waitedForRollout;
    int requestMappingResult;          // 1 handled, 0 not handled, others are errors
    TavTargetEndpoint *targetEndpoint; // kept alive by the selector's target info
    TargetServerApplication *targetServerApplication;
    Boolean outstandingRequestCountIsIncremented;
    TavTime startTime;         // by tavGetTickedTime
    TavTime serviceTimeStart;  // TAV_NO_VALUE when unset
    TavTime serviceTime;       // ms; TAV_NO_VALUE when unset
    TavList *failedServerApps; // not counted: compared by identity only, never dereferenced
    int failureCount;
    int responseTimeouts;
    TavSSLMapMode sslMapMode;
    std::atomic<TavHttpContextState> state; // a cancel may come from another thread
    int subState;
    char *stateMsg; // the host's
    TavAction action;
    int errorCode;
    char *errorMsg; // this and the texts below: owned
    char *redirectURL;
    char *applicationName;
    char *moduleName;
    char *editionName;
    char *vHostName;
    char *contextRoot;
    HttpAffinityPolicy *policy; // borrowed from the snapshot
    Boolean sticky;
    char *url; // owned, built on first use
    Boolean performedLoadBalancing;
    Boolean privateHeadersAdded;
    TrRecord *debugMap;
    TrRecord *debugStateChange;
    TrRecord *rolloutRec;
    TrRecord *trRecTraceRuleMatches;
    TrRecord *debugRules;
    TrRecord *responseProcess;
    TrRecord *requestProcess;
    TrRecord *connectFailure;

    TsTargetInfo targetInfo;  // what the selector holds for this request
    TsModuleHint *moduleHint; // of moduleName; borrowed from the snapshot; null: none
    TavRuleMatch ruleMatch;   // the routing rule that decided; keeps its texts
    long long configVersion;  // of the snapshot, when the request was mapped; -1: it is not
    int portOfText;           // the port that portText spells; -1: none yet
    char portText[12];
    Boolean trial; // only tried: counted nowhere
    size_t arenaUsed;
    Boolean textsOutside; // a text of this request did not fit into the arena
    char arena[TAV_HTTP_CONTEXT_ARENA];
    char affinityBreakReason[TS_BREAK_REASON_SIZE]; // "": none
};

// ---- life ----
// Frees a context that is in no request. Used by the pool and when the pool refuses it; null ignored.
void tavHttpContextDelete(TavHttpContext *ctx) noexcept;

// ---- for the selector and the response ----
HttpAffinityPolicy *tavHttpContextGetAffinityPolicy(TavHttpContext *ctx) noexcept; // borrowed for the request; null: none
// Sets the headers that tell the back end about the client; once per request. Calls the host: no lock may be held.
void tavHttpContextAddPrivateHeaders(TavHttpContext *ctx) noexcept;

// ---- for tests ----
// Replaces the one-second sleep of the rollout wait (null: the real one again). Not while requests run.
void tavHttpContextSetRolloutSleep(void (*sleep)(int seconds)) noexcept;

#endif
