/*
 * Connector groups: a controller's REST service and the URLs through which it is reached.
 *
 * A group belongs to the instance it is created for; each URL is a connector. tavStart() polls one connector of each group and moves
 * to the next when it fails. A group that is made while the instance runs is started by tavConnectorGroupStart().
 */
#ifndef TAV_CONNECTOR_H
#define TAV_CONNECTOR_H

#include "env.h"
#include "types.h"

TAV_BEGIN_DECLS

/* Creates a group in state STOPPED and adds it to the instance, which owns it. Borrowed; NULL without memory, without a name
 * in UTF-8, and once tavDestroy() has begun. */
TAV_API TavConnectorGroup *tavConnectorGroupCreate(Tav *tav, const char *name) TAV_NOEXCEPT;

/* Starts polling. Returns 0; -1 from a state other than STOPPED and FAILED, in a worker and in a destroyed instance. What comes of it
 * stands in tavConnectorGroupGetState(). */
TAV_API int tavConnectorGroupStart(TavConnectorGroup *cg) TAV_NOEXCEPT;
/* Stops polling and drops the group's documents, whose routes end with them. Returns 0; -1 from a state other than STARTING and STARTED. */
TAV_API int tavConnectorGroupStop(TavConnectorGroup *cg) TAV_NOEXCEPT;
/* Stops the group, takes it and its connectors out of the instance and gives them up: neither may be used afterwards. tavDestroy() does
 * this for the groups that the instance has. NULL is ignored. */
TAV_API void tavConnectorGroupDelete(TavConnectorGroup *cg) TAV_NOEXCEPT;

/*
 * Sets a property of the group: TRUE when the name (any case) is known.
 *   maxRetries                   count (kept, not used)
 *   retryInterval                seconds between rounds when every connector failed (default 60)
 *   uri                          path of the REST service (default "/sentinelFabric")
 *   maxWaitOffset                seconds added to a poll's wait for the client's time-out (default 5)
 *   enableRoutingToAdminConsole  "true": ask for administration servers' clusters too
 *   profileType                  "Brindle": the service of that profile
 */
TAV_API Boolean tavConnectorGroupSetProperty(TavConnectorGroup *cg, const char *name, const char *value) TAV_NOEXCEPT;
TAV_API void tavConnectorGroupSetURI(TavConnectorGroup *cg, const char *uri) TAV_NOEXCEPT;
/* Replaces the interest specification that the group would build by itself (copied). */
TAV_API void tavConnectorGroupSetInterestSpec(TavConnectorGroup *cg, const char *text) TAV_NOEXCEPT;

TAV_API const char *tavConnectorGroupGetName(TavConnectorGroup *cg) TAV_NOEXCEPT;
TAV_API TavComponentState tavConnectorGroupGetState(TavConnectorGroup *cg) TAV_NOEXCEPT;
TAV_API int tavConnectorGroupGetWaitTime(TavConnectorGroup *cg) TAV_NOEXCEPT; /* s */
TAV_API void tavConnectorGroupSetWaitTime(TavConnectorGroup *cg, int seconds) TAV_NOEXCEPT;
TAV_API int tavConnectorGroupGetMaxRetries(TavConnectorGroup *cg) TAV_NOEXCEPT;
TAV_API void tavConnectorGroupSetMaxRetries(TavConnectorGroup *cg, int count) TAV_NOEXCEPT;
TAV_API int tavConnectorGroupGetMaxRetryInterval(TavConnectorGroup *cg) TAV_NOEXCEPT; /* s */
TAV_API void tavConnectorGroupSetMaxRetryInterval(TavConnectorGroup *cg, int seconds) TAV_NOEXCEPT;
TAV_API int tavConnectorGroupGetMaxWaitOffset(TavConnectorGroup *cg) TAV_NOEXCEPT; /* s */
TAV_API void tavConnectorGroupSetMaxWaitOffset(TavConnectorGroup *cg, int seconds) TAV_NOEXCEPT;
TAV_API Boolean tavConnectorGroupIsBrindle(TavConnectorGroup *cg) TAV_NOEXCEPT;
TAV_API void tavConnectorGroupSetBrindle(TavConnectorGroup *cg, Boolean isBrindle) TAV_NOEXCEPT;
TAV_API Boolean tavConnectorGroupGetEnableAdminTraffic(TavConnectorGroup *cg) TAV_NOEXCEPT;
TAV_API void tavConnectorGroupSetEnableAdminTraffic(TavConnectorGroup *cg, Boolean enable) TAV_NOEXCEPT;

/* The text that asks the controller for objects and properties; built once, then kept. Borrowed from the group; NULL without memory. */
TAV_API const char *tavGetInterestSpec(Tav *tav, TavConnectorGroup *cg) TAV_NOEXCEPT;

/* Adds a controller URL ("http://host:port") to the group, which owns the connector. Borrowed; NULL without memory or a URL in UTF-8. */
TAV_API TavConnector *tavConnectorCreate(TavConnectorGroup *cg, const char *url) TAV_NOEXCEPT;
TAV_API TavConnector *tavConnectorGroupFindConnector(TavConnectorGroup *cg, const char *url) TAV_NOEXCEPT; /* exact match */
TAV_API void tavConnectorGroupRemoveConnector(TavConnectorGroup *cg, TavConnector *connector) TAV_NOEXCEPT;
TAV_API const char *tavConnectorGetURL(TavConnector *connector) TAV_NOEXCEPT;
TAV_API TavConnectorGroup *tavConnectorGetGroup(TavConnector *connector) TAV_NOEXCEPT;
TAV_API TavComponentState tavConnectorGetState(TavConnector *connector) TAV_NOEXCEPT;

/*
 * Applies a configuration document (full, or a delta by its own "delta" member) as if the connector had received it: the way in for a
 * host with its own transport or a configuration of its own. Takes the control lock; requests keep running.
 * Returns the version that the document brings; -1 when it is not a JSON object, or is a delta without a document to change (the
 * running configuration stays as it was). A document that itself says -1 is applied all the same.
 */
TAV_API long long tavHandleJsonFromRestService(const char *text, TavConnector *connector) TAV_NOEXCEPT;

TAV_END_DECLS

#endif
