// The selector's surroundings for its benchmark: records without locks, maps or copies, so that what is measured is the selector.
#ifndef BENCH_SELECTORFAKES_H
#define BENCH_SELECTORFAKES_H

#include "tavTargetSelector/tavTargetSelector.h"

struct _TavHttpContext {
    Tav *tav = nullptr;
    const char *moduleName = nullptr;
    const char *applicationName = nullptr;
    const char *cookie = nullptr;
    TavTargetEndpoint *endpoint = nullptr;
    TargetServerApplication *sapp = nullptr;
    TsTargetInfo targetInfo{};
    bool loadBalanced = false;
};

struct _WebModule {
    const char *name;
    const char *application;
};

struct _Tav {
    TrMgr *mgr;
    EnvCallBacks env;
};

struct _TavRoutingInfo {
    Tav *tav;
};

#endif
