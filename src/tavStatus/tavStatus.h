// The parts of the status document; tavStatusToJSON() itself is in tav/instance.h.
#ifndef TAVSTATUS_TAVSTATUS_H
#define TAVSTATUS_TAVSTATUS_H

#include <jansson.h>

#include "tavInstance/tavInstance.h"

// Each returns new, null without memory. The caller holds the snapshot, and no lock of the mapper or below.
json_t *statusOfClusters(TargetSelector *ts) noexcept;                          // takes the selector lock once
json_t *statusOfApplications(RequestMapper *rm, TargetSelector *ts) noexcept;   // the mapper lock, then the selector lock
json_t *statusOfRules(RequestMapper *rm, TavRules *requestTraceRules) noexcept; // the mapper lock
json_t *statusOfGroups(Tav *tav) noexcept;                                      // takes the control lock

#endif
