/*
 * The library instance: life cycle, states, process type, names, limits and the state dump.
 *
 * Life: tavCreate() -> set properties, add connector groups (connector.h), optionally mark the process -> tavStart() -> requests
 * (context.h) -> tavStop() -> tavDestroy(). Create the instance after the host has forked: its worker thread does not survive a fork.
 * Unload the library only when every thread of the library has ended; a pending timer can outlive tavDestroy() by its delay.
 *
 * Unless a function says otherwise it may be called from any thread, but not from a callback that env.h excludes.
 */
#ifndef TAV_INSTANCE_H
#define TAV_INSTANCE_H

#include <stdio.h>

#include "env.h"
#include "properties.h"
#include "types.h"

struct json_t;

TAV_BEGIN_DECLS

/* ---- creation and life ---- */

/*
 * Creates an instance in state STOPPED.
 *   env   the host's callbacks; copied.
 *   fp    an open trace catalogue, read from its position and left open; or NULL:
 *   path  the catalogue's file name.
 * Returns new, with one reference that tavDestroy() takes. NULL with a text on standard error that begins "ERROR: " when `env` is
 * NULL, has another version or lacks a required callback, when there is no catalogue, or without memory. A faulty catalogue ends the
 * process (status 1 for its content, 2 for its syntax).
 */
TAV_API Tav *tavCreate(EnvCallBacks *env, FILE *fp, char *path) TAV_NOEXCEPT;

/*
 * Starts the connector groups (in a worker: the connection to the daemon) and waits for the first configuration.
 *   timeoutInSecs  -1 does not wait, 0 waits without limit, N waits at most N-1 seconds.
 * Returns 0; -1 from a state other than STOPPED and FAILED. The outcome stands in tavGetState().
 */
TAV_API int tavStart(Tav *tav, int timeoutInSecs) TAV_NOEXCEPT;

/* Stops the instance. Returns 0; -1 from a state other than STARTING, STARTED and PARTIAL_START. */
TAV_API int tavStop(Tav *tav) TAV_NOEXCEPT;

/* Stops the instance, deletes its groups and gives back the creator's reference. Requests in flight keep what they hold. */
TAV_API void tavDestroy(Tav *tav) TAV_NOEXCEPT;

/* Adds and drops one reference; `reason` (a constant text) appears in the trace. The last release frees the instance. */
TAV_API void tavObtainRef(Tav *tav, const char *reason) TAV_NOEXCEPT;
TAV_API void tavReleaseRef(Tav *tav, const char *reason) TAV_NOEXCEPT;

/* Ends the daemon loop and leaves the connector groups running. Returns as tavStop(). */
TAV_API int tavServerProcessTerminate(Tav *tav) TAV_NOEXCEPT;

/* ---- states ---- */

TAV_API TavComponentState tavGetState(Tav *tav) TAV_NOEXCEPT;
/* "STARTING", "STARTED", "PARTIAL START", "FAILED", "STOPPING", "STOPPED"; any other value "UNKNOWN". */
TAV_API const char *tavState2String(TavComponentState state) TAV_NOEXCEPT;
TAV_API Boolean tavIsStopped(Tav *tav) TAV_NOEXCEPT; /* STOPPED, DELETED */
TAV_API Boolean tavIsUsable(Tav *tav) TAV_NOEXCEPT;  /* STARTING, STARTED, PARTIAL_START: contexts are pooled */
TAV_API Boolean tavCanRoute(Tav *tav) TAV_NOEXCEPT;  /* STARTING, STARTED, PARTIAL_START, FAILED: requests are routed */

/*
 * The version of the document, complete or delta, that this process applied last; -1 before the first. It counts once requests are served
 * by it. Each connector group's controller numbers its own documents: with several groups this is the version of whichever group's document
 * came last; a worker that is given everything anew has that of the last group, which may be another one than the daemon's.
 */
TAV_API long long tavGetConfigVersion(Tav *tav) TAV_NOEXCEPT;

/* ---- process type (standalone unless marked; mark before tavStart) ---- */

