// What the files of the health monitor share.
#ifndef TAVHEALTHMONITOR_HMINTERNAL_H
#define TAVHEALTHMONITOR_HMINTERNAL_H

#include "tavHealthMonitor/tavConnectorForHealth.h"
#include "tavHealthMonitor/tavHealthMonitor.h"

// Reporter id of the process that owns the controller connection; the others' are their sockets, which are never below 3.
inline constexpr int HM_OWN_REPORTER = 1;

// The texts of a trigger block, borrowed from it.
struct TriggerNames {
    const char *policy;
    const char *server;
    const char *connectorGroup;
    const char *connectorUrl;
};

// Builds the block; returns new (tavFree), null without memory.
HealthPolicyTriggerReq *hmTriggerReqCreate(const TriggerNames &names, Boolean triggered) noexcept;
// FALSE: a text does not lie inside the block.
bool hmTriggerReqRead(const HealthPolicyTriggerReq *req, TriggerNames *names) noexcept;

#endif
