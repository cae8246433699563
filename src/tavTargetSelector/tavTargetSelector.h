// The back-end topology of one snapshot, and the choice of a server for each request.
//
// The configuration builds and changes the topology (tsTopology.h) while request threads select from it (tsSelect.h). One lock per selector
// covers both.
#ifndef TAVTARGETSELECTOR_TAVTARGETSELECTOR_H
#define TAVTARGETSELECTOR_TAVTARGETSELECTOR_H

#include "tavTargetSelector/tsSelect.h"
#include "tavTargetSelector/tsTopology.h"
#include "tavTargetSelector/tsTypes.h"

TargetSelector *tsCreate(TavRoutingInfo *ri) noexcept; // borrows; returns new, null without memory
TavRoutingInfo *tsGetRoutingInfo(const TargetSelector *ts) noexcept;
// Frees the selector and every record in it, silently: no connector hears of it, and neither web modules nor affinity policies are
// followed. No request may hold the snapshot. Handles become stale; they may be freed before (see tsServerApplicationForgetHandle) or
// after.
void tsDelete(TargetSelector *ts) noexcept; // null ignored

#endif