/* Makes this process the daemon that polls and feeds the workers. `uid` owns the socket when the process runs as root.
 * Returns 0, -1 when the daemon's object could not be made. */
TAV_API int tavMarkAsServerProcess(Tav *tav, char *unixDomainSocketPath, uid_t unixDomainSocketUid) TAV_NOEXCEPT;
/* Makes this process a worker that is fed by the daemon. Returns 0, -1 when the worker's object could not be made. */
TAV_API int tavMarkAsClientProcess(Tav *tav, char *unixDomainSocketPath) TAV_NOEXCEPT;
TAV_API Boolean tavIsServerProcess(Tav *tav) TAV_NOEXCEPT;
TAV_API Boolean tavIsClientProcess(Tav *tav) TAV_NOEXCEPT;
TAV_API Boolean tavIsStandaloneProcess(Tav *tav) TAV_NOEXCEPT;
/* "StandaloneProcess", "ServerProcess", "ClientProcess", otherwise "InvalidProcessType". */
TAV_API const char *tavGetProcessTypeName(Tav *tav) TAV_NOEXCEPT;
TAV_API const char *tavGetUnixDomainSocketPath(Tav *tav) TAV_NOEXCEPT;
TAV_API void tavSetUnixDomainSocketPath(Tav *tav, const char *path) TAV_NOEXCEPT;
TAV_API uid_t tavGetUnixDomainSocketUid(Tav *tav) TAV_NOEXCEPT;
TAV_API void tavSetUnixDomainSocketUid(Tav *tav, uid_t uid) TAV_NOEXCEPT;
/* Counts one request against MaxRequestsPerDaemon. TRUE once the limit is passed: the daemon then terminates. */
TAV_API Boolean tavMaxRequestsPerDaemon(Tav *tav) TAV_NOEXCEPT;

/* ---- properties, names, limits ---- */

/*
 * The instance's property set. Names (any case), all with text values:
 *   webserverName                        name of this server; "cell_node_server" gives the paths below
 *   MaxHttpContextPoolSize               pooled contexts; negative: no limit (default -1), 0: no pooling
 *   MaxSecondsToWaitDuringAtomicRollout  seconds (default 3); below 1: requests do not wait
 *   DefaultRequestTraceSpec              trace specification of requests that no trace rule matches; empty: none
 *   disablePrivateHeaders                "true": only the partition version header is set
 *   MaxElapsedTimePerRequestInSeconds    seconds; 0 or unset: no limit
 *   enableEndpointSelectionBasedOnMatchedVHost  "true": prefer an endpoint that the request's virtual-host group accepts
 *   TrustedProxyEnable                   "true": private headers that a trusted proxy sent are kept
 *   TrustedProxyList                     addresses separated by ":"
 *   MaxRequestsPerDaemon                 requests after which the daemon ends; 0: no limit
 *   ppid                                 suffix of the REST URIs
 * Stored unvalidated, read when a module has no cluster: HttpSessionAffinityPolicyDescriptor ("names;delimiter;learn"),
 * HttpSessionCookies, QuorvexSessionCookieName.
 */
TAV_API TavProperties *tavGetProperties(Tav *tav) TAV_NOEXCEPT;

TAV_API const char *tavGetServerName(Tav *tav) TAV_NOEXCEPT; /* borrowed until the name changes */
TAV_API void tavSetServerName(Tav *tav, const char *name) TAV_NOEXCEPT;
TAV_API const char *tavGetPPID(Tav *tav) TAV_NOEXCEPT;       /* borrowed until it changes */
TAV_API const char *tavGetServerPath(Tav *tav) TAV_NOEXCEPT; /* borrowed until the name changes */

/* Has no effect: use the property TrustedProxyList. */
TAV_API void tavSetTrustedProxies(Tav *tav, const char *text) TAV_NOEXCEPT;
/* TRUE when `ipAddr` is listed in TrustedProxyList, whatever TrustedProxyEnable says. */
TAV_API Boolean tavIsTrustedProxy(Tav *tav, const char *ipAddr) TAV_NOEXCEPT;

