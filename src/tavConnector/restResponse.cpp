// What a response means: the next poll, a failover, or nothing more to do. Control lock held throughout.
//
// A response is freed exactly once, when there is one, and each send's connector reference is given back exactly once, on every path. A
// request that is sent again belongs to the next response from that moment: it is not looked at afterwards.
#include "tavConnector/connectorInternal.h"
#include "tavConnector/tavConnector.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

constexpr int kHttpOk = 200;
constexpr int kUnknownVersionDelay = 1000; // ms: a controller whose documents cannot be used is not asked without a pause

bool isPoll(const TavRestRequest *req) noexcept { return req->type == RRT_INIT || req->type == RRT_WAIT_FOR_DELTA; }

// Polling has ended or begun anew since.
bool isStale(const TavRestRequest *req) noexcept { return isPoll(req) && req->generation != req->cg->generation; }

// A group that the host took out of a destroyed instance still waited for this.
bool hasEnded(Tav *tav) noexcept { return tavGetState(tav) == DELETED; }

void failConnector(TavConnector *c, TavText reason) noexcept {
    tavConnectorSetState(c, FAILED, reason ? reason.get() : "no response was received");
}

// FALSE: the connector is FAILED for what the response lacks.
bool validate(TavRestRequest *req, const TavHttpResponse *response) noexcept {
    TavConnector *c = req->c;
    const char *type = tavRestRequestTypeToString(req->type);
    if (!response || !response->body) {
        failConnector(c, TavText(connectorFormat("no response was received from %s for request type %s", c->URL, type)));
        return false;
    }
    if (response->responseCode != kHttpOk) {
        failConnector(c, TavText(connectorFormat("HTTP response error code %d was received from %s for request type %s",
                                                 response->responseCode, c->URL, type)));
        return false;
    }
    for (TavConnector *each : TavListRange<TavConnector>(req->cg->connectorList)) each->failures = 0;
    return true;
}

void becomeStarted(TavRestRequest *req) noexcept {
    TavConnectorGroup *cg = req->cg;
    req->type = RRT_WAIT_FOR_DELTA;
    req->maxWait = tavClampInt(static_cast<long long>(cg->waitTime) + cg->maxWaitOffset);
    req->c->isInit = TRUE;
    tavConnectorSetState(req->c, STARTED, "started");
    if (isStale(req)) return; // the host removed the connector when it heard of it
    cg->initialized = TRUE;
    cg->consecutiveFailures = 0;
    tavConnectorGroupSetState(cg, STARTED, "started");
}

// Takes the request.
void pollNext(TavRestRequest *req, int64_t version) noexcept {
    if (isStale(req) || tavIsRequestLimitPassed(req->tav)) return tavRestRequestDelete(req);
    TavConnectorGroup *cg = req->cg;
    TavConnector *c = req->c;
    if (version == -1 && connectorGroupSetAlarm(cg, kUnknownVersionDelay, req, c)) return;
    if (version != -1 && restRequestPollAgain(req, version) == 0) return;
    connectorGroupCountFailure(cg, c, "send failure");
    tavConnectorGroupRun(cg);
    tavRestRequestDelete(req);
}

// Takes the request.
void answerPoll(TavRestRequest *req, const TavHttpResponse *response) noexcept {
    if (req->type == RRT_INIT) becomeStarted(req);
    if (isStale(req)) return tavRestRequestDelete(req);
    pollNext(req, tavHandleJsonFromRestService2(response->body, req->c));
}

// Takes the request.
void failPoll(TavRestRequest *req) noexcept {
    TavConnectorGroup *cg = req->cg;
    connectorCloseClient(req->c);
    if (!isStale(req)) {
        ++cg->consecutiveFailures;
        tavConnectorGroupRun(cg);
    }
    tavRestRequestDelete(req);
}

} // namespace

void restRequestAnswer(TavRestRequest *req, TavHttpResponse *response) noexcept {
    if (!restRequestLeave(req) || isStale(req) || hasEnded(req->tav)) return restRequestAbandon(req, response);
    const bool valid = validate(req, response);
    if (!isPoll(req)) return restRequestAbandon(req, response);
    TavConnector *c = req->c;
    const auto freeResponse = response ? req->freeResponse : nullptr;
    if (valid) {
        answerPoll(req, response);
        if (freeResponse) freeResponse(response);
    } else {
        if (freeResponse) freeResponse(response);
        failPoll(req);
    }
    tavConnectorReleaseRef(c, "tavRestResponseHandler");
}
