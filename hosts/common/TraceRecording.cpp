#include "TraceRecording.h"

#include <new>
#include <utility>

#include "TraceText.h"

namespace tavhost {

namespace {

thread_local TraceLines *recording = nullptr;

} // namespace

TraceRecording::TraceRecording(TraceLines &lines) : outer_(std::exchange(recording, &lines)) {}
TraceRecording::~TraceRecording() { recording = outer_; }

bool recordTrace(const TrContext *ctx, va_list args) {
    if (!recording) return false;
    const char *level = trContextGetLevel(ctx);
    try {
        recording->push_back({level ? level : "", traceText(ctx, args).text});
    } catch (const std::bad_alloc &) { // the hook must not throw
    }
    return true;
}

} // namespace tavhost
