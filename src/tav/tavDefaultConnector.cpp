// The library's own transport: a client per connection, a thread per request.
//
// A closed client stays for the next open of the same connector, which saves a name resolution per report; one whose last request failed
// does not, so that the next open asks for the address again. The idle clients of a connector go with it.
//
// A client that is closed while its thread runs ends that request; the thread itself then puts the client away. The thread holds a
// reference on the instance.
#include "tavDefaultConnector.h"

#include "tavConnector/tavConnector.h"
#include "tavConnector/tavInstanceForConnector.h"
#include "tavHttpClient/tavHttpClient.h"
#include "tavThread/tavThread.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

// What the host's opaque client is here.
struct DefaultClient {
    TavHttpClient *client;
    Tav *tav;
    // Guarded by the pool lock:
    const TavConnector *owner; // not followed; outlives its requests, and takes its idle clients along
    bool busy;                 // its thread runs
    bool closed;               // closed while it was busy
    bool failed;               // its last request brought no response
    DefaultClient *next;       // among the idle ones
};

typedef struct HttpReq {
    DefaultClient *client;
    char *method;
    char *uri;
    char *body; // may be null
    int timeoutInSecs;
    TavHttpResponseCallBack callback;
    TavHttpResponseContext *passback;
} HttpReq;

constinit TavLock poolLock = {nullptr, {nullptr}, PTHREAD_MUTEX_INITIALIZER, TavLockRank::Connector};
constinit DefaultClient *idleClients TAV_GUARDED_BY(poolLock) = nullptr;

DefaultClient *fromEnv(EnvConnectorClient *client) noexcept { return reinterpret_cast<DefaultClient *>(client); }
EnvConnectorClient *toEnv(DefaultClient *client) noexcept { return reinterpret_cast<EnvConnectorClient *>(client); }

void destroyClient(DefaultClient *client) noexcept {
    tavHttpClientDelete(client->client);
    tavDestroyRecord(client);
}

DefaultClient *takeIdle(const TavConnector *owner) noexcept {
    TavLockGuard guard(&poolLock, "takeIdle");
    for (DefaultClient **link = &idleClients; *link; link = &(*link)->next) {
        DefaultClient *client = *link;
        if (client->owner != owner) continue;
        *link = client->next;
        return client;
    }
    return nullptr;
}

// TRUE: the client stays, idle. FALSE: it is the caller's to destroy.
bool keepIdle(DefaultClient *client) noexcept TAV_REQUIRES(poolLock) {
    if (client->failed) return false;
    client->next = idleClients;
    idleClients = client;
    return true;
}

EnvConnectorClient *openClient(TavConnector *connector) noexcept {
    if (DefaultClient *idle = takeIdle(connector)) return toEnv(idle);
    Tav *tav = tavConnectorGetGroup(connector)->tav;
    const char *url = tavConnectorGetURL(connector);
    if (tavStartsWith(url, "https:"))
        TR_DEBUG(tavGetTrContext(tav), tavGetProcessRec(tav), "the built-in transport does not speak TLS, as %s asks for\n", url);
    TavHttpClient *http = tavHttpClientCreate(url);
    auto *client = http ? tavNewRecord<DefaultClient>(http, tav, connector, false, false, false, nullptr) : nullptr;
    if (!client) tavHttpClientDelete(http);
    return toEnv(client);
}

void closeClient(EnvConnectorClient *envClient) noexcept {
    DefaultClient *client = fromEnv(envClient);
    if (!client) return;
    tavHttpClientClose(client->client);
    {
        TavLockGuard guard(&poolLock, "closeClient");
        client->closed = client->busy;
        if (client->busy || keepIdle(client)) return;
    }
    destroyClient(client);
}

void setBusy(DefaultClient *client, bool busy) noexcept {
    TavLockGuard guard(&poolLock, "setBusy");
    client->busy = busy;
}

// The request's thread is through with its client.
void endRequest(DefaultClient *client, bool failed) noexcept {
    {
        TavLockGuard guard(&poolLock, "endRequest");
        client->busy = false;
        client->failed = failed;
        if (!client->closed) return;
        client->closed = false;
        client->failed = false; // it did not fail by itself
        if (keepIdle(client)) return;
    }
    destroyClient(client);
}

void destroyRequest(HttpReq *req) noexcept {
    if (!req) return;
    for (char *text : {req->method, req->uri, req->body}) tavFree(text);
    tavDestroyRecord(req);
}

HttpReq *createRequest(DefaultClient *client, const char *method, const char *uri, const char *body, int timeoutInSecs,
                       TavHttpResponseCallBack callback, TavHttpResponseContext *passback) noexcept {
    auto *req = tavNewRecord<HttpReq>();
    if (!req) return nullptr;
    *req = {client, tavStrdup(method), tavStrdup(uri), tavStrdup(body), timeoutInSecs, callback, passback};
    if (req->method && req->uri && (req->body || !body)) return req;
    destroyRequest(req);
    return nullptr;
}

void runRequest(void *arg) noexcept {
    auto *req = static_cast<HttpReq *>(arg);
    Tav *tav = req->client->tav;
    TavHttpResponse *response = tavHttpClientGetResponse(req->client->client, req->method, req->uri, req->body, req->timeoutInSecs);
    // The callback may send the next request with the same client, or close it.
    endRequest(req->client, response == nullptr);
    req->callback(response, req->passback);
    destroyRequest(req);
    tavReleaseRef(tav, "HttpReq");
}

int sendRequest(EnvConnectorClient *envClient, const char *method, const char *uri, const char *body, int timeoutInSecs,
                TavHttpResponseCallBack callback, TavHttpResponseContext *passback) noexcept {
    DefaultClient *client = fromEnv(envClient);
    HttpReq *req = createRequest(client, method, uri, body, timeoutInSecs, callback, passback);
    if (!req) return -1;
    Tav *tav = client->tav;
    tavObtainRef(tav, "HttpReq");
    tavHttpClientAnnounce(client->client);
    setBusy(client, true);
    if (tavThreadCreate(runRequest, req, tavGetEnvCallBacks(tav))) return 0;
    setBusy(client, false);
    tavHttpClientRetract(client->client);
    destroyRequest(req);
    tavReleaseRef(tav, "HttpReq");
    return -2;
}

void freeResponse(TavHttpResponse *response) noexcept { tavHttpClientFreeResponse(response); }

} // namespace

void tavDefaultConnectorInstall(EnvCallBacks &env) noexcept {
    env.http.connector.open = openClient;
    env.http.connector.sendRequest = sendRequest;
    env.http.connector.freeResponse = freeResponse;
    env.http.connector.close = closeClient;
}

void tavDefaultConnectorForget(TavConnector *connector) noexcept {
    while (DefaultClient *client = takeIdle(connector)) destroyClient(client);
}
