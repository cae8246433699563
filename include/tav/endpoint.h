/*
 * Target endpoints: where a request is forwarded to.
 *
 * An endpoint that a context gave may be read until the context reports a failure or is released. All texts are borrowed for that long.
 */
#ifndef TAV_ENDPOINT_H
#define TAV_ENDPOINT_H

#include "types.h"

TAV_BEGIN_DECLS

TAV_API const char *tavTargetEndpointGetName(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;
TAV_API TavConnector *tavTargetEndpointGetConnector(TavTargetEndpoint *endpoint) TAV_NOEXCEPT; /* that announced the server */
TAV_API const char *tavTargetEndpointGetServerName(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;
TAV_API const char *tavTargetEndpointGetClusterName(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;
TAV_API const char *tavTargetEndpointGetProtocol(TavTargetEndpoint *endpoint) TAV_NOEXCEPT; /* "http", "https", "invalidProtocol" */
TAV_API const char *tavTargetEndpointGetHostName(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;
TAV_API int tavTargetEndpointGetPort(TavTargetEndpoint *endpoint) TAV_NOEXCEPT; /* -1 when unset */
TAV_API const char *tavTargetEndpointGetCloneId(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;
TAV_API int tavTargetEndpointGetConnectTimeout(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;      /* s */
TAV_API int tavTargetEndpointGetIOTimeout(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;           /* s */
TAV_API int tavTargetEndpointGetIOTimeoutRetry(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;      /* times; -1 when unset */
TAV_API int tavTargetEndpointGetPersistentTimeout(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;   /* s an idle connection is kept */
TAV_API Boolean tavTargetEndpointGetExtendedHandshake(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;
TAV_API Boolean tavTargetEndpointGetWaitForContinue(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;
TAV_API const char *tavTargetEndpointGetNamedEndpoint(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;
TAV_API EnvTargetEndpoint *tavTargetEndpointGetEnvTargetEndpoint(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;
TAV_API int tavTargetEndpointGetWsIOTimeout(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;         /* s, upgraded connections */
TAV_API int tavTargetEndpointGetWsIdleTimeout(TavTargetEndpoint *endpoint) TAV_NOEXCEPT;       /* s, upgraded connections */

TAV_END_DECLS

#endif
