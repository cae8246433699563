// Requests to the controller, up to the host's transport.
//
// Polls use the client that the connector keeps; every other request opens one of its own, because the connector's is busy with the long
// poll. A request joins its connector's outstanding ones before the host hears of it, since the response may come before sendRequest
// returns. Until then the sender keeps the record alive, and nobody but the sender closes the request's own client.
//
// A host must not answer from inside sendRequest. One that does is answered later, on the instance's own thread: the caller may hold the
// control lock.
#include <cstring>

#include "tavConnector/connectorInternal.h"
#include "tavConnector/tavConnector.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

thread_local constinit TavRestRequest *requestBeingSent = nullptr;

// Marks the thread while it is inside the host's sendRequest.
class SendMark {
public:
    explicit SendMark(TavRestRequest *req) noexcept : before_(requestBeingSent) { requestBeingSent = req; }
    ~SendMark() noexcept { requestBeingSent = before_; }
    SendMark(const SendMark &) = delete;
    SendMark &operator=(const SendMark &) = delete;

private:
    TavRestRequest *before_;
};

void closeWith(TavRestRequest *req, EnvConnectorClient *client) noexcept {
    if (client && req->close) req->close(client);
}

void freeResponseWith(TavRestRequest *req, TavHttpResponse *response) noexcept {
    if (response && req->freeResponse) req->freeResponse(response);
}

char *dumpJson(json_t *json) noexcept {
    char *dumped = json_dumps(json, JSON_INDENT(3));
    if (!dumped) return nullptr;
    char *text = tavStrdup(dumped);
    json_free_t jsonFree = nullptr;
    json_get_alloc_funcs(nullptr, &jsonFree);
    jsonFree(dumped);
    return text;
}

// ---- outstanding requests ----

bool join(TavRestRequest *req) noexcept {
    TavConnector *c = req->c;
    TavLockGuard guard(c->lock, "tavRestRequestSend");
    // A connector that is being stopped has dropped its requests already, or is about to.
    const TavComponentState state = c->state;
    if (state == STOPPING || state == STOPPED || state == DELETED) return false;
    if (!tavListAddTail(c->outstandingRestRequestList, req)) return false;
    req->canceled = FALSE;
    req->closeAfterSend = FALSE;
    req->sending = TRUE;
    return true;
}

// The host's sendRequest has returned.
void endSending(TavRestRequest *req) noexcept {
    EnvConnectorClient *client = nullptr;
    {
        TavLockGuard guard(req->c->lock, "tavRestRequestSend");
        req->sending = FALSE;
        if (req->closeAfterSend) {
            client = req->client;
            req->client = nullptr;
        }
    }
    closeWith(req, client);
}

// ---- responses that must wait for the instance's own thread ----

void answerDeferred(Tav *, void *obj) noexcept {
    auto *req = static_cast<TavRestRequest *>(obj);
    TavHttpResponse *response = req->pendingResponse;
    req->pendingResponse = nullptr;
    tavRestResponseHandler(response, reinterpret_cast<TavHttpResponseContext *>(req));
}

// The response can never be handled. While its request is being sent, the sender takes it for a failure.
void discardDeferred(void *obj) noexcept {
    auto *req = static_cast<TavRestRequest *>(obj);
    if (requestBeingSent == req) {
        req->answeredInside = TRUE;
        return;
    }
    TavHttpResponse *response = req->pendingResponse;
    req->pendingResponse = nullptr;
    restRequestAbandon(req, response);
}

void defer(TavRestRequest *req) noexcept {
    req->answeredInside = FALSE;
    tavProcessAsync(req->tav, req, answerDeferred, discardDeferred);
}

// ---- sending ----

bool openClient(TavRestRequest *req) noexcept {
    if (req->client) return true;
    const auto open = req->cb->http.connector.open;
    req->client = open ? open(req->c) : nullptr;
    req->ownsClient = req->client != nullptr;
    if (req->client) return true;
    ++req->c->failures;
    TR_DEBUG(req->ctx, req->rec, "failed to connect to REST service at %s with request of type %s\n", req->c->URL,
             tavRestRequestTypeToString(req->type));
    return false;
}

