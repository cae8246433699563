// What the files of the core share beyond the records.
#ifndef TAV_TAVINTERNAL_H
#define TAV_TAVINTERNAL_H

#include "tavRecord.h"

// ---- trace ----
void tavSetGlobalTraceRecord(TrRecord *record) noexcept;
void tavSetGlobalTraceContext(TrContext *ctx) noexcept;
// Forgets the two process-wide trace variables if they belong to this manager.
void tavClearGlobalTrace(TrMgr *mgr) noexcept;
// "DefaultRequestTraceSpec", null when unset; to be followed only under trSpecLock, else to compare. Any thread.
TrSpec *tavGetCustomPropDefaultRequestTraceSpec(Tav *tav) noexcept;
int tavSetDefaultTraceSpec(Tav *tav, const char *text) noexcept; // -1 when it does not parse

// ---- names ----
// The instance's one copy of a text, valid as long as the instance; null for null or without memory.
const char *tavIntern(Tav *tav, const char *text) noexcept;

// ---- the instance's own thread ----
Boolean tavAsyncStart(Tav *tav) noexcept; // FALSE when it did not start
// Lets the thread finish what is queued and waits until it has left its loop, with the control lock released. Control lock held.
void tavAsyncStop(Tav *tav) noexcept;
void tavAsyncQueueDelete(TavList *queue) noexcept; // discards what is left in it; null ignored

// ---- properties ----
// Applies a property without recording it: the canonical name, or null.
char *tavApplyProperty(Tav *tav, const char *name, const char *value) noexcept;
// The cell's "cp." property: recorded as the instance's own value.
Boolean tavSetCellCustomProperty(Tav *tav, const char *name, const char *value) noexcept;

#endif
