// An instance and a snapshot as plain records, for tests below the core: the real trace catalogue, a host, and what the modules ask of
// the instance, answered from fields.
#ifndef SUPPORT_FAKEINSTANCE_H
#define SUPPORT_FAKEINSTANCE_H

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "support/FakeHost.h"
#include "tavInstance/tavInstance.h"
#include "tr/tr.h"

struct _TavRoutingInfo {
    Tav *tav = nullptr;
    RequestMapper *mapper = nullptr;
    TargetSelector *selector = nullptr;
    Boolean published = FALSE;
    int refCount = 1;
    long long version = -1;
};

// One at a time: the trace goes to the youngest.
struct _Tav {
    EnvCallBacks env = fakeHostCallBacks();
    TrMgr *mgr;
    Language *language = nullptr;
    TavSSLMapMode sslMapMode = NullMapMode;
    std::map<std::string, std::string> properties;
    std::map<std::string, PartitionIDData *> partitions; // of the test
    std::mutex partitionsMutex;
    bool partitionsLocked = false;
    std::vector<std::string> trace; // lines that passed the specification

    _Tav(); // at ":NOTICE"
    ~_Tav();
    _Tav(const _Tav &) = delete;
    _Tav &operator=(const _Tav &) = delete;
    void setTraceSpec(const char *text);       // and forgets the lines so far
    int traced(const std::string &part) const; // lines that contain it
};

#endif
