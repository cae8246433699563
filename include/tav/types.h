/*
 * Types shared by every public header.
 *
 * Strings are NUL-terminated. A `char *` that a function returns is *borrowed* unless the function says *returns new*; what is
 * returned new is freed with tavMemFree(). No function here throws, exits or raises a signal.
 */
#ifndef TAV_TYPES_H
#define TAV_TYPES_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#if defined(__GNUC__)
#define TAV_API __attribute__((visibility("default")))
#else
#define TAV_API
#endif

#ifdef __cplusplus
#define TAV_NOEXCEPT noexcept
#define TAV_BEGIN_DECLS extern "C" {
#define TAV_END_DECLS }
#else
#define TAV_NOEXCEPT
#define TAV_BEGIN_DECLS
#define TAV_END_DECLS
#endif

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

TAV_BEGIN_DECLS

/* 1 is TRUE, 0 is FALSE. */
typedef unsigned char Boolean;

/* Milliseconds, modulo 2^32. */
typedef uint32_t TavTime;

/* Opaque records of the library. */
typedef struct _Tav Tav;
typedef struct _TavConnectorGroup TavConnectorGroup;
typedef struct _TavConnector TavConnector;
typedef struct _TavHttpContext TavHttpContext;
typedef struct _TavTargetEndpoint TavTargetEndpoint;
typedef struct _TavProperties TavProperties;
typedef struct _TrMgr TrMgr;
typedef struct _TrContext TrContext;
typedef struct _TavHttpResponseContext TavHttpResponseContext;

/* Opaque records of the host. */
typedef struct EnvHttpContext EnvHttpContext;
typedef struct EnvConnectorClient EnvConnectorClient;
typedef struct EnvTargetEndpoint EnvTargetEndpoint;
typedef struct EnvAtomicCounter EnvAtomicCounter;

/* State of the instance, of a connector group and of a connector. */
typedef enum TavComponentState {
    INVALID = -1,
    STARTING = 0,
    STARTED = 1,
    PARTIAL_START = 2,
    FAILED = 3,
    STOPPING = 4,
    STOPPED = 5,
    DELETED = 6
} TavComponentState;

/* What the routing rules decided for a request. */
typedef enum TavAction {
    NONE = 0,     /* nothing decided yet */
    SUSPEND = 1,  /* hold the request */
    REJECT = 2,   /* answer with tavHttpContextGetErrorCode() */
    REDIRECT = 3, /* answer with a redirect to tavHttpContextGetRedirectURL() */
    PERMIT = 4    /* forward to tavHttpContextGetTargetEndpoint() */
} TavAction;

/* Which protocol a request is forwarded with. */
typedef enum TavSSLMapMode {
    MapInboundToOutbound = 0, /* as the client spoke */
    SSLOffLoad = 1,           /* always http */
    SSLOnLoad = 2,            /* always https */
    NullMapMode = 3           /* unset: the next level decides (request, then library, then web module) */
} TavSSLMapMode;

TAV_END_DECLS

#endif
