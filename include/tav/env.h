/*
 * EnvCallBacks: everything the library asks of its host.
 *
 * Fill the table, set `version` to TAV_ENV_VERSION and give it to tavCreate(), which keeps a copy.
 *
 * Rules for every callback
 *  1. Strings that a getter returns stay the host's. They must stay valid until the request is released or, where the host reuses a
 *     buffer, until the next call of the same getter; the library copies what it keeps and frees nothing.
 *  2. NULL means "the request has none". A slot that may be NULL and is NULL counts as a getter that returned NULL or a setter that
 *     did nothing.
 *  3. Callbacks must not throw, and must not call back into the library beyond what this table allows, because locks that are not
 *     recursive may be held:
 *
 *     callback                          locks that may be held          must not call
 *     http.connector.*                  control                         anything of this instance; never `callback` before returning
 *     http.request.*, http.response.*   selector, partition data        anything but plain getters of the same context
 *     targetEndpoint.*                  selector, control, endpoint map anything but the endpoint's accessors
 *     stateChange.*                     control, stop                   tavStart, tavStop, tavDestroy, tavToJSON, tavHttpContextObtain,
 *                                                                       tavConnectorGroupStart, ...Stop, ...Delete
 *     alarm, alarm_ex                   control                         `fn` before returning
 *     trace.printf                      any                             anything but the accessors of trace.h
 */
#ifndef TAV_ENV_H
#define TAV_ENV_H

#include "trace.h"
#include "types.h"

TAV_BEGIN_DECLS

/* The interface version that this header describes. */
#define TAV_ENV_VERSION 19358

/* A header of a TavHttpResponse. */
typedef struct TavHttpHeader {
    char *name;
    char *value;
} TavHttpHeader;

/* What a REST request brought back. The library reads `responseCode` and `body` only. */
typedef struct TavHttpResponse {
    int responseCode;
    int numHeaders;
    TavHttpHeader *headers;
    char *body; /* NUL-terminated */
    void *userdata;
    int timed_out;
    int aborted;
} TavHttpResponse;

/* Delivers a response; `response` is NULL when there was none. Called once, from any thread, never from inside sendRequest. */
typedef void (*TavHttpResponseCallBack)(TavHttpResponse *response, TavHttpResponseContext *passback);

/* A block of the host's key/value storage. */
typedef struct TavMemory {
    void *ptr;
    unsigned int len; /* bytes */
} TavMemory;

typedef struct EnvCallBacks {
    int version; /* TAV_ENV_VERSION */

    struct {
        /* Transport to the controller. `open` NULL: the library uses its own client for all four. */
        struct {
            EnvConnectorClient *(*open)(TavConnector *connector);
            /* 0 when accepted; `callback` then comes exactly once. Texts are valid during the call only; `body` may be NULL. */
            int (*sendRequest)(EnvConnectorClient *client, const char *method, const char *uri, const char *body, int timeoutInSecs,
                               TavHttpResponseCallBack callback, TavHttpResponseContext *passback);
            void (*freeResponse)(TavHttpResponse *response);
            void (*close)(EnvConnectorClient *client);
        } connector;

        /* The client's request. Slots marked (required) must be set. */
        struct {
            char *(*getClientIpAddr)(EnvHttpContext *ctx); /* (required) */
            char *(*getClientHostName)(EnvHttpContext *ctx);
            char *(*getProtocolVersion)(EnvHttpContext *ctx); /* (required) "HTTP/1.1" */
            int (*getListeningPort)(EnvHttpContext *ctx);     /* (required) */
            char *(*getVirtualHost)(EnvHttpContext *ctx);     /* (required) host name without port */
            char *(*getLocalAddress)(EnvHttpContext *ctx);
            int (*getVirtualPort)(EnvHttpContext *ctx); /* (required) */
            char *(*getProtocol)(EnvHttpContext *ctx);  /* (required) "http" or "https" */
            char *(*getMethod)(EnvHttpContext *ctx);
            char *(*getPath)(EnvHttpContext *ctx); /* (required) may carry ";jsessionid=..." */
            char *(*getQueryString)(EnvHttpContext *ctx);
            char *(*getAuthType)(EnvHttpContext *ctx);          /* (required) */
            char *(*getUserName)(EnvHttpContext *ctx);          /* (required) */
            char **(*getGroupNames)(EnvHttpContext *ctx);       /* NULL-terminated */
            char *(*getClientCertificate)(EnvHttpContext *ctx); /* (required) */
            char *(*getSSLCipherSuite)(EnvHttpContext *ctx);    /* (required) */
            char *(*getSSLSessionId)(EnvHttpContext *ctx);      /* (required) */
            char *(*getHeaderValue)(EnvHttpContext *ctx, char *name);
            int (*setHeaderValue)(EnvHttpContext *ctx, char *name, char *value); /* (required) value NULL removes the header */
            char **(*getHeaderValues)(EnvHttpContext *ctx, char *name);          /* NULL-terminated */
            char *(*getCookieValue)(EnvHttpContext *ctx, char *name);            /* (required) name with case */
            int (*resume)(EnvHttpContext *ctx);                                  /* resume a suspended request; 0 on success */
        } request;

        /* The back end's response. */
        struct {
            int (*getResponseCode)(EnvHttpContext *ctx);
            char *(*getHeaderValue)(EnvHttpContext *ctx, char *name);
            char **(*getHeaderValues)(EnvHttpContext *ctx, char *name);          /* NULL-terminated */
            int (*setHeaderValue)(EnvHttpContext *ctx, char *name, char *value); /* value NULL removes the header */
            char *(*getCookieValue)(EnvHttpContext *ctx, char *name);
            int (*setCookieValue)(EnvHttpContext *ctx, char *name, char *value);
        } response;
    } http;

    /* The host's own object for an endpoint, shared by all endpoints of one name; `create` may return NULL. */
    struct {
        EnvTargetEndpoint *(*create)(TavTargetEndpoint *endpoint);
        int (*delete_)(EnvTargetEndpoint *endpoint);
    } targetEndpoint;

    /* The host's key/value storage. */
    struct {
        int (*getValue)(char *key, TavMemory *value);
        int (*setValue)(char *key, TavMemory *value);
    } storage;

    /* Counters shared between the host's processes. */
    struct {
        EnvAtomicCounter *(*create)(char *name);
        int (*delete_)(EnvAtomicCounter *counter);
        int (*getSize)(void);
        EnvAtomicCounter *(*init)(char *name, void *memory);
        int (*clean)(EnvAtomicCounter *counter);
        int (*increment)(EnvAtomicCounter *counter, unsigned int *newValue);
        int (*decrement)(EnvAtomicCounter *counter, unsigned int *newValue);
    } counter;

    /* Told of every change of state; `reason` is valid during the call only. */
    struct {
        void (*tav)(Tav *tav, TavComponentState state, char *reason);
        void (*tavConnectorGroup)(TavConnectorGroup *cg, TavComponentState state, char *reason);
        void (*tavConnector)(TavConnector *connector, TavComponentState state, char *reason);
    } stateChange;

    /* One-shot timers: call fn(arg) once after `milliseconds`, on any thread; 0 when set. Both NULL: the library uses its own. */
    int (*alarm)(void (*fn)(void *), void *arg, int milliseconds);
    int (*alarm_ex)(void (*fn)(void *), void *arg, int milliseconds, void *env);

    /* Called first on every thread that the library starts. */
    void (*threadInit)(void);

    struct {
        TrPrintf printf; /* NULL: no trace output */
    } trace;
} EnvCallBacks;

TAV_END_DECLS

#endif
