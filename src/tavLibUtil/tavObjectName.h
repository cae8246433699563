// Names of configuration objects: "/type/value" pairs, in which a "/" inside a value is written "\/".
// Every function tolerates any text. New results come from the counted allocator.
#ifndef TAVLIBUTIL_TAVOBJECTNAME_H
#define TAVLIBUTIL_TAVOBJECTNAME_H

#include <tav/types.h>

// New name without its last pair ("" for a one-pair name); null with fewer than two unescaped "/".
char *tavGetParentName(const char *name) noexcept;
// New text before the first "/uri/" (uri values carry unescaped "/"); tavGetParentName when there is none.
char *tavHackGetParentName(const char *name) noexcept;
// New type of the last pair; null when the remainder after the parent does not start with "/" or has no second "/".
char *tavNameGetType(const char *name) noexcept;
// New value of the last pair; each "\" is dropped unless `asis`.
char *tavNameGetValue(const char *name, Boolean asis) noexcept;

#endif
