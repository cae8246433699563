// The selector's site as requests find it: at host localhost, port 80, below /shop. Contexts are pooled.
#ifndef EDGE_SITE_H
#define EDGE_SITE_H

#include "model/SelectorTest.h"

class Site : public SelectorTest {
public:
    void SetUp() override;

    Back &addServer(const char *name, const char *cloneId = nullptr, const char *type = "APPLICATION_SERVER");
    // A work-class rule of the application.
    void addRule(const char *name, const char *expression, const char *action);
    // A request-trace rule; returns its specification, borrowed.
    TrSpec *addTraceRule(int order, const char *expression, const char *spec);
    TavHttpContext *obtain() { return tavHttpContextObtain(tav, &host); }
    // Obtains a context and selects its endpoint.
    TavHttpContext *route();
    // The server that was added first.
    Back &first() { return backs.front(); }

    EnvHttpContext host;
    WebRouteWorkClass *workClass = nullptr;
};

#endif
