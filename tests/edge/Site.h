// One application on one cluster: everything a request needs to be routed, built through the real mapper and selector.
#ifndef EDGE_SITE_H
#define EDGE_SITE_H

#include <deque>
#include <string>

#include "core/CoreFixture.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavURLMatcher/tavURLMatcher.h"

struct SiteServer {
    TargetServer *server;
    TavTargetEndpoint *endpoint;
    TavServerApplication sapp;
};

// Host localhost, port 80: /shop is module "store" of application "shop", served by cluster C1. Contexts are pooled.
class Site : public CoreFixture {
public:
    void SetUp() override;

    SiteServer &addServer(const char *name, const char *cloneId = nullptr, const char *type = "APPLICATION_SERVER");
    // A work-class rule of the application.
    void addRule(const char *name, const char *expression, const char *action);
    // A request-trace rule; returns its specification, borrowed.
    TrSpec *addTraceRule(int order, const char *expression, const char *spec);
    TavHttpContext *obtain() { return tavHttpContextObtain(tav, &host); }
    // Obtains a context and selects its endpoint.
    TavHttpContext *route();

    EnvHttpContext host;
    TavRoutingInfo *ri = nullptr;
    WebModule *module = nullptr;
    Application *application = nullptr;
    WebRouteWorkClass *workClass = nullptr;
    TargetNode *node = nullptr;
    Cluster *cluster = nullptr;
    std::deque<SiteServer> servers;
};

#endif
