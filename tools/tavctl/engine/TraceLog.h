// What the library traced while a request was decided, and the story that it tells.
#ifndef TAVCTL_TRACELOG_H
#define TAVCTL_TRACELOG_H

#include <tav/trace.h>

#include <optional>
#include <string>
#include <vector>

namespace tavctl {

struct TraceLine {
    std::string level;
    std::string text; // without a line break at its end
};
using TraceLines = std::vector<TraceLine>;

// While it lives, what the library traces on this thread is appended to `lines`. Not nested.
class TraceRecording {
public:
    explicit TraceRecording(TraceLines &lines);
    ~TraceRecording();
    TraceRecording(const TraceRecording &) = delete;
    TraceRecording &operator=(const TraceRecording &) = delete;
};

// Is a TraceRecording alive on this thread?
bool recordingTrace();
// The hook for EnvCallBacks.trace.printf.
int traceHook(const TrContext *ctx, va_list args);

struct PassedOver {
    const void *serverApplication; // the library's record, to be looked up while the configuration stays
    std::string name;              // of the server application
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
    std::vector<PassedOver> passedOver;
    std::vector<Compared> compared;
};
TraceStory traceStory(const TraceLines &lines);
// The lines of one rule's evaluation, addresses taken out.
std::vector<std::string> evaluationSteps(const TraceLines &lines);

} // namespace tavctl

#endif