// The JSON goes before the request is sent: once the answer may come, its thread and the sender's would both count it.
bool makeBody(TavRestRequest *req) noexcept {
    if (!req->json) return true;
    restRequestSetBody(req, dumpJson(req->json));
    if (!req->body) return false;
    json_decref(req->json);
    req->json = nullptr;
    return true;
}

// The host's result; -1 when the answer came at once and there is no memory to wait with it.
int callHost(TavRestRequest *req) noexcept {
    SendMark mark(req);
    req->answeredInside = FALSE;
    const int rtn = req->cb->http.connector.sendRequest(req->client, req->method, req->uri, req->body, req->maxWait, tavRestResponseHandler,
                                                        reinterpret_cast<TavHttpResponseContext *>(req));
    if (!req->answeredInside) return rtn;
    if (rtn == 0) defer(req);
    if (!req->answeredInside) return rtn;
    freeResponseWith(req, req->pendingResponse);
    req->pendingResponse = nullptr;
    return rtn ? rtn : -1;
}

void logSent(const TavRestRequest *req, TavConnector *c) noexcept {
    TR_DEBUG(req->ctx, req->rec, "%s request sent to REST service at %s\n", tavRestRequestTypeToString(req->type), c->URL);
    if (req->body) TR_DEBUG(req->ctx, req->cg->jsonSentRec, "Sent JSON:\n%s\n", req->body);
}

int sendOverHttp(TavRestRequest *req) noexcept {
    if (!req->cb->http.connector.sendRequest || !openClient(req) || !makeBody(req) || !join(req)) return -1;
    TavConnector *c = req->c;
    ++req->refs;
    tavConnectorObtainRef(c, "tavRestRequestSend");
    tavConnectorObtainRef(c, "tavRestRequestSend sender");
    const int rtn = callHost(req);
    if (rtn == 0) {
        logSent(req, c);
    } else {
        TR_DEBUG(req->ctx, req->rec, "send of %s request failed to REST service at %s; rtn=%d\n", tavRestRequestTypeToString(req->type),
                 c->URL, rtn);
        restRequestLeave(req);
        tavConnectorReleaseRef(c, "tavRestRequestSend");
    }
    endSending(req);
    tavRestRequestDelete(req);
    tavConnectorReleaseRef(c, "tavRestRequestSend sender");
    return rtn == 0 ? 0 : -1;
}

int sendToDaemon(TavRestRequest *req) noexcept {
    if (!req->json) {
        TR_DEBUG(req->ctx, req->rec, "tavRestRequestSend: client send of %s request failed; null json\n",
                 tavRestRequestTypeToString(req->type));
        return -1;
    }
    if (!tavConnectorAddName(req->c, req->json) || tavClientProcessSendJson(req->tav, req->json) != 0) return -1;
    TR_DEBUG(req->ctx, req->rec, "client sent %s request to server\n", tavRestRequestTypeToString(req->type));
    return 0;
}

void freeRequest(TavRestRequest *req) noexcept {
    if (req->ownsClient) closeWith(req, req->client);
    json_decref(req->json);
    restRequestSetBody(req, nullptr);
    tavFree(req->uri);
    TavConnectorGroup *cg = req->cg;
    tavDestroyRecord(req);
    tavConnectorGroupReleaseRef(cg, "tavRestRequestDelete");
}

} // namespace

bool connectorMustDefer() noexcept { return requestBeingSent || tavHoldsControlLock(); }

const char *tavRestRequestTypeToString(TavRestRequestType type) noexcept {
    switch (type) {
        case RRT_INIT:
            return "init";
        case RRT_WAIT_FOR_DELTA:
            return "waitForDelta";
        case RRT_ROUTE_CHANGE:
            return "routeChange";
        case RRT_HEALTH_POLICY_TRIGGER:
            return "healthPolicyTrigger";
        default:
            return "INVALID";
    }
}

TavRestRequest *tavRestRequestCreate(TavRestRequestType type, TavConnectorGroup *cg) noexcept {
    if (!cg) return nullptr;
    TavText uri(connectorGroupCopyRestURI(cg));
    auto *req = uri ? tavNewRecord<TavRestRequest>() : nullptr;
    if (!req) return nullptr;
    tavConnectorGroupObtainRef(cg, "tavRestRequestCreate");
    req->refs = 1;
    req->type = type;
    req->tav = cg->tav;
    req->cg = cg;
    req->cb = tavGetEnvCallBacks(cg->tav);
    req->method = "POST";
    req->uri = uri.release();
    req->maxWait = cg->maxWaitOffset;
    req->freeResponse = req->cb->http.connector.freeResponse;
    req->close = req->cb->http.connector.close;
    req->ctx = cg->trCtx;
    req->rec = cg->debugCtl;
    return req;
}

