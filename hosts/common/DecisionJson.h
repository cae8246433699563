// What the library decided for a request, as the decision object of docs/scenario-format.md.
#ifndef TAV_HOSTS_DECISIONJSON_H
#define TAV_HOSTS_DECISIONJSON_H

#include <jansson.h>
#include <tav/tav.h>

namespace tavhost {

const char *actionName(TavAction action); // "PERMIT", ...

struct Decided {
    TavHttpContext *ctx;                   // null: the library was not asked
    int handled = 0;                       // what tavHttpContextShouldHandle() gave
    TavTargetEndpoint *endpoint = nullptr; // null: none
    bool affinityBroken = false;           // the library marked the request so
};
// `id` may be null. Takes `headers`: what the library set in the request, null for what it removed. Returns new.
json_t *decisionJson(const char *id, const Decided &decided, json_t *headers);

// Adds "rule" {"order", "expression"} (null: none matched), "affinityBreakReason" (null: no session was broken) and "version", that of the
// configuration that decided.
void addReasons(json_t *object, TavHttpContext *ctx);

// The header that the library sets in a request whose session went to another server.
inline constexpr const char *AFFINITY_BROKEN_HEADER = "$ZVFO";

} // namespace tavhost

#endif
