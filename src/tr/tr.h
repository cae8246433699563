// The trace facility: groups and records from the catalogue, specifications that give each record a maximum level, contexts that pair a
// manager with a specification. Text goes to the host's hook; nothing is written here.
//
// Use: look a record up once (trRecordGet), keep it, and emit with TR_DEBUG / TR_LOG / TR_TRACE, which test before they evaluate their
// arguments. The test takes no lock: the specification pointer is atomic and a released specification stays readable for
// TR_SPEC_DEATH_ROW_TIME. Never emit while holding a context's specLock or the death-row lock.
#ifndef TR_TR_H
#define TR_TR_H

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include <tav/trace.h>

#include "tavHash/tavHash.h"
#include "tavList/tavList.h"
#include "tavLock/tavLock.h"
#include "tavUtil/tavTime.h"

enum TrLevel : int { TR_OFF = 0, TR_EMERG, TR_ALERT, TR_CRITICAL, TR_ERROR, TR_WARNING, TR_NOTICE, TR_INFO, TR_DEBUG_LEVEL };

inline constexpr TavTime TR_SPEC_DEATH_ROW_TIME = 2000; // ms

typedef struct _TrGroup TrGroup;
typedef struct _TrRecord TrRecord;
typedef struct _TrSpec TrSpec;
typedef struct _TrMessage TrMessage;

struct _TrMgr {
    TrPrintf printf;       // the host's hook; may be null
    TavList *elements;     // open catalogue elements, newest first
    TrGroup *rootGroup;    // name and path are empty
    TavHashMap *groupMap;  // path to TrGroup
    TavHashMap *recordMap; // path (or message id) to TrRecord
    TavHashMap *messageMap;
    std::atomic<int> recordCount; // the next record index
    unsigned int transactionCount;
    TavLock *lock; // guards the tree of groups and records and both maps; a leaf
    TrContext *defaultContext;
    TavList *records;       // every record, each with its creator's reference
    Boolean catalogueFault; // the catalogue's content was refused
    Boolean outOfMemory;    // reading the catalogue ended for want of memory
};

struct _TrGroup {
    TrMgr *mgr;
    char *name;
    char *path;
    char *description;
    TavList *groups;
    TrGroup **groupsArray; // built on first request
    TavList *records;
    TrRecord **recordsArray; // built on first request
    int refcnt;
    int depth; // groups above it; the root has 0
};

struct _TrRecord {
    TrMgr *mgr;
    char *name;
    char *path;
    char *format; // may be null
    int level;    // -1: the record gave only a default level
    int defaultLevel;
    int refcnt;
    int index; // position in every specification's bytes
    char *messageId;
};

struct _TrMessage {
    char *name;
    char *id;
    char *format;
    char *level;
};

struct _TrSpec {
    std::atomic<int> refCount;
    TavTime timeOfDeath;
    int levelCount;  // bytes that follow the record; a record index past them counts as 255
    bool onDeathRow; // this and the links: guarded by the death-row lock
    TrSpec *rowPrev;
    TrSpec *rowNext;
};

// The maximum level by record index, right after the record; 255: untouched, everything on.
inline unsigned char *trSpecLevels(TrSpec *spec) noexcept { return reinterpret_cast<unsigned char *>(spec + 1); }
inline const unsigned char *trSpecLevels(const TrSpec *spec) noexcept { return reinterpret_cast<const unsigned char *>(spec + 1); }

struct _TrContext {
    TrMgr *mgr;
    std::atomic<TrSpec *> spec;
    TavLock *specLock; // null in the copy that the hook sees
    const char *format;
    const char *messageId;
    const char *level;
};

// ---- faults that end the process ----
// Called instead of printing `message` (cut at 511 bytes) and ending the process with `status`. The function that met the fault then fails
// in its usual way. For tests and fuzzing: null restores the normal course; not while threads run.
typedef void (*TrFatalFcn)(int status, const char *message);
void trSetFatalHook(TrFatalFcn hook) noexcept;

// ---- manager ----
// Reads the catalogue (null: none) and creates the default context with ":NOTICE". `closeFlag`: the file is closed in every case. Ends the
// process on a faulty catalogue (1 content, 2 syntax). Returns new; null without memory.
TrMgr *trMgrCreate(FILE *catalogueFile, Boolean closeFlag) noexcept;
void trMgrDelete(TrMgr *mgr) noexcept; // null ignored
TrContext *trMgrGetDefaultContext(TrMgr *mgr) noexcept;
TrGroup *trMgrGetGroup(TrMgr *mgr, const char *path) noexcept;   // null when absent
TrRecord *trMgrGetRecord(TrMgr *mgr, const char *path) noexcept; // null when absent

