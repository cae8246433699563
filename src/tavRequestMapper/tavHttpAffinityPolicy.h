// Which session cookies a web module uses and how a clone id stands in them.
//
// A policy is immutable. It belongs to its web module; one that is replaced or cleared is only retired: requests may still read it, so it
// lives until the request mapper dies. No lock: making and clearing policies is safe on any thread.
#ifndef TAVREQUESTMAPPER_TAVHTTPAFFINITYPOLICY_H
#define TAVREQUESTMAPPER_TAVHTTPAFFINITYPOLICY_H

#include <tav/types.h>

typedef struct _WebModule WebModule;

typedef struct _HttpAffinityPolicy {
    char *descriptor;   // null when made from its parts; this and the next two lie in the policy's own block
    char **cookieNames; // ends with null
    char *delimiter;
    Boolean learnServerIDs;
    // private
    struct _HttpAffinityPolicy *nextRetired;
} HttpAffinityPolicy;

// Makes a policy and gives it to the web module (null: the caller owns it), retiring the module's previous one. `cookieNames` ends with
// null (null: no names) and is copied like `delimiter` (null: ":"). Returns borrowed until the mapper dies; null without memory, the module
// is then unchanged.
HttpAffinityPolicy *hapCreate(WebModule *webModule, const char *const *cookieNames, const char *delimiter, Boolean learnServerIDs) noexcept;
// The same from a text "names;delimiter;learn": names separated by ",", a missing or empty delimiter is ":", learn is on for "true" in any
// case. A null descriptor makes no policy.
HttpAffinityPolicy *hapCreate1(WebModule *webModule, const char *descriptor) noexcept;
const char *hapGetDelimiter(const HttpAffinityPolicy *policy) noexcept;          // borrowed; null for null
const char *const *hapGetCookieNames(const HttpAffinityPolicy *policy) noexcept; // borrowed; null for null
Boolean hapGetLearnServerIDs(const HttpAffinityPolicy *policy) noexcept;         // FALSE for null
// Frees a policy that no web module has; null ignored.
void hapDelete(HttpAffinityPolicy *policy) noexcept;

#endif
