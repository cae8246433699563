// The selector's surroundings for its benchmark: records without locks, maps or copies, so that what is measured is the selector.
#ifndef BENCH_SELECTORFAKES_H
#define BENCH_SELECTORFAKES_H

#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tr/tr.h"

inline constexpr const char *benchApplication = "shop-edition1.0";

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

struct _Tav {
    TrMgr *mgr;
    EnvCallBacks env;
};

struct _TavRoutingInfo {
    Tav *tav;
};

#endif
