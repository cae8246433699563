/*
 * Property sets: named text values with a setter that knows which names exist.
 */
#ifndef TAV_PROPERTIES_H
#define TAV_PROPERTIES_H

#include "types.h"

TAV_BEGIN_DECLS

/*
 * Sets property `name` to `value` (NULL removes it).
 *
 * With `validate` TRUE the name must be one that the set knows (any case); a copy of the value is kept under the set's own spelling.
 * With `validate` FALSE the name must be one that the set does not know; the value pointer is kept as it is, uncopied, and must
 * outlive the set.
 *
 * Returns 0 when set or removed, 1 when a NULL value found nothing to remove, -1 when the name was refused (nothing changes).
 * Safe to call while requests run.
 */
TAV_API int tavPropertySet(TavProperties *props, const char *name, const char *value, Boolean validate) TAV_NOEXCEPT;

/* The value kept under exactly `name`, or NULL. Borrowed until the property is set again. */
TAV_API const char *tavPropertyGet(TavProperties *props, const char *name) TAV_NOEXCEPT;

TAV_END_DECLS

#endif
