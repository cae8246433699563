// A small blocking HTTP/1.1 client over plain TCP, the library's own transport to the controller.
//
// A client must not be used by two requests at once. Diagnostics go to standard output; the caller sees "no response".
#ifndef TAVHTTPCLIENT_TAVHTTPCLIENT_H
#define TAVHTTPCLIENT_TAVHTTPCLIENT_H

#include <netinet/in.h>

#include <tav/env.h>

#include "tavLock/tavLock.h"

typedef struct _TavHttpClient {
    char *host;
    struct sockaddr_in dst;
    int fd;            // -1: not connected. Changed under the lock, by the thread of the running request if there is one
    int timeoutInSecs; // last applied to the socket; -1: none yet
    // private
    TavLock lock;                         // a leaf
    Boolean busy TAV_GUARDED_BY(lock);    // a request runs, or was announced
    Boolean aborted TAV_GUARDED_BY(lock); // the client was closed meanwhile
} TavHttpClient;

// Resolves the URL's host (IPv4, first address). Returns new; null on a missing or bad URL, a port outside 1 to 65535, a host that does not
// resolve, or without memory.
TavHttpClient *tavHttpClientCreate(const char *url) noexcept;
// One request, one response; blocks. `body` may be null. Returns new (tavHttpClientFreeResponse), null on any failure (the socket is closed
// then).
TavHttpResponse *tavHttpClientGetResponse(TavHttpClient *client, const char *method, const char *uri, const char *body,
                                          int timeoutInSecs) noexcept;
void tavHttpClientFreeResponse(TavHttpResponse *response) noexcept; // null ignored
// The next tavHttpClientGetResponse() will come from another thread: a close from now on ends it, even before it has begun.
void tavHttpClientAnnounce(TavHttpClient *client) noexcept;
// The announced request does not come.
void tavHttpClientRetract(TavHttpClient *client) noexcept;
// Any thread; null ignored. While a request runs the socket is shut down: the request fails and its own thread closes the socket.
void tavHttpClientClose(TavHttpClient *client) noexcept;
void tavHttpClientDelete(TavHttpClient *client) noexcept; // null ignored; no request may run
// A try by hand: GETs `uri` from `url` and prints what comes back. 0, -1 without a response.
int tavHttpClientTest(const char *url, const char *uri) noexcept;

#endif
