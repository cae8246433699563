// How a received document reaches the snapshot.
//
// In the process that has the controller connection a complete document becomes the connector's stored document, and a new snapshot is
// built from the stored documents of all connectors. A delta is merged into the stored document first; that pass also finds whether an
// object that it touches needs a new snapshot. If so one is built, else a second pass applies the delta to the current snapshot in place.
// A worker has no stored documents: it applies what the daemon sends.
//
// Whatever fails before the switch leaves the snapshot in use and, for a complete document, the stored document as they were. A second pass
// that runs out of memory half way is made good by a rebuild. Everything runs with the control lock held.
#include <cstring>

#include "tav/tavControl.h"
#include "tav/tavRecord.h"
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavJsonWalk.h"
#include "tavProcess/tavIpc.h"
#include "tavStoredDocument.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

ParseInfo parseInfoFor(TavConnector *c, const DocumentObserver *observer) noexcept {
    ParseInfo info{};
    info.tav = c->tav;
    info.cg = c->cg;
    info.c = c;
    info.trCtx = c->tav->trCtx;
    info.trRec = c->tav->processRec;
    info.observer = observer;
    return info;
}

// Applies the document to a snapshot. A setter cannot tell a refusal from want of memory, so failed allocations are counted.
int64_t applyDocument(json_t *document, ParseInfo *info, TavRoutingInfo *ri) noexcept {
    const unsigned failures = tavAllocationFailures();
    info->ri = ri;
    info->callObjectHandlers = TRUE;
    const int64_t version = jsonHandle(document, info);
    if (tavAllocationFailures() != failures) info->failed = TRUE;
    return version;
}

void logUpdated(const TavConnector *c) noexcept {
    Tav *tav = c->tav;
    if (!trContextLogEnabled(tav->trCtx, tav->jsonUpdatedRec)) return;
    char *text = json_dumps(c->json, JSON_INDENT(3));
    if (text) trContextLog(tav->trCtx, tav->jsonUpdatedRec, text);
    free(text);
}

// A host that brings its own documents never polls, so its group has no current connector yet.
void makeCurrent(TavConnector *c) noexcept {
    TavConnectorGroup *cg = c->cg;
    cg->initialized = TRUE;
    if (!cg->curConnector || tavConnectorGroupIsStopped(cg)) cg->curConnector = c;
}

int64_t versionOf(const json_t *document) noexcept { return json_integer_value(json_object_get(document, "version")); }

// Entries whose parent only another group's document has may have come before it. Without memory an index stays as it is.
void indexOrphans(const Tav *tav) noexcept {
    if (tavListGetCount(tav->connectorGroupList) < 2) return;
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList)) {
        TavConnector *c = tavConnectorGroupGetCurConnector(cg);
        TavStoredDocument *old = c ? c->stored : nullptr;
        TavStoredDocument *anew = old && old->orphans ? tavStoredDocumentCreate(c->json, c, old->observer) : nullptr;
        if (!anew) continue;
        c->stored = anew;
        tavStoredDocumentDelete(old);
    }
}

Boolean rebuild(Tav *tav, int64_t version) noexcept {
    indexOrphans(tav);
    hmResetInfo(tav);
    tav->rebuildDue = !tavResetRoutingInfoTo(tav, version);
    return !tav->rebuildDue;
}

// ---- complete documents ----

// What a connector holds of its document; exchanged as a whole.
struct HeldDocument {
    json_t *json;
    TavStoredDocument *stored;
    int64_t restVersion;
};

HeldDocument exchange(TavConnector *c, const HeldDocument &held) noexcept {
    const HeldDocument old{c->json, c->stored, c->restVersion};
    tavConnectorDocumentChanged(c);
    c->json = held.json;
    c->stored = held.stored;
    c->restVersion = held.restVersion;
    return old;
}

void freeDocument(void *json) noexcept { json_decref(static_cast<json_t *>(json)); }

// No one waits for the old document to be taken apart, which takes about as long as to parse it.
void discard(Tav *tav, const HeldDocument &held) noexcept {
    tavStoredDocumentDelete(held.stored);
    if (held.json)
        tavProcessAsync(
            tav, held.json, [](Tav *, void *json) { freeDocument(json); }, freeDocument);
}

int64_t takeComplete(json_t *document, TavConnector *c, const DocumentObserver *observer) noexcept {
    const json_t *restVersion = json_object_get(document, "restVersion");
    HeldDocument held{json_incref(document), nullptr, json_is_integer(restVersion) ? json_integer_value(restVersion) : -1};
    held = exchange(c, held); // the index reads the connector's rest version
    c->stored = tavStoredDocumentCreate(document, c, observer);
    makeCurrent(c);
    if (!c->stored || !rebuild(c->tav, versionOf(document))) {
        const HeldDocument refused = exchange(c, held);
        tavStoredDocumentDelete(refused.stored);
        json_decref(refused.json); // the caller holds it too
        return -1;
    }
    c->stored->observer = nullptr;
    discard(c->tav, held);
    logUpdated(c);
    return c->vid = versionOf(document);
}

// ---- deltas ----

