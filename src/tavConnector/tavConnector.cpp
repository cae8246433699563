// Connectors: one URL of a controller each.
//
// The group's list holds the creator's reference; requests, servers, policies and snapshots hold theirs, from any thread. A connector
// counts its group and the group the instance, so whoever holds a connector may use all three.
//
// Two locks. The control lock covers what the configuration side does: state changes, the poll's client, the stored document. The
// connector's own lock covers what request threads touch as well: the mark that a document is being applied, the routes gathered
// meanwhile, the outstanding requests. It is a short lock that calls nobody; hosts and the network are called without it.
//
// The last reference often goes on a request thread that drops an old snapshot, so the connector is freed on the instance's own thread.
#include "tavConnector/tavConnector.h"

#include "tavConnector/connectorInternal.h"
#include "tavMultiProcess/ipcStream.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

char *refuseProperty(void *, char *, char *) { return nullptr; }

void closeClient(Tav *tav, EnvConnectorClient *client) noexcept {
    const auto close = tavGetEnvCallBacks(tav)->http.connector.close;
    if (client && close) close(client);
}

void dropRoutes(TavConnector *c) noexcept {
    TavLockGuard guard(c->lock, "tavConnectorStop");
    json_decref(c->addRoutes);
    json_decref(c->delRoutes);
    c->addRoutes = c->delRoutes = nullptr;
}

void dropDocument(TavConnector *c) noexcept {
    tavConnectorDocumentChanged(c);
    tavStoredDocumentDelete(c->stored);
    json_decref(c->json);
    c->stored = nullptr;
    c->json = nullptr;
}

// No one else knows the connector any more.
void freeConnector(void *obj) noexcept TAV_NO_ANALYSIS {
    auto *c = static_cast<TavConnector *>(obj);
    closeClient(c->tav, c->client);
    tavDefaultConnectorForget(c);
    if (c->lock) dropRoutes(c);
    dropDocument(c);
    tavListDestroy(c->outstandingRestRequestList);
    tavPropertiesDelete(c->props);
    tavLockDestroy(c->lock);
    tavFree(c->URL);
    tavFree(c->lastError);
    TavConnectorGroup *cg = c->cg;
    tavDestroyRecord(c);
    tavConnectorGroupReleaseRef(cg, "tavConnectorDelete");
}

void freeConnectorAsync(Tav *, void *obj) noexcept { freeConnector(obj); }

TavConnector *newConnector(TavConnectorGroup *cg, const char *url) noexcept {
    auto *c = tavNewRecord<TavConnector>();
    if (!c) return nullptr;
    tavConnectorGroupObtainRef(cg, "tavConnectorCreate");
    c->refcnt = 1;
    c->tav = cg->tav;
    c->cg = cg;
    c->state = STOPPED;
    c->isBrindle = cg->isBrindle;
    c->restVersion = -1;
    if ((c->URL = tavStrdup(url)) && (c->props = tavPropertiesCreate(refuseProperty, c)) &&
        (c->outstandingRestRequestList = tavListCreate(nullptr)) && (c->lock = tavLockCreateRanked(TavLockRank::Connector)))
        return c;
    freeConnector(c);
    return nullptr;
}

// Each leaves the list before it is canceled: a late response may free it from then on.
void cancelOutstanding(TavConnector *c) noexcept {
    for (;;) {
        EnvConnectorClient *client = nullptr;
        {
            TavLockGuard guard(c->lock, "tavConnectorStop");
            auto *req = static_cast<TavRestRequest *>(tavListRemoveHead(c->outstandingRestRequestList));
            if (!req) return;
            client = restRequestMarkCanceled(req);
        }
        closeClient(c->tav, client);
    }
}

} // namespace

TavConnector *tavConnectorCreate(TavConnectorGroup *cg, const char *url) TAV_NOEXCEPT {
    if (!cg || !connectorIsText(url)) return nullptr;
    ConnectorControlScope control("tavConnectorCreate");
    TavConnector *c = newConnector(cg, url);
    if (!c) return nullptr;
    c->listEle = tavListAddTail(cg->connectorList, c);
    if (c->listEle) return c;
    freeConnector(c);
    return nullptr;
}

// ---- references ----

void tavConnectorObtainRef(TavConnector *c, const char *reason) noexcept {
    if (!c) return;
    const int count = ++c->refcnt;
    TR_DEBUG(c->cg->trCtx, c->cg->debugCtl, "Obtained reference to connector %s, refcnt: %d, reason: %s\n", c->URL, count, reason);
}

