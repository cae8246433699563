// What the request mapper asks of a request context. Implemented by the context's own module; called on the request's thread.
// Every setter stores a copy and frees the previous one. FALSE: no memory for the copy.
#ifndef TAVREQUESTMAPPER_TAVHTTPCONTEXTFORMAPPER_H
#define TAVREQUESTMAPPER_TAVHTTPCONTEXTFORMAPPER_H

#include <tav/context.h>

typedef struct _TsModuleHint TsModuleHint;
class TavRuleMatch;

// Action PERMIT with the edition name and the stickiness. On FALSE nothing has changed.
Boolean tavHttpContextSetPermit(TavHttpContext *ctx, const char *edition, Boolean sticky) noexcept;
// Action REJECT with the status and a text. On FALSE action and status stand, the text is none.
Boolean tavHttpContextSetReject(TavHttpContext *ctx, int errorCode, const char *text) noexcept;
// Action REDIRECT. On FALSE nothing has changed.
Boolean tavHttpContextSetRedirect(TavHttpContext *ctx, const char *url) noexcept;

Boolean tavHttpContextSetApplicationName(TavHttpContext *ctx, const char *name) noexcept;
Boolean tavHttpContextSetModuleName(TavHttpContext *ctx, const char *name) noexcept;
// What the selector remembers of the module of that name; borrowed from the snapshot. Another module name clears it.
void tavHttpContextSetModuleHint(TavHttpContext *ctx, TsModuleHint *hint) noexcept;
Boolean tavHttpContextSetEditionName(TavHttpContext *ctx, const char *name) noexcept;
Boolean tavHttpContextSetContextRoot(TavHttpContext *ctx, const char *contextRoot) noexcept;
const char *tavHttpContextGetEditionName(TavHttpContext *ctx) noexcept; // the context's copy, borrowed until the next set; null: none
// Takes over the pin of the rule that decided, until the request is mapped again or ends.
void tavHttpContextSetRuleMatch(TavHttpContext *ctx, TavRuleMatch &&match) noexcept;

#endif
