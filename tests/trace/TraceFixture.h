// Catalogues from texts, a print hook that remembers, a hook for fatal faults and a clock.
#ifndef TRACE_TRACEFIXTURE_H
#define TRACE_TRACEFIXTURE_H

#include <gmock/gmock.h>

#include <string>

#include "base/FailEachAllocation.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

inline FILE *openText(const std::string &text) {
    FILE *file = tmpfile();
    fwrite(text.data(), 1, text.size(), file);
    rewind(file);
    return file;
}

namespace trace {
inline std::string printed; // "level|id|text" of the last message
inline TavTime now;
inline std::string fatal; // "status|text" of each fault

inline int print(const TrContext *ctx, va_list args) {
    char text[1024];
    const char *format = trContextGetFormat(ctx);
    vsnprintf(text, sizeof text, format ? format : "(no format)", args);
    const char *level = trContextGetLevel(ctx);
    printed = std::string(level ? level : "(no level)") + "|" + trContextGetMessageId(ctx) + "|" + text;
    return 42;
}
inline TavTime clock() { return now; }
inline void onFatal(int status, const char *message) { fatal += std::to_string(status) + "|" + message; }
} // namespace trace

// Every test gives back what it took, the death row included.
class TraceTest : public LeakFree {
protected:
    TraceTest() {
        trace::printed.clear();
        trace::fatal.clear();
        trace::now = 100000;
        tavSetClock(trace::clock);
    }
    ~TraceTest() override {
        trMgrDelete(mgr);
        trPurgeDeathRow();
        trSetFatalHook(nullptr);
        tavSetClock(nullptr);
    }
    void load(FILE *catalogue) {
        mgr = trMgrCreate(catalogue, TRUE);
        ASSERT_NE(mgr, nullptr);
        trMgrSetPrintf(mgr, trace::print);
    }
    void load(const std::string &catalogue) { load(openText(catalogue)); }
    unsigned level(const TrSpec *spec, const char *path) const { return trSpecMaxLevel(spec, trMgrGetRecord(mgr, path)); }

    TrMgr *mgr = nullptr;
};

#endif
