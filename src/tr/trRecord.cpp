// Records. One may be listed by several groups; the last one decides its path, and the older paths still lead to it.
#include <utility>

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/trPriv.h"

namespace {

void freeRecord(TrRecord *record) {
    tavFree(record->name);
    tavFree(record->path);
    tavFree(record->format);
    tavFree(record->messageId);
    tavDestroyRecord(record);
}

TrRecord *newRecord(TrMgr *mgr, const char *name, const char *messageId, const char *format) {
    TrRecord *record = tavNewRecord<TrRecord>();
    if (!record) return nullptr;
    record->mgr = mgr;
    record->refcnt = 1;
    record->name = tavStrdup(name);
    record->messageId = tavStrdup(messageId);
    record->format = tavStrdup(format);
    if (record->name && record->messageId && (record->format || !format)) return record;
    freeRecord(record);
    return nullptr;
}

// Lists the record in the group and under its path there. FALSE without memory: nothing has changed.
bool attachRecord(TrRecord *record, TrGroup *parent) {
    TavText path(trChildPath(parent, record->name));
    if (!path) return false;
    record->refcnt++;
    if (!tavListAddTail(parent->records, record)) return false; // the list has given the reference back
    if (tavHashPut(record->mgr->recordMap, path.get(), record) == record) {
        tavListRemoveTail(parent->records);
        record->refcnt--;
        return false;
    }
    tavFree(std::exchange(parent->recordsArray, nullptr));
    tavFree(std::exchange(record->path, path.release()));
    return true;
}

} // namespace

TrRecord *trMakeRecord(TrMgr *mgr, TrGroup *parent, const char *name, int level, int defaultLevel, const char *messageId,
                       const char *format) noexcept {
    TrRecord *record = newRecord(mgr, name, messageId, format);
    if (!record || !tavListAddTail(mgr->records, record)) return nullptr;
    record->level = level;
    record->defaultLevel = defaultLevel;
    record->index = mgr->recordCount;
    if (parent && !attachRecord(record, parent)) {
        tavListRemoveObject(mgr->records, record);
        return nullptr;
    }
    mgr->recordCount++;
    return record;
}

void trReleaseRecord(TrRecord *record) noexcept {
    if (!record || --record->refcnt >= 1) return;
    // Older paths and a message id may lead here too.
    for (auto [key, value] : TavHashRange<TrRecord>(record->mgr->recordMap)) {
        if (value == record) tavHashPut(record->mgr->recordMap, key, nullptr);
    }
    freeRecord(record);
}

TrRecord *trRecordCreate(TrGroup *parent, const char *name, int level, int defaultLevel) noexcept {
    if (!parent || !name) return nullptr;
    TavLockGuard guard(parent->mgr->lock, "trRecordCreate");
    return trMakeRecord(parent->mgr, parent, name, level, defaultLevel == -1 ? level : defaultLevel, "-1", nullptr);
}

TrRecord *trRecordCreateFromMessage(TrMgr *mgr, const char *name, int level, const char *messageId) noexcept {
    if (!mgr || !name || !messageId) return nullptr;
    TavLockGuard guard(mgr->lock, "trRecordCreateFromMessage");
    TrRecord *record = trMakeRecord(mgr, nullptr, name, level, -1, messageId, nullptr);
    if (record && tavHashPut(mgr->recordMap, messageId, record) == record) {
        tavListRemoveObject(mgr->records, record);
        return nullptr;
    }
    return record;
}

TrRecord *trMgrGetRecord(TrMgr *mgr, const char *path) noexcept {
    if (!mgr) return nullptr;
    TavLockGuard guard(mgr->lock, "trMgrGetRecord");
    return static_cast<TrRecord *>(tavHashGet(mgr->recordMap, path));
}

TrRecord *trRecordGet(TrMgr *mgr, const char *path) noexcept {
    TrRecord *record = trMgrGetRecord(mgr, path);
    if (!record) {
        trFatal(TR_EXIT_CONTENT, "FATAL INTERNAL ERROR: Invalid record path: '%s'; check trace-cfg.xml for the valid path.\n",
                tavOrNull(path));
    }
    return record;
}

TrMgr *trRecordGetMgr(const TrRecord *record) noexcept { return record->mgr; }
const char *trRecordGetName(const TrRecord *record) noexcept { return record->name; }
const char *trRecordGetPath(const TrRecord *record) noexcept { return record->path; }
int trRecordGetIndex(const TrRecord *record) noexcept { return record->index; }
const char *trRecordGetFormat(const TrRecord *record) noexcept { return record->format; }
int trRecordGetDefaultLevel(const TrRecord *record) noexcept { return record->defaultLevel; }
void trRecordSetFormat(TrRecord *record, const char *format) noexcept { tavReplaceStr(&record->format, format); }

void trRecordAddParent(TrRecord *record, TrGroup *parent) noexcept {
    if (!record || !parent || record->mgr != parent->mgr) return;
    TavLockGuard guard(parent->mgr->lock, "trRecordAddParent");
    attachRecord(record, parent);
}

void trRecordDelete(TrRecord *record) noexcept {
    if (!record) return;
    TavLock *lock = record->mgr->lock;
    TavLockGuard guard(lock, "trRecordDelete");
    tavListRemoveObject(record->mgr->records, record);
}
