// What was decided for a request, and one request on its way through the library here.
#ifndef TAVCTL_DECISION_H
#define TAVCTL_DECISION_H

#include <tav/tav.h>

#include <memory>
#include <string>

#include "decision/Mapping.h"
#include "engine/Engine.h"
#include "engine/ScenarioHost.h"
#include "engine/TraceLog.h"

namespace tavctl {

// What is printed of a request, whether it was decided here or in a server.
struct Decision {
    Json json;    // the decision object (docs/scenario-format.md)
    Json reasons; // what addReasons() told
    MappingView mapping;
    TraceLines trace;
};

// Holds a request context; releases it when destroyed, which must be before the engine goes.
class RoutedRequest {
public:
    RoutedRequest(Tav *tav, EnvHttpContext request); // throws Fault
    RoutedRequest(RoutedRequest &&) = default;
    RoutedRequest &operator=(RoutedRequest &&) = default;

    void decide(); // should-handle, then a target when the action is PERMIT
    void retarget();
    void report(TavHttpContextState state);
    // The response has arrived; what the library did to it is in the request's changes.
    void respond();

    int handled() const { return handled_; }
    TavHttpContext *context() const { return context_.get(); }
    TavTargetEndpoint *endpoint() const { return endpoint_; } // valid until a failure is reported
    EnvHttpContext &request() { return *request_; }
    const EnvHttpContext &request() const { return *request_; }
    const TraceLines &trace() const { return trace_; } // of the last decision

    Json toJson(const std::string &id) const;
    Decision decision(const std::string &id) const;

private:
    struct Releaser {
        void operator()(TavHttpContext *ctx) const noexcept { tavHttpContextRelease(ctx); }
    };
    std::unique_ptr<EnvHttpContext> request_; // outlives the context
    std::unique_ptr<TavHttpContext, Releaser> context_;
    TavTargetEndpoint *endpoint_ = nullptr;
    int handled_ = 0;
    TraceLines trace_;
};

} // namespace tavctl

#endif
