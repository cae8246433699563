// Polling a group: which connector is tried next, and when to try again.
#include <algorithm>

#include "tavConnector/connectorInternal.h"
#include "tavConnector/tavConnector.h"
#include "tavThread/tavThread.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavTime.h"
#include "tr/tr.h"

namespace {

constexpr int kShortestAlarm = 1000; // ms

// What an alarm of a group goes on with. An alarm of an older generation does nothing.
struct GroupAlarm {
    TavConnectorGroup *cg; // counted
    unsigned int generation;
    TavRestRequest *req; // the poll that waits, owned; null: a new run
    TavConnector *c;     // the poll's, counted
};

void deleteAlarm(void *obj) noexcept {
    auto *alarm = static_cast<GroupAlarm *>(obj);
    tavRestRequestDelete(alarm->req);
    if (alarm->c) tavConnectorReleaseRef(alarm->c, "tavConnectorGroupRunByAlarm");
    TavConnectorGroup *cg = alarm->cg;
    tavDestroyRecord(alarm);
    tavConnectorGroupReleaseRef(cg, "tavConnectorGroupRunByAlarm");
}

void pollOrRun(GroupAlarm *alarm) noexcept {
    if (!alarm->req) return tavConnectorGroupRun(alarm->cg);
    // Only a version that could not be told makes a poll wait.
    if (restRequestPollAgain(alarm->req, -1) == 0) {
        alarm->req = nullptr;
        return;
    }
    connectorGroupCountFailure(alarm->cg, alarm->c, "send failure");
    tavConnectorGroupRun(alarm->cg);
}

void fireAlarm(Tav *tav, void *obj) noexcept {
    auto *alarm = static_cast<GroupAlarm *>(obj);
    ConnectorTavRef ref(tav, "tavConnectorGroupRunByAlarm");
    ConnectorControlScope control("tavConnectorGroupRunByAlarm");
    if (alarm->generation == alarm->cg->generation && tavGetState(tav) != DELETED) pollOrRun(alarm);
    deleteAlarm(alarm);
}

// The host's alarm first; the library's own when the host's slots are not set or refuse.
bool callAlarm(EnvCallBacks *env, GroupAlarm *alarm, int milliseconds) noexcept {
    if (env->alarm && env->alarm(tavConnectorGroupRunByAlarm, alarm, milliseconds) == 0) return true;
    if (env->alarm_ex && env->alarm_ex(tavConnectorGroupRunByAlarm, alarm, milliseconds, env) == 0) return true;
    return tavSetAlarm(tavConnectorGroupRunByAlarm, alarm, milliseconds, env) == 0;
}

void runAgainLater(TavConnectorGroup *cg) noexcept {
    const int milliseconds = tavClampInt(static_cast<long long>(cg->maxRetryInterval) * 1000);
    if (!connectorGroupSetAlarm(cg, milliseconds, nullptr, nullptr)) TR_LOG(cg->trCtx, cg->noConnectorERR, cg->name);
}

bool openClient(TavConnector *c) noexcept {
    const auto open = tavGetEnvCallBacks(c->tav)->http.connector.open;
    if (!c->client && open) c->client = open(c);
    return c->client != nullptr;
}

// TRUE: the request is on its way and belongs to its response.
bool tryConnector(TavConnectorGroup *cg, TavConnector *c, TavRestRequest *req) noexcept {
    tavConnectorSetState(c, STARTING, "starting");
    if (cg->generation != req->generation) return false; // the host has removed connectors when it heard of it
    if (!openClient(c)) {
        connectorGroupCountFailure(cg, c, "open failed");
        return false;
    }
    req->c = c;
    req->client = c->client;
    restRequestSetBody(req, tavStrdup(tavGetInterestSpec(cg->tav, cg)));
    if (req->body && tavRestRequestSend(req) == 0) return true;
    req->client = nullptr;
    connectorGroupCountFailure(cg, c, "send failed");
    return false;
}

void endRound(TavConnectorGroup *cg, unsigned int generation) noexcept {
    TR_LOG(cg->trCtx, cg->noConnectorERR, cg->name);
    tavConnectorGroupSetState(cg, FAILED, "failure on all connectors");
    cg->consecutiveFailures = 0;
    if (cg->generation == generation) runAgainLater(cg);
}

// Tries one connector after the other. TRUE: `req` is on its way.
bool runRound(TavConnectorGroup *cg, TavRestRequest *req) noexcept {
    while (!tavConnectorGroupIsStopped(cg) && cg->generation == req->generation) {
        TavConnector *c = nullptr;
        const bool roundIsOver = cg->consecutiveFailures >= tavListGetCount(cg->connectorList);
        if (!roundIsOver) c = tavConnectorGroupGetNextConnectorToTry(cg);
        if (!c) {
            endRound(cg, req->generation);
            return false;
        }
        tavConnectorObtainRef(c, "tavConnectorGroupRunWork");
        const bool sent = tryConnector(cg, c, req);
        tavConnectorReleaseRef(c, "tavConnectorGroupRunWork");
        if (sent) return true;
    }
    return false;
}

TavConnector *nthConnector(const TavConnectorGroup *cg, int n) noexcept {
    TavListEle *ele = tavListGetHead(cg->connectorList);
    while (ele && n-- > 0) ele = tavListGetNext(ele);
    return static_cast<TavConnector *>(tavListEleGetObject(ele));
}

} // namespace

