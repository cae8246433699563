// Where affinity look-ups ended: clone id and application name to the server application, each in one cache line.
//
// The maps by clone id and by application name decide. This table only remembers what they answered, because following them costs one wait
// for memory after the other. It is void as a whole (`affinityGeneration`) when a clone id gets another server or a server application
// goes; an answer "none" is not remembered.
#ifndef TAVTARGETSELECTOR_TSAFFINITYTABLE_H
#define TAVTARGETSELECTOR_TSAFFINITYTABLE_H

#include "tavTargetSelector/tsInternal.h"

// Asks for the cache lines of what a request with this clone id will probably be given. Without the lock: nothing that the table leads to
// is followed.
void affinityTablePrefetch(const TargetSelector *ts, const char *cloneId, int appNameHash) noexcept;
// What the maps would answer, or null when it is not remembered.
TargetServerApplication *affinityTableFind(const TsRequest &req, const char *cloneId) noexcept TS_LOCKED;
// Remembers an answer of the maps for a request with a hint; without memory nothing happens.
void affinityTableLearn(const TsRequest &req, const char *cloneId, TargetServerApplication *sapp) noexcept TS_LOCKED;
void affinityTableFree(TargetSelector *ts) noexcept TS_LOCKED;

#endif
