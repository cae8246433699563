// A trace catalogue: is read, or refused with a fault, and given back whole.
#include "FuzzTarget.h"

namespace {

FILE *openBytes(const uint8_t *data, size_t size) {
    FILE *file = tmpfile();
    FUZZ_CHECK(file && fwrite(data, 1, size, file) == size);
    rewind(file);
    return file;
}

void visit(TrGroup *group, int depth) {
    FUZZ_CHECK(depth <= TR_MAX_GROUP_DEPTH);
    for (TrRecord **record = trGroupGetChildRecords(group); record && *record; record++) FUZZ_CHECK(trRecordGetPath(*record));
    for (TrGroup **child = trGroupGetChildGroups(group); child && *child; child++) visit(*child, depth + 1);
}

} // namespace

FUZZ_TARGET(fuzz_catalogue) {
    const FuzzBalance balance;
    trSetFatalHook([](int, const char *) {});
    if (TrMgr *mgr = trMgrCreate(openBytes(data, size), TRUE)) {
        visit(trGroupGetRoot(mgr), 0);
        trSpecRefRelease(trSpecCreate(mgr, ":INFO,a.b:DEBUG"));
        trMgrDelete(mgr);
    }
    trSetFatalHook(nullptr);
    return 0;
}
