// A trace message of the library as text.
#ifndef TAV_HOSTS_TRACETEXT_H
#define TAV_HOSTS_TRACETEXT_H

#include <tav/trace.h>

#include <string>

namespace tavhost {

struct TraceText {
    int level;        // as trLevelNameToIndex(): 0 "OFF" to 8 "DEBUG"
    std::string id;   // of the message in the catalogue; empty: it has none
    std::string text; // one line or several, without a line break at its end
};

// For the print hook. Leaves `args` as va_arg() would.
TraceText traceText(const TrContext *ctx, va_list args);

} // namespace tavhost

#endif
