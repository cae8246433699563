// The selector's site as requests find it: at host localhost, port 80, below /shop. Contexts are pooled.
#ifndef EDGE_SITE_H
#define EDGE_SITE_H

#include "model/SelectorTest.h"

// A context that is released at the end of its scope.
struct Obtained : RequestPtr {
    using RequestPtr::RequestPtr;
    operator TavHttpContext *() const { return get(); }
};

class Site : public SelectorTest {
public:
    void SetUp() override;

    Back &addServer(const char *name, const char *cloneId = nullptr, const char *type = "APPLICATION_SERVER");
    // A work-class rule of the application.
    void addRule(const char *name, const char *expression, const char *action);
    // A request-trace rule; returns its specification, borrowed.
    TrSpec *addTraceRule(int order, const char *expression, const char *spec);
    Obtained obtain() { return Obtained(tavHttpContextObtain(tav, &host)); }
    // Obtains a context and selects its endpoint.
    Obtained route();
    // The server that was added first.
    Back &first() { return backs.front(); }

    EnvHttpContext host;
    WebRouteWorkClass *workClass = nullptr;
};

#endif
