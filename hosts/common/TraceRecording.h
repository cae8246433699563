// What the library traces while one request is looked at, kept instead of logged.
#ifndef TAV_HOSTS_TRACERECORDING_H
#define TAV_HOSTS_TRACERECORDING_H

#include <tav/trace.h>

#include <string>
#include <vector>

namespace tavhost {

// What is to be traced of a request that is explained: which rules were tried and what their operators found, which server was chosen or
// passed over and why.
inline constexpr const char *EXPLAIN_TRACE_SPEC = ":NOTICE,http.request.rules:DEBUG,http.request.select:DEBUG";

struct TraceLine {
    std::string level;
    std::string text; // without a line break at its end
};
using TraceLines = std::vector<TraceLine>;

// While it lives, what the library traces on this thread is appended to `lines` by recordTrace(). In the life of another one it takes its
// place.
class TraceRecording {
public:
    explicit TraceRecording(TraceLines &lines);
    ~TraceRecording();
    TraceRecording(const TraceRecording &) = delete;
    TraceRecording &operator=(const TraceRecording &) = delete;

private:
    TraceLines *outer_;
};

// For the print hook. FALSE: nothing is recorded on this thread, and `args` are untouched. A message for which there is no memory is lost.
bool recordTrace(const TrContext *ctx, va_list args);

} // namespace tavhost

#endif
