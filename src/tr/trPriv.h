// What the facility's own files share.
#ifndef TR_TRPRIV_H
#define TR_TRPRIV_H

#include "tr/tr.h"

// Reports a fault that ends the process: on standard output, or on standard error for TR_EXIT_SYNTAX. Returns only under a hook.
inline constexpr int TR_EXIT_CONTENT = 1;
inline constexpr int TR_EXIT_SYNTAX = 2;
void trVFatal(int status, const char *format, va_list args) noexcept __attribute__((format(printf, 2, 0)));
void trFatal(int status, const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

// The death row keeps released specifications from here on (until trDestroy).
void trOpenDeathRow() noexcept;

// ---- the tree; the manager's lock must be held (or the manager not be shared yet) ----
// Returns borrowed; null without memory or too deep. A null parent makes the root.
TrGroup *trMakeGroup(TrMgr *mgr, TrGroup *parent, const char *name) noexcept;
// Returns borrowed; null without memory. `parent`, `format` may be null.
TrRecord *trMakeRecord(TrMgr *mgr, TrGroup *parent, const char *name, int level, int defaultLevel, const char *messageId,
                       const char *format) noexcept;
// New text: the parent's path, "." and the name; null without memory.
char *trChildPath(const TrGroup *parent, const char *name) noexcept;
// Drop one reference; the last one takes the object out of the manager's map and frees it.
void trReleaseGroup(TrGroup *group) noexcept;
void trReleaseRecord(TrRecord *record) noexcept;

// ---- the catalogue ----
// Returns new; null without memory.
TrMessage *trMessageCreate(const char *name, const char *id, const char *level) noexcept;
void trMessageDestroy(TrMessage *message) noexcept; // null ignored
// The parser's callbacks; cbArg is the manager. FALSE after a fault in the content (catalogueFault) or without memory (outOfMemory).
Boolean tavHandleStartElement(const char *name, TavList *attributes, void *cbArg) noexcept;
Boolean tavHandleEndElement(const char *name, const char *text, void *cbArg) noexcept;

#endif
