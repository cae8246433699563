// An instance for tests of the edge modules: what only they ask of the core, answered from plain fields. Not for several threads.
#ifndef EDGE_FAKECORE_H
#define EDGE_FAKECORE_H

#include <set>

#include "support/FakeInstance.h"
#include "tavHttpContext/tavInstanceForContext.h"

struct FakeCore : _Tav {
    bool canRoute = true;
    int poolLimit = 10; // 0: nothing is pooled
    std::vector<TavHttpContext *> pool;
    TavRoutingInfo *routingInfo = nullptr;
    TrSpec *customSpec = nullptr;
    TavRules *traceRules = nullptr;
    bool trustedProxyEnabled = false;
    std::set<std::string> trustedProxies;
    bool privateHeadersDisabled = false;
    int maxRolloutSeconds = 3;
    TavTime maxElapsed = static_cast<TavTime>(-1);
    int maxEndpoints = 9999;
    TavTargetEndpoint *fixedEndpoint = nullptr;
    int partitionsSet = 0;
    int requestsCounted = 0;
    int stopLocks = 0; // that are held

    FakeCore();                                // builds the HTTP language and an empty set of trace rules
    ~FakeCore();                               // deletes the pooled contexts and the partition data
    void setCustomTraceSpec(const char *text); // null: none
};

#endif