// ---- groups and records (borrowed from the manager, which frees them; each function takes the manager's lock) ----
inline constexpr int TR_MAX_GROUP_DEPTH = 256;                 // a group nested deeper is not created
TrGroup *trGroupCreate(TrMgr *mgr, const char *name) noexcept; // a child of the root
TrGroup *trGroupCreateChild(TrGroup *parent, const char *name) noexcept;
Boolean trGroupAddParent(TrGroup *group, TrGroup *parent) noexcept; // FALSE: it would close a circle
TrGroup *trGroupGet(TrMgr *mgr, const char *path) noexcept;
TrGroup *trGroupGetRoot(TrMgr *mgr) noexcept;
// Null-terminated, borrowed until the group's next change; null without memory.
TrGroup **trGroupGetChildGroups(TrGroup *group) noexcept;
TrRecord **trGroupGetChildRecords(TrGroup *group) noexcept;
// Takes the group out of one parent; the last one's removal frees it and lets go of its children. Not for the root.
void trGroupDelete(TrGroup *group) noexcept;
TrRecord *trRecordCreate(TrGroup *parent, const char *name, int level, int defaultLevel) noexcept;
TrRecord *trRecordCreateFromMessage(TrMgr *mgr, const char *name, int level, const char *messageId) noexcept;
TrRecord *trRecordGet(TrMgr *mgr, const char *path) noexcept; // ends the process when absent: a build fault
TrMgr *trRecordGetMgr(const TrRecord *record) noexcept;
const char *trRecordGetName(const TrRecord *record) noexcept;
const char *trRecordGetPath(const TrRecord *record) noexcept;
int trRecordGetIndex(const TrRecord *record) noexcept;
const char *trRecordGetFormat(const TrRecord *record) noexcept;
int trRecordGetDefaultLevel(const TrRecord *record) noexcept;
void trRecordSetFormat(TrRecord *record, const char *format) noexcept;
void trRecordAddParent(TrRecord *record, TrGroup *parent) noexcept; // decides the path; the older paths still lead to the record
void trRecordDelete(TrRecord *record) noexcept; // drops the creator's reference; the record stays as long as a group lists it

// ---- specifications ----
// Compiles a text; returns new with one reference. Null (and a text on standard output) when it does not parse. Null text: all on.
TrSpec *trSpecCreate(TrMgr *mgr, const char *text) noexcept;
// A specification of its own with the levels of `spec`; returns new with one reference.
TrSpec *trSpecCopy(const TrSpec *spec) noexcept;
TrSpec *trSpecRefObtain(TrSpec *spec) noexcept;
int trSpecRefRelease(TrSpec *spec) noexcept; // the new count; -1 for null
// Each takes the death-row lock. A specification that came back to life is taken off the row and lives on.
void trSpecAddToSpecDeathRow(TrSpec *spec) noexcept;
void trCleanUpDeathRow() noexcept;
void trPurgeDeathRow() noexcept;
void trKillSpec(TrSpec *spec) noexcept;                                                   // frees at once
inline unsigned int trSpecMaxLevel(const TrSpec *spec, const TrRecord *record) noexcept { // 0 when either is null
    if (!spec || !record) return 0;
    return record->index < spec->levelCount ? trSpecLevels(spec)[record->index] : 255;
}

// ---- contexts ----
TrContext *trContextCreate(TrMgr *mgr) noexcept;              // no specification yet; returns new
void trContextDelete(TrContext *ctx) noexcept;                // releases its specification; null ignored
TrSpec *trContextGetSpec(TrContext *ctx) noexcept;            // with a reference that the caller releases
void trContextSetSpec(TrContext *ctx, TrSpec *spec) noexcept; // takes over the caller's reference; takes specLock
TrSpec *trContextPeekSpec(const TrContext *ctx) noexcept;     // borrowed for the grace period; only to compare
void trContextSpecLockObtain(TrContext *ctx, const char *who) noexcept TAV_ACQUIRES(ctx->specLock);
void trContextSpecLockRelease(TrContext *ctx) noexcept TAV_RELEASES(ctx->specLock);

// Is the record on at its default level, or at `level`? FALSE for a null context.
// Takes no lock: a specification that is replaced meanwhile stays readable for its time on the death row.
inline Boolean trContextTraceEnabled(const TrContext *ctx, const TrRecord *record, int level) noexcept {
    return ctx && static_cast<int>(trSpecMaxLevel(ctx->spec.load(std::memory_order_acquire), record)) >= level;
}
inline Boolean trContextLogEnabled(const TrContext *ctx, const TrRecord *record) noexcept {
    return record && trContextTraceEnabled(ctx, record, record->defaultLevel);
}

// Emitters: `cold` keeps the calls out of the way of code that is not traced. None tests whether the record is on; none does anything
// without a hook, context or record.
int trContextLog(TrContext *ctx, const TrRecord *record, ...) noexcept __attribute__((cold)); // the record's own format
int trContextDebug(TrContext *ctx, const TrRecord *record, const char *format, ...) noexcept __attribute__((cold, format(printf, 3, 4)));
int trContextTrace(TrContext *ctx, const TrRecord *record, int level, const char *format, ...) noexcept
    __attribute__((cold, format(printf, 4, 5)));
int trContextVLog(TrContext *ctx, const TrRecord *record, va_list args) noexcept;
int trContextVDebug(TrContext *ctx, const TrRecord *record, const char *format, va_list args) noexcept
    __attribute__((format(printf, 3, 0)));
int trContextVTrace(TrContext *ctx, const TrRecord *record, int level, const char *format, va_list args) noexcept
    __attribute__((format(printf, 4, 0)));

// Test, then emit. The arguments are evaluated only when the record is on.
#define TR_DEBUG(ctx, rec, ...)                                                           \
    do {                                                                                  \
        if (trContextLogEnabled((ctx), (rec))) trContextDebug((ctx), (rec), __VA_ARGS__); \
    } while (0)
#define TR_LOG(ctx, rec, ...)                                                                        \
    do {                                                                                             \
        if (trContextLogEnabled((ctx), (rec))) trContextLog((ctx), (rec)__VA_OPT__(, ) __VA_ARGS__); \
    } while (0)
#define TR_TRACE(ctx, rec, level, ...)                                                                        \
    do {                                                                                                      \
        if (trContextTraceEnabled((ctx), (rec), (level))) trContextTrace((ctx), (rec), (level), __VA_ARGS__); \
    } while (0)

#endif
