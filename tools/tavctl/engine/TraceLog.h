// What the library traced while a request was decided, and the story that it tells.
#ifndef TAVCTL_TRACELOG_H
#define TAVCTL_TRACELOG_H

#include <tav/trace.h>

#include <optional>
#include <string>
#include <vector>

#include "TraceRecording.h"

namespace tavctl {

using tavhost::TraceLine;
using tavhost::TraceLines;
using tavhost::TraceRecording;

// The hook for EnvCallBacks.trace.printf.
int traceHook(const TrContext *ctx, va_list args);

struct PassedOver {
    std::string address; // under which the library told of the server application
    std::string name;    // of the server application
    std::string reason;
};

struct Compared {
    std::string server;
    std::string load; // "weight=2, outstandingRequestCount=0"
};

// Read from the library's own texts.
struct TraceStory {
    std::vector<std::string> ruleSteps; // what each operator found, addresses taken out
    std::optional<std::string> affinityKept;
    std::vector<std::string> affinitySteps;
    std::optional<std::string> rollout; // what a request that is not only tried would do
    std::vector<PassedOver> passedOver;
    std::vector<Compared> compared;
};
TraceStory traceStory(const TraceLines &lines);
// The lines of one rule's evaluation, addresses taken out.
std::vector<std::string> evaluationSteps(const TraceLines &lines);

} // namespace tavctl

#endif
