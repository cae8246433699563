#include "TraceText.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tavhost {

TraceText traceText(const TrContext *ctx, va_list args) {
    const char *format = trContextGetFormat(ctx), *id = trContextGetMessageId(ctx);
    TraceText result{trLevelNameToIndex(trContextGetLevel(ctx)), id && strcmp(id, "-1") != 0 ? id : "", ""};
    char *text = nullptr;
    const int length = format ? vasprintf(&text, format, args) : -1;
    if (length < 0) return result;
    result.text.assign(text, static_cast<size_t>(length));
    free(text);
    while (!result.text.empty() && result.text.back() == '\n') result.text.pop_back();
    return result;
}

} // namespace tavhost
