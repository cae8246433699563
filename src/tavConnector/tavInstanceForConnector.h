// What connectors ask of the instance beyond the plain getters of tavInstance/tavInstance.h. Implemented by the core.
#ifndef TAVCONNECTOR_TAVINSTANCEFORCONNECTOR_H
#define TAVCONNECTOR_TAVINSTANCEFORCONNECTOR_H

#include <jansson.h>

#include <cstdint>

#include "tavInstance/tavInstance.h"

typedef struct _TavStoredDocument TavStoredDocument;

// ---- the process-wide control lock ----
void tavControlLock(const char *who) noexcept;
void tavControlUnlock() noexcept;
bool tavHoldsControlLock() noexcept; // the calling thread does

// ---- with the control lock held ----
void tavCheckState(Tav *tav) noexcept; // a group has changed its state
void tavUpdateControlState(Tav *tav, int fd) noexcept;
Boolean tavResetRoutingInfo(Tav *tav) noexcept;
// Applies a document; the version that it brings, or -1.
int64_t tavHandleJsonFromRestService2(const char *text, TavConnector *connector) noexcept;
void tavStoredDocumentDelete(TavStoredDocument *stored) noexcept; // null ignored

// ---- any thread ----
int tavClientProcessSendJson(Tav *tav, json_t *json) noexcept; // borrows; -1 when it could not be queued
Boolean tavIsRequestLimitPassed(Tav *tav) noexcept;            // this daemon has served its share of requests and is about to end
// The built-in transport drops the idle clients that it keeps for the connector. No lock but the control lock may be held.
void tavDefaultConnectorForget(TavConnector *connector) noexcept;

#endif