void tavRestRequestDelete(TavRestRequest *req) noexcept {
    if (req && --req->refs < 1) freeRequest(req);
}

void restRequestSetBody(TavRestRequest *req, char *body) noexcept {
    if (req->freeBody) tavFree(req->body);
    req->body = body;
    req->freeBody = body != nullptr;
}

int tavRestRequestSend(TavRestRequest *req) noexcept {
    if (!req->c || tavConnectorIsStopped(req->c)) {
        TR_DEBUG(req->ctx, req->rec, "tavRestRequestSend: send of %s request failed; connector not set\n",
                 tavRestRequestTypeToString(req->type));
        return -1;
    }
    return tavIsClientProcess(req->tav) ? sendToDaemon(req) : sendOverHttp(req);
}

int restRequestPollAgain(TavRestRequest *req, int64_t version) noexcept {
    TavText base(connectorGroupCopyRestURI(req->cg));
    TavText uri(base ? connectorFormat("%s&vid=%lld&wait=%d", base.get(), static_cast<long long>(version), req->cg->waitTime.load())
                     : nullptr);
    if (!uri) return -1;
    TavText old(req->uri);
    req->uri = uri.release();
    req->method = "GET";
    restRequestSetBody(req, nullptr);
    return tavRestRequestSend(req);
}

bool restRequestLeave(TavRestRequest *req) noexcept {
    TavLockGuard guard(req->c->lock, "tavRestResponseHandler");
    return tavListFindAndRemove(req->c->outstandingRestRequestList, req) != nullptr;
}

// Takes the request's own client, or leaves it to the sender who is still using it.
static EnvConnectorClient *takeOwnClient(TavRestRequest *req) noexcept TAV_REQUIRES(req->c->lock) {
    if (!req->ownsClient) return nullptr;
    if (req->sending) {
        req->closeAfterSend = TRUE;
        return nullptr;
    }
    EnvConnectorClient *client = req->client;
    req->client = nullptr;
    return client;
}

EnvConnectorClient *restRequestMarkCanceled(TavRestRequest *req) noexcept TAV_NO_ANALYSIS {
    req->canceled = TRUE;
    return takeOwnClient(req);
}

void restRequestCloseOwnClient(TavRestRequest *req) noexcept {
    EnvConnectorClient *client = nullptr;
    {
        TavLockGuard guard(req->c->lock, "tavRestResponseHandler");
        client = takeOwnClient(req);
    }
    closeWith(req, client);
}

void tavRestRequestCancel(TavRestRequest *req) noexcept {
    if (!req || !req->c) return;
    const auto close = req->close;
    EnvConnectorClient *client = nullptr;
    {
        TavLockGuard guard(req->c->lock, "tavRestRequestCancel");
        if (tavListFindAndRemove(req->c->outstandingRestRequestList, req)) client = restRequestMarkCanceled(req);
    }
    // From here on its response may free the request.
    if (client && close) close(client);
}

void restRequestAbandon(TavRestRequest *req, TavHttpResponse *response) noexcept {
    TavConnector *c = req->c;
    restRequestLeave(req);
    freeResponseWith(req, response);
    restRequestCloseOwnClient(req);
    tavRestRequestDelete(req);
    tavConnectorReleaseRef(c, "tavRestResponseHandler");
}

void tavRestResponseHandler(TavHttpResponse *response, TavHttpResponseContext *passback) noexcept {
    auto *req = reinterpret_cast<TavRestRequest *>(passback);
    if (!req) return;
    if (requestBeingSent == req) {
        req->pendingResponse = response;
        req->answeredInside = TRUE;
    } else if (connectorMustDefer()) {
        req->pendingResponse = response;
        defer(req);
    } else {
        ConnectorTavRef ref(req->tav, "tavRestResponseHandler");
        ConnectorControlScope control("tavRestResponseHandler");
        restRequestAnswer(req, response);
    }
}
