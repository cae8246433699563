// Property sets. The public interface is tav/properties.h.
//
// Each entry knows whether its value is the set's own copy (stored with validation) or the caller's pointer (stored without), so only
// copies are ever freed. The set has a lock of its own (rank Properties), so requests may read while the configuration writes; the setter
// function is called without it.
#ifndef TAVPROPERTIES_TAVPROPERTIES_H
#define TAVPROPERTIES_TAVPROPERTIES_H

#include <tav/properties.h>

#include "tavHash/tavHash.h"
#include "tavLock/tavLock.h"

// The set's own spelling of a recognised name after taking the value over, or null. The result must be a constant text.
typedef char *(*TavSetPropertyFcn)(void *passback, char *name, char *value);

struct _TavProperties {
    TavHashMap *map TAV_PT_GUARDED_BY(lock); // name to entry {value, owned}
    TavSetPropertyFcn setPropertyFcn;
    void *passback;
    TavLock *lock;
};

TavProperties *tavPropertiesCreate(TavSetPropertyFcn setPropertyFcn, void *passback) noexcept; // returns new
void tavPropertiesDelete(TavProperties *props) noexcept;                                       // null ignored
// A copy of the value, safe against a concurrent set; returns new, null when unset.
char *tavPropertyGetCopy(TavProperties *props, const char *name) noexcept;

#endif