TavConnector *tavConnectorGroupGetNextConnectorToTry(TavConnectorGroup *cg) noexcept {
    const int count = tavListGetCount(cg->connectorList);
    if (count == 0) return nullptr;
    TavListEle *next = cg->curConnector ? tavListGetNext(cg->curConnector->listEle) : nullptr;
    if (!cg->curConnector) {
        cg->curConnector = nthConnector(cg, tavRandom() % count);
    } else {
        cg->curConnector = next ? static_cast<TavConnector *>(tavListEleGetObject(next)) : nthConnector(cg, 0);
    }
    return cg->curConnector;
}

void connectorGroupCountFailure(TavConnectorGroup *cg, TavConnector *c, const char *reason) noexcept {
    ++cg->consecutiveFailures;
    tavConnectorSetState(c, FAILED, reason);
}

bool connectorGroupSetAlarm(TavConnectorGroup *cg, int milliseconds, TavRestRequest *req, TavConnector *c) noexcept {
    auto *alarm = tavNewRecord<GroupAlarm>(cg, cg->generation, req, c);
    if (!alarm) return false;
    tavConnectorGroupObtainRef(cg, "tavConnectorGroupRunByAlarm");
    if (c) tavConnectorObtainRef(c, "tavConnectorGroupRunByAlarm");
    if (callAlarm(tavGetEnvCallBacks(cg->tav), alarm, std::max(milliseconds, kShortestAlarm))) return true;
    alarm->req = nullptr;
    deleteAlarm(alarm);
    return false;
}

void tavConnectorGroupRun(TavConnectorGroup *cg) noexcept {
    if (!cg || tavGetState(cg->tav) == DELETED) return;
    tavConnectorGroupObtainRef(cg, "tavConnectorGroupRunWork entry");
    if (TavRestRequest *req = tavRestRequestCreate(RRT_INIT, cg)) {
        req->generation = cg->generation;
        if (!runRound(cg, req)) tavRestRequestDelete(req);
    } else {
        runAgainLater(cg);
    }
    tavConnectorGroupReleaseRef(cg, "tavConnectorGroupRunWork exit");
}

void tavConnectorGroupRunByAlarm(void *alarm) noexcept {
    Tav *tav = static_cast<GroupAlarm *>(alarm)->cg->tav;
    if (connectorMustDefer()) return tavProcessAsync(tav, alarm, fireAlarm, deleteAlarm);
    fireAlarm(tav, alarm);
}
