// An instance for tests of the edge modules: what they ask of the core, answered from plain fields. Not for several threads.
#ifndef EDGE_FAKECORE_H
#define EDGE_FAKECORE_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "edge/FakeHost.h"
#include "tavHttpContext/tavInstanceForContext.h"
#include "tavInstance/tavInstance.h"
#include "tr/tr.h"

struct _TavRoutingInfo {
    Tav *tav;
    RequestMapper *mapper;
    TargetSelector *selector;
    int refCount = 1;
};

struct _Tav {
    EnvCallBacks env = fakeHostCallBacks();
    bool canRoute = true;
    int poolLimit = 10; // 0: nothing is pooled
    std::vector<TavHttpContext *> pool;
    TavRoutingInfo *routingInfo = nullptr;
    TrMgr *mgr = nullptr;
    TrSpec *customSpec = nullptr;
    TavRules *traceRules = nullptr;
    Language *language = nullptr;
    bool trustedProxyEnabled = false;
    std::set<std::string> trustedProxies;
    bool privateHeadersDisabled = false;
    int maxRolloutSeconds = 3;
    TavTime maxElapsed = static_cast<TavTime>(-1);
    int maxEndpoints = 9999;
    TavTargetEndpoint *fixedEndpoint = nullptr;
    TavSSLMapMode sslMapMode = NullMapMode;
    std::map<std::string, PartitionIDData *> partitions;
    int partitionsSet = 0;
    int requestsCounted = 0;
    int stopLocks = 0, stopUnlocks = 0;
    bool partitionsLocked = false;

    _Tav();  // reads the trace catalogue, builds the HTTP language and an empty set of trace rules
    ~_Tav(); // deletes the pooled contexts
    _Tav(const _Tav &) = delete;
    _Tav &operator=(const _Tav &) = delete;
    void setTraceSpec(const char *text);       // the instance's default specification
    void setCustomTraceSpec(const char *text); // null: none
    std::vector<std::string> trace;            // lines that passed the specification
    bool traced(const std::string &part) const;
};

#endif