// Merges the delta into the stored document. FALSE without memory: a prefix of its entries is in.
Boolean mergeDelta(json_t *document, ParseInfo *info) noexcept {
    tavConnectorDocumentChanged(info->c);
    info->jsonToUpdate = info->c->json;
    info->stored = info->c->stored;
    info->callObjectHandlers = FALSE;
    const int64_t version = jsonHandle(document, info);
    info->jsonToUpdate = nullptr;
    info->stored = nullptr;
    info->merged = TRUE;
    if (info->failed) return FALSE;
    const json_t *restVersion = json_object_get(document, "restVersion");
    if (json_is_integer(restVersion) &&
        json_object_set_new(info->c->json, "restVersion", json_integer(json_integer_value(restVersion))) != 0)
        return FALSE;
    return tavStoredDocumentSetVersion(info->c->json, version);
}

// FALSE: there is no snapshot, or memory ran out half way.
Boolean applyInPlace(json_t *document, ParseInfo *info) noexcept {
    TavRoutingInfo *ri = tavRoutingInfoObtain(info->tav);
    if (!ri) return FALSE;
    const int64_t version = applyDocument(document, info, ri);
    if (!info->failed) tavRoutingInfoSetVersion(ri, version);
    tavRoutingInfoRelease(ri);
    return !info->failed;
}

int64_t takeDelta(json_t *document, TavConnector *c, const DocumentObserver *observer) noexcept {
    ParseInfo info = parseInfoFor(c, observer);
    info.delta = TRUE;
    if (!c->json || !c->stored) {
        DOC_REFUSE(&info, "document", "delta from %s without a document to change\n", c->URL);
        return -1;
    }
    if (!mergeDelta(document, &info)) return -1;
    logUpdated(c);
    const Boolean rebuilds = info.resetRoutingInfo || c->tav->rebuildDue;
    const Boolean inPlace = !rebuilds && applyInPlace(document, &info);
    const DeltaFindings findings(document, c->json, rebuilds ? observer : nullptr);
    c->stored->observer = findings.observer();
    const Boolean applied = inPlace || rebuild(c->tav, versionOf(c->json));
    c->stored->observer = nullptr;
    if (!applied) return -1;
    if (inPlace) tavBroadcastDocument(c->tav, document, MT_S2C_ROUTING_INFO_DELTA);
    return c->vid = versionOf(c->json);
}

int64_t takeDocument(json_t *document, TavConnector *c, const DocumentObserver *observer) noexcept {
    // A deleted connector is no one's: its group would keep a pointer to it.
    if (tavConnectorGetState(c) == DELETED || !tavConnectorAddName(c, document)) return -1;
    if (tavIsClientProcess(c->tav)) return tavHandleJsonFromDaemon(c->tav, document, c);
    const bool delta = json_is_true(json_object_get(document, "delta"));
    return delta ? takeDelta(document, c, observer) : takeComplete(document, c, observer);
}

int64_t takeText(const char *text, TavConnector *c, const DocumentObserver *observer) noexcept {
    Tav *tav = c->tav;
    if (text) TR_LOG(tav->trCtx, tav->jsonReceivedRec, text);
    json_t *document = tavParseJson(tav, text, text ? std::strlen(text) : 0, c->URL);
    if (!document) {
        const ParseInfo info = parseInfoFor(c, observer);
        documentFinding(&info, "document", "the document is not a JSON object");
        return -1;
    }
    const int64_t version = takeDocument(document, c, observer);
    json_decref(document);
    return version;
}

} // namespace

int64_t tavHandleJsonFromRestService2(const char *text, TavConnector *connector) noexcept { return takeText(text, connector, nullptr); }

int64_t tavHandleJsonObserved(const char *text, TavConnector *connector, const DocumentObserver *observer) noexcept {
    TavControlScope control("tavHandleJsonFromRestService");
    return takeText(text, connector, observer);
}

long long tavHandleJsonFromRestService(const char *text, TavConnector *connector) TAV_NOEXCEPT {
    if (!connector) return -1;
    TavControlScope control("tavHandleJsonFromRestService");
    return tavHandleJsonFromRestService2(text, connector);
}

int64_t tavHandleJsonFromDaemon(Tav *tav, json_t *document, TavConnector *connector) noexcept {
    ParseInfo info = parseInfoFor(connector, nullptr);
    info.delta = json_is_true(json_object_get(document, "delta"));
    TavRoutingInfo *received = tav->newRoutingInfo;
    TavRoutingInfo *ri = received ? received : tavRoutingInfoObtain(tav);
    if (!ri) return -1;
    const int64_t version = applyDocument(document, &info, ri);
    if (!info.failed) tavRoutingInfoSetVersion(ri, version);
    if (!received) tavRoutingInfoRelease(ri);
    if (info.failed) {
        tavWorkerStartOver(tav);
        return -1;
    }
    connector->vid = version;
    return version;
}

Boolean tavReplayStoredDocument(TavRoutingInfo *ri, TavConnectorGroup *cg, TavConnector *c) noexcept {
    ParseInfo info = parseInfoFor(c, c->stored ? c->stored->observer : nullptr);
    info.cg = cg;
    info.resetRoutingInfo = TRUE;
    applyDocument(c->json, &info, ri);
    return !info.failed;
}

void tavBroadcastDocument(Tav *tav, json_t *document, int type) noexcept {
    if (tav->serverProcess) tavIpcSendJson(tav, static_cast<TavMessageType>(type), document, -1);
}
