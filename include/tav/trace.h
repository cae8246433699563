/*
 * Trace output.
 *
 * The library writes no log text itself: each message that the current trace specification lets through is handed to the host's
 * hook (EnvCallBacks.trace.printf). The hook formats `args` with trContextGetFormat() and writes the text where it likes. It may be
 * called from any thread and while the library holds locks: it must not call back into the library, except for the accessors here.
 */
#ifndef TAV_TRACE_H
#define TAV_TRACE_H

#include <stdarg.h>

#include "types.h"

TAV_BEGIN_DECLS

/* The print hook. `ctx` describes the message and is valid during the call only. The result goes back to the emitter, which ignores it. */
typedef int (*TrPrintf)(const TrContext *ctx, va_list args);

/* The printf format of the message, or NULL when its record has no text. Borrowed for the call. */
TAV_API const char *trContextGetFormat(const TrContext *ctx) TAV_NOEXCEPT;
/* The message's catalogue id, or "-1" when it has none. Borrowed for the call. */
TAV_API const char *trContextGetMessageId(const TrContext *ctx) TAV_NOEXCEPT;
/* The message's level: "OFF", "EMERG", "ALERT", "CRITICAL", "ERROR", "WARNING", "NOTICE", "INFO" or "DEBUG"; NULL when it has none. */
TAV_API const char *trContextGetLevel(const TrContext *ctx) TAV_NOEXCEPT;
/* The trace manager that the message comes from. */
TAV_API TrMgr *trContextGetMgr(const TrContext *ctx) TAV_NOEXCEPT;

/* Level name (any case) to index 0 ("OFF") to 8 ("DEBUG"); -1 for NULL or an unknown name. */
TAV_API int trLevelNameToIndex(const char *name) TAV_NOEXCEPT;
/* Level index to name; NULL outside 0 to 8. */
TAV_API const char *trLevelIndexToName(int index) TAV_NOEXCEPT;

/* Replaces the print hook; NULL silences the manager. Set it before requests run. */
TAV_API void trMgrSetPrintf(TrMgr *mgr, TrPrintf hook) TAV_NOEXCEPT;

/* Frees the trace specifications that still wait for their grace period. Call it once, after the last instance is gone. */
TAV_API void trDestroy(void) TAV_NOEXCEPT;

TAV_END_DECLS

#endif
