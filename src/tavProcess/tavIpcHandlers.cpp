// What the daemon and the workers do with each other's messages. All under the control lock.
#include "tavConnector/tavConnector.h"
#include "tavDocument/tavDocument.h"
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavIpc.h"
#include "tavSapp.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

#define IPC_TRACE(tav, ...) TR_TRACE((tav)->trCtx, (tav)->ipcProcessRec, TR_DEBUG_LEVEL, __VA_ARGS__)

namespace {

json_t *parseBody(Tav *tav, const TavMessage *msg, const char *source) noexcept {
    if (!msg->body) return nullptr;
    auto len = static_cast<size_t>(msg->hdr.len);
    const char *text = static_cast<const char *>(msg->body);
    while (len > 0 && text[len - 1] == '\0') --len; // the text travels with its terminator
    return tavParseJson(tav, text, len, source);
}

// ---- daemon ----

// Routes that a worker gained or lost: the controller hears of the first process and of the last.
void c2sServerProcessHandleMessage(Tav *tav, TavMessage *msg, int) noexcept {
    json_t *json = parseBody(tav, msg, "CLIENT TO SERVER");
    TavConnector *connector = tavFindConnectorFromJson(tav, json);
    json_t *addRoutes = json_object_get(json, "addRoutes");
    json_t *delRoutes = json_object_get(json, "delRoutes");
    if (connector && msg->hdr.pid != 0 && (addRoutes || delRoutes)) {
        tavConnectorSetProcessingJSON(connector, TRUE, FALSE);
        sappMapProcessing(tav, addRoutes, msg->hdr.pid, connector, TRUE);
        sappMapProcessing(tav, delRoutes, msg->hdr.pid, connector, FALSE);
        tavConnectorSetProcessingJSON(connector, FALSE, FALSE);
    }
    json_decref(json);
}

void handleHealthTrigger(Tav *tav, const TavMessage *msg, int fd) noexcept {
    const auto *req = static_cast<const HealthPolicyTriggerReq *>(msg->body);
    if (hmTriggerReqFits(req, msg->hdr.len)) hmServerProcessHandleMessage(tav, req, fd);
}

void welcomeClient(Tav *tav, int fd) noexcept {
    sendAllRoutingInfoToClient(tav, fd);
    tavUpdateControlState(tav, fd);
}

} // namespace

void tavServerProcessHandleMessage(Tav *tav, TavMessage *msg, int fd) noexcept {
    IPC_TRACE(tav, "tavServerProcessHandleMessage - being handling message type %d", msg->hdr.type);
    switch (msg->hdr.type) {
        case MT_CONNECTED:
            welcomeClient(tav, fd);
            break;
        case MT_C2S_JSON:
            c2sServerProcessHandleMessage(tav, msg, fd);
            break;
        case MT_CLIENT_TO_SERVER_HEALTH_TRIGGER:
            handleHealthTrigger(tav, msg, fd);
            break;
        default:
            break;
    }
    IPC_TRACE(tav, "tavServerProcessHandleMessage - end handling message type %d", msg->hdr.type);
}

void tavClientProcessCleanup(Tav *tav, int fd, int pid) noexcept {
    hmClientProcessCleanup(tav, fd);
    if (pid != 0) c2sClientProcessCleanup(tav, pid);
}

// ---- worker ----

namespace {

void beginRoutingInfo(Tav *tav) noexcept {
    tavRoutingInfoRelease(tav->newRoutingInfo);
    tav->newRoutingInfo = tavRoutingInfoCreate(tav);
    if (!tav->newRoutingInfo) tavWorkerStartOver(tav);
}

void handleDocument(Tav *tav, TavMessage *msg) noexcept {
    const unsigned failures = tavAllocationFailures();
    json_t *json = parseBody(tav, msg, "TAV daemon");
    if (!json && tavAllocationFailures() != failures) return tavWorkerStartOver(tav);
    if (TavConnector *connector = tavFindConnectorFromJson(tav, json)) tavHandleJsonFromDaemon(tav, json, connector);
    json_decref(json);
}

// A sequence that ended without a begin leaves the current snapshot.
void endRoutingInfo(Tav *tav) noexcept {
    TavRoutingInfo *ri = tav->newRoutingInfo;
    tav->newRoutingInfo = nullptr;
    if (ri && !tavSwitchToNewRoutingInfo(tav, ri)) tavWorkerStartOver(tav);
    tavSetState(tav, STARTED, "child process started");
}

void setControlState(Tav *tav, TavMessage *msg) noexcept {
    json_t *json = parseBody(tav, msg, "setControlState");
    if (!json) return;
    json_decref(tav->controlState);
    tav->controlState = json;
}

} // namespace

void tavWorkerStartOver(Tav *tav) noexcept {
    tavRoutingInfoRelease(tav->newRoutingInfo);
    tav->newRoutingInfo = nullptr;
    if (tav->clientProcess) tavClientProcessStartOver(tav->clientProcess);
}

void tavClientProcessHandleMessage(Tav *tav, TavMessage *msg) noexcept {
    IPC_TRACE(tav, "tavClientProcessHandleMessage - message type %d\n", msg->hdr.type);
    switch (msg->hdr.type) {
        case MT_CONNECTED:
            IPC_TRACE(tav, "clientProcess: connected\n");
            break;
        case MT_S2C_BEGIN_ROUTING_INFO:
            beginRoutingInfo(tav);
            break;
        case MT_S2C_ROUTING_INFO:
        case MT_S2C_ROUTING_INFO_DELTA:
            handleDocument(tav, msg);
            break;
        case MT_S2C_END_ROUTING_INFO:
            endRoutingInfo(tav);
            break;
        case MT_S2C_SET_CONTROL_STATE:
            setControlState(tav, msg);
            break;
        default:
            TR_TRACE(tav->trCtx, tav->ipcProcessRec, TR_INFO, "IPC client: received unknown message type: %d\n", msg->hdr.type);
            break;
    }
}
