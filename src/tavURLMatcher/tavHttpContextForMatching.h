// What URL matching tells the request context; the context's module implements it.
#ifndef TAVURLMATCHER_TAVHTTPCONTEXTFORMATCHING_H
#define TAVURLMATCHER_TAVHTTPCONTEXTFORMATCHING_H

#include <tav/context.h>

// Stores a copy of the group's name (null: none). FALSE without memory.
Boolean tavHttpContextSetMatchedVHostName(TavHttpContext *ctx, const char *name) noexcept;

#endif