TAV_API TavSSLMapMode tavGetSSLMapMode(Tav *tav) TAV_NOEXCEPT;
TAV_API void tavSetSSLMapMode(Tav *tav, TavSSLMapMode mode) TAV_NOEXCEPT;
/* A fixed endpoint that serves every request, or NULL. */
TAV_API TavTargetEndpoint *tavGetTargetEndpoint(Tav *tav) TAV_NOEXCEPT;
/* Endpoints tried for one request before it gets none; connect failures do not count (default 9999). */
TAV_API int tavGetMaxTargetEndpointsPerRequest(Tav *tav) TAV_NOEXCEPT;
TAV_API void tavSetMaxTargetEndpointsPerRequest(Tav *tav, int max) TAV_NOEXCEPT;
TAV_API Boolean tavPrivateHeadersDisabled(Tav *tav) TAV_NOEXCEPT;
TAV_API TavTime tavGetMaxElapsedTimePerRequest(Tav *tav) TAV_NOEXCEPT; /* ms; all bits set: no limit */
TAV_API int tavGetMaxSecondsToWaitDuringAtomicRollout(Tav *tav) TAV_NOEXCEPT;
TAV_API EnvCallBacks *tavGetEnvCallBacks(Tav *tav) TAV_NOEXCEPT; /* the instance's copy; do not change it */
TAV_API TrMgr *tavGetTrMgr(Tav *tav) TAV_NOEXCEPT;
TAV_API TrContext *tavGetTrContext(Tav *tav) TAV_NOEXCEPT;

/*
 * Sets the library-wide trace specification, for example ":NOTICE" or ":NOTICE,http.request.select:DEBUG": items "name:LEVEL"
 * separated by ",", later ones winning; an empty name means every group; without ":LEVEL" WARNING is meant.
 * Returns 0; -1 when it does not parse (nothing changes).
 */
TAV_API int tavSetTraceSpec(Tav *tav, const char *spec) TAV_NOEXCEPT;

/* ---- connector groups (made with connector.h) ---- */

/* Gives a group that was removed back to the instance. A new group is in it already: adding it again does nothing. */
TAV_API void tavAddConnectorGroup(Tav *tav, TavConnectorGroup *cg) TAV_NOEXCEPT;
/* Takes the group out as it is: the instance no longer starts, stops or deletes it, nor counts its documents at the next rebuild. Stop it
 * first. It keeps the instance's memory until tavConnectorGroupDelete(), or until it is added again and deleted with the instance. */
TAV_API void tavRemoveConnectorGroup(Tav *tav, TavConnectorGroup *cg) TAV_NOEXCEPT;
TAV_API TavConnectorGroup *tavFindConnectorGroup(Tav *tav, const char *name) TAV_NOEXCEPT; /* borrowed; NULL when absent */

/* ---- dump ---- */

/* State of the instance as JSON (jansson); returns new (json_decref), NULL without memory. Waits for a rebuild in progress. */
TAV_API struct json_t *tavToJSON(Tav *tav) TAV_NOEXCEPT;
/* The same as text; returns new. */
TAV_API char *tavToJSONString(Tav *tav) TAV_NOEXCEPT;
/* The same; `queryString` is not used. */
TAV_API char *tavGetStateInfo(Tav *tav, const char *queryString) TAV_NOEXCEPT;
/*
 * What an operator wants to know of a running instance as JSON (jansson): processes, connectors, servers with the reason why one gets no
 * requests, applications, editions, rules; member by member in docs/status-format.md. Returns new (json_decref), NULL without memory.
 * Requests keep running; waits for a document that is being applied.
 */
TAV_API struct json_t *tavStatusToJSON(Tav *tav) TAV_NOEXCEPT;
/* Frees what the library returned new. NULL is ignored. */
TAV_API void tavMemFree(Tav *tav, void *memory) TAV_NOEXCEPT;
/* The library's version text. */
TAV_API const char *tavGetVersion(void) TAV_NOEXCEPT;

TAV_END_DECLS

#endif
