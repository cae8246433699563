// Walking the topology for tools that tell why a server is not chosen.
#include "tavTargetSelector/tsInternal.h"

// A server's applications that no virtual cluster lists, and the server itself when it has none.
static void visitRest(const TargetServer *server, TsVisitFcn fn, void *passback) noexcept TS_LOCKED {
    if (tavListIsEmpty(server->serverApplications)) {
        const TsVisit visit = {nullptr, nullptr, server};
        fn(&visit, passback);
    }
    for (const TargetServerApplication *sapp : TavListRange<TargetServerApplication>(server->serverApplications)) {
        const TsVisit visit = {nullptr, sapp, server};
        if (!sapp->memberships) fn(&visit, passback);
    }
}

void tsForEachServerApplication(TargetSelector *ts, TsVisitFcn fn, void *passback) noexcept {
    if (!ts || !fn) return;
    TsScope scope(ts->lock, "tsForEachServerApplication");
    for (auto [name, vc] : TavHashRange<VirtualCluster>(ts->virtualClusterMap)) {
        for (const TargetServerApplication *sapp : TavListRange<TargetServerApplication>(vc->sappList)) {
            const TsVisit visit = {vc, sapp, sapp->server};
            fn(&visit, passback);
        }
    }
    for (const TargetNode *node : TavListRange<TargetNode>(ts->nodes)) {
        for (const TargetServer *server : TavListRange<TargetServer>(node->servers)) visitRest(server, fn, passback);
    }
}
