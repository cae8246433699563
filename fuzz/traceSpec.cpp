// A trace specification: parses or is refused, the same every time, and every record gets a level.
#include "FuzzTarget.h"

namespace {

TrMgr *managerOfCatalogue() {
    static TrMgr *const mgr = trMgrCreate(fopen(TAV_SOURCE_DIR "/share/tav-trace.xml", "r"), TRUE);
    FUZZ_CHECK(mgr);
    return mgr;
}

} // namespace

FUZZ_TARGET(fuzz_traceSpec) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    TrMgr *mgr = managerOfCatalogue();
    const TrRecord *record = trMgrGetRecord(mgr, "control.process");
    const FuzzBalance balance;
    TrSpec *first = trSpecCreate(mgr, text.c_str()), *second = trSpecCreate(mgr, text.c_str());
    FUZZ_CHECK((first == nullptr) == (second == nullptr));
    if (first) {
        FUZZ_CHECK(trSpecMaxLevel(first, record) == trSpecMaxLevel(second, record));
        FUZZ_CHECK(trSpecMaxLevel(first, record) <= TR_DEBUG_LEVEL || trSpecMaxLevel(first, record) == 255);
        TrContext *ctx = trContextCreate(mgr);
        trContextSetSpec(ctx, trSpecCopy(first));
        FUZZ_CHECK(trContextTraceEnabled(ctx, record, TR_DEBUG_LEVEL) == (trSpecMaxLevel(first, record) >= TR_DEBUG_LEVEL));
        trContextDelete(ctx);
        trSpecRefRelease(first);
        trSpecRefRelease(second);
    }
    return 0;
}