void tavConnectorReleaseRef(TavConnector *c, const char *reason) noexcept {
    if (!c) return;
    // After the count went down another thread may free the record, so the line comes first.
    TR_DEBUG(c->cg->trCtx, c->cg->debugCtl, "Released reference to connector %s, refcnt: %d, reason: %s\n", c->URL, c->refcnt - 1, reason);
    if (--c->refcnt > 0) return;
    tavProcessAsync(c->tav, c, freeConnectorAsync, freeConnector);
}

// ---- state ----

TavComponentState tavConnectorGetState(TavConnector *c) TAV_NOEXCEPT { return c ? c->state.load() : INVALID; }

Boolean tavConnectorIsStopped(TavConnector *c) noexcept {
    if (!c || c->state == DELETED) return TRUE;
    return c->state == STOPPED && !tavIsClientProcess(c->tav);
}

// Without memory there is none rather than an older one.
static void rememberError(TavConnector *c, const char *reason) noexcept {
    tavFree(c->lastError);
    c->lastError = reason ? tavStrdup(reason) : nullptr;
}

void tavConnectorSetState(TavConnector *c, TavComponentState state, const char *reason) noexcept {
    const TavComponentState old = c->state;
    if (old == state || old == DELETED) return;
    TR_LOG(c->cg->trCtx, c->cg->connectorStateChangeRec, c->URL, tavState2String(state), tavState2String(old), reason);
    c->state = state;
    if (state == FAILED) ++c->failures;
    if (state == FAILED || state == STARTED) rememberError(c, state == FAILED ? reason : nullptr);
    const auto report = tavGetEnvCallBacks(c->tav)->stateChange.tavConnector;
    if (report) report(c, state, const_cast<char *>(reason));
    tavUpdateControlState(c->tav, -1);
}

void connectorCloseClient(TavConnector *c) noexcept {
    EnvConnectorClient *client = c->client;
    c->client = nullptr;
    closeClient(c->tav, client);
}

void tavConnectorStop(TavConnector *c) noexcept {
    if (!c || c->state == STOPPED || c->state == DELETED) return;
    // No request is taken on in this state, so none comes after the outstanding ones are gone.
    tavConnectorSetState(c, STOPPING, "stopping");
    cancelOutstanding(c);
    connectorCloseClient(c);
    dropRoutes(c);
    dropDocument(c);
    tavConnectorSetState(c, STOPPED, "stopped");
}

void tavConnectorDelete(TavConnector *c) noexcept {
    if (!c || c->state == DELETED) return;
    tavConnectorStop(c);
    connectorGroupForget(c->cg, c);
    tavConnectorSetState(c, DELETED, "connector was deleted");
    tavConnectorReleaseRef(c, "connector was deleted");
}

// ---- accessors ----

const char *tavConnectorGetURL(TavConnector *c) TAV_NOEXCEPT { return c ? c->URL : nullptr; }
TavConnectorGroup *tavConnectorGetGroup(TavConnector *c) TAV_NOEXCEPT { return c ? c->cg : nullptr; }
int64_t tavConnectorGetVersion(TavConnector *c) noexcept { return c->vid; }
const char *tavConnectorGetLastError(const TavConnector *c) noexcept { return c->lastError; }
void tavConnectorSetVersion(TavConnector *c, int64_t vid) noexcept { c->vid = vid; }
int64_t tavConnectorGetRestVersion(TavConnector *c) noexcept { return c->restVersion; }
void tavConnectorSetRestVersion(TavConnector *c, int64_t restVersion) noexcept { c->restVersion = restVersion; }
json_t *tavConnectorGetJSON(TavConnector *c) noexcept { return c ? c->json : nullptr; }

void tavConnectorSetJSON(TavConnector *c, json_t *json) noexcept {
    tavConnectorDocumentChanged(c);
    json_incref(json);
    json_decref(c->json);
    c->json = json;
}

void tavConnectorDocumentChanged(TavConnector *c) noexcept {
    ipcFrameRelease(c->documentFrame);
    c->documentFrame = nullptr;
}

Boolean tavConnectorAddName(TavConnector *c, json_t *json) noexcept {
    return json_object_set_new(json, "connectorGroupName", json_string(c->cg->name)) == 0 &&
           json_object_set_new(json, "connectorURL", json_string(c->URL)) == 0;
}

json_t *tavConnectorToJSON(TavConnector *c) noexcept {
    return json_pack("{s:s, s:i}", "state", tavState2String(c->state), "failures", c->failures.load());
}

json_t *tavConnectorsToJSON(TavConnectorGroup *cg) noexcept {
    json_t *connectors = json_object();
    if (!connectors) return nullptr;
    for (TavConnector *c : TavListRange<TavConnector>(cg->connectorList)) {
        if (json_object_set_new(connectors, c->URL, tavConnectorToJSON(c)) == 0) continue;
        json_decref(connectors);
        return nullptr;
    }
    return connectors;
}
