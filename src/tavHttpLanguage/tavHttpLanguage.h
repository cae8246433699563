// The language of HTTP rules: the common operands and operators, and one operand for each property of a request.
//
// An operand reads the request through the host's callbacks; the evaluation context's object is the TavHttpContext. Each operand has an
// evaluate function, a creator and a destructor that follow the protocol of tavLanguage: an evaluate function returns a new cell that the
// caller frees (a text in it too), or null when the host has no value or no such callback.
#ifndef TAVHTTPLANGUAGE_TAVHTTPLANGUAGE_H
#define TAVHTTPLANGUAGE_TAVHTTPLANGUAGE_H

#include <tav/types.h>

typedef struct _Language Language;
typedef struct _TrRecord TrRecord;

// Returns new (langFree), null without memory. `trCtx` and `trRec` (borrowed for the language's life) take its debug output.
Language *langCreateHttpLanguage(TrContext *trCtx, TrRecord *trRec) noexcept;

// The value of the first parameter whose text contains `name`: new, null when there is none.
char *getQueryParm(const char *queryString, const char *name) noexcept;

#endif
