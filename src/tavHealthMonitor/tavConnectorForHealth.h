// What the health monitor asks of connectors and of the instance. Implemented by tavConnector and by the core.
#ifndef TAVHEALTHMONITOR_TAVCONNECTORFORHEALTH_H
#define TAVHEALTHMONITOR_TAVCONNECTORFORHEALTH_H

#include <jansson.h>

#include <tav/connector.h>
#include <tav/instance.h>

// ---- connectors ----
void tavConnectorObtainRef(TavConnector *connector, const char *reason) noexcept;  // any thread
void tavConnectorReleaseRef(TavConnector *connector, const char *reason) noexcept; // any thread
TavConnector *tavConnectorGroupGetCurConnector(TavConnectorGroup *cg) noexcept;    // borrowed; null: none. Control lock held
// Sends `json` (borrowed) to the controller as a health-policy trigger. No lock but the control lock may be held.
void tavConnectorSendHealthTrigger(TavConnector *connector, json_t *json) noexcept;

// ---- the instance ----
void tavControlLock(const char *who) noexcept;
void tavControlUnlock() noexcept;
// Sends a trigger block (borrowed) to the daemon. -1: this is no worker, or it has no connection.
int tavClientProcessSendHealthTrigger(Tav *tav, void *block, int len) noexcept;

#endif
