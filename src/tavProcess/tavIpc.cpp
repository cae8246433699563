// What the instance sends over the daemon's socket. Everything here runs under the control lock, which keeps begin, documents and end of
// one sequence together for every client.
#include "tavIpc.h"

#include <cstring>

#include "tavConnector/tavConnector.h"
#include "tavDocument/tavDocument.h"
#include "tavMultiProcess/ipcStream.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

namespace {

struct JsonTextDeleter {
    void operator()(char *text) const noexcept {
        json_free_t jsonFree = nullptr;
        json_get_alloc_funcs(nullptr, &jsonFree);
        jsonFree(text);
    }
};
using JsonText = std::unique_ptr<char, JsonTextDeleter>;

JsonText render(json_t *json) noexcept { return JsonText(json ? json_dumps(json, JSON_INDENT(3)) : nullptr); }

TavMessage textMessage(TavMessageType type, char *text) noexcept { return {{type, 0, static_cast<int32_t>(strlen(text) + 1)}, text}; }

// Returns new, null without memory.
IpcFrame *frameOf(TavMessageType type, json_t *json) noexcept {
    const JsonText text = render(json);
    if (!text) return nullptr;
    const TavMessage msg = textMessage(type, text.get());
    return ipcFrameCreate(&msg);
}

void sendBare(TavServerProcess *sp, TavMessageType type, int fd) noexcept {
    TavMessage msg = {{type, 0, 0}, nullptr};
    if (fd == -1) {
        tavServerProcessBroadcastMessage(sp, &msg);
    } else {
        tavServerProcessSendMessage(sp, &msg, fd);
    }
}

// A stored document is rendered once for all workers, and again only when it has changed.
void sendStoredDocument(TavServerProcess *sp, TavConnector *c, int fd) noexcept {
    if (!c->documentFrame) c->documentFrame = frameOf(MT_S2C_ROUTING_INFO, c->json);
    tavServerProcessSendFrame(sp, c->documentFrame, fd);
}

// Nothing is rendered for nobody.
bool hasReceiver(TavServerProcess *sp, int fd) noexcept { return sp && (fd != -1 || tavServerProcessGetClientCount(sp) > 0); }

} // namespace

void tavIpcSendJson(Tav *tav, TavMessageType type, json_t *json, int fd) noexcept {
    TavServerProcess *sp = tavGetServerProcess(tav);
    if (!json || !hasReceiver(sp, fd)) return;
    IpcFrame *frame = frameOf(type, json);
    tavServerProcessSendFrame(sp, frame, fd);
    ipcFrameRelease(frame);
}

void sendAllRoutingInfoToClient(Tav *tav, int fd) noexcept {
    TR_TRACE(tav->trCtx, tav->ipcProcessRec, TR_DEBUG_LEVEL, "sendAllRoutingInfoToClient enter\n");
    TavServerProcess *sp = tavGetServerProcess(tav);
    if (hasReceiver(sp, fd)) {
        sendBare(sp, MT_S2C_BEGIN_ROUTING_INFO, fd);
        for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList)) {
            TavConnector *c = tavConnectorGroupGetCurConnector(cg);
            if (c && tavConnectorGetJSON(c)) sendStoredDocument(sp, c, fd);
        }
        sendBare(sp, MT_S2C_END_ROUTING_INFO, fd);
    }
    TR_TRACE(tav->trCtx, tav->ipcProcessRec, TR_DEBUG_LEVEL, "sendAllRoutingInfoToClient exit\n");
}

namespace {

void discardMessage(void *object) noexcept {
    auto *msg = static_cast<TavMessage *>(object);
    if (msg->body) JsonTextDeleter()(static_cast<char *>(msg->body));
    tavFree(msg);
}

// Runs on the instance's own thread; a message without a connection is lost, the next full configuration brings its content back.
void sendToDaemon(Tav *tav, void *object) noexcept {
    if (tav->clientProcess) tavClientProcessSendMessage(tav->clientProcess, static_cast<TavMessage *>(object));
    discardMessage(object);
}

} // namespace

int tavClientProcessSendJson(Tav *tav, json_t *json) noexcept {
    if (!tav || !tav->clientProcess) return -1;
    JsonText text = render(json);
    auto *msg = text ? static_cast<TavMessage *>(tavMalloc(sizeof(TavMessage))) : nullptr;
    if (!msg) return -1;
    *msg = textMessage(MT_C2S_JSON, text.release());
    tavProcessAsync(tav, msg, sendToDaemon, discardMessage);
    return 0;
}
