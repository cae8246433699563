// The trigger map of the process that owns the controller connection: which processes report which policy for which server.
//
// Group name to policy name to server name to a list of reporter ids. The controller hears of a policy and server when the list gets its
// first reporter and when it loses its last one. Lists stay in the map when they are empty; hmResetInfo drops them all.
//
// Everything that touches the map holds the control lock, so reports leave in the order in which they were decided; the monitor lock is
// held for the decision only, never while a report is sent.
#include "tavHealthMonitor/tavHealthMonitor.h"

#include "tavHealthMonitor/hmInternal.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

constexpr struct {
    TrRecord *HealthMonitor::*field;
    const char *path;
} kRecords[] = {
    {&HealthMonitor::debugCtl, "control.health"},
    {&HealthMonitor::debugReq, "http.response.health"},
    {&HealthMonitor::logResponsePolicyTriggered, "control.responseHealthPolicyTriggered"},
    {&HealthMonitor::logTimeoutPolicyTriggered, "control.timeoutHealthPolicyTriggered"},
};

void destroyMap(void *map) noexcept { tavHashMapDestroy(static_cast<TavHashMap *>(map)); }
void destroyReporters(void *list) noexcept { tavListDestroy(static_cast<TavList *>(list)); }

void *reporterObject(int id) noexcept { return reinterpret_cast<void *>(static_cast<intptr_t>(id)); }

// The value under `key`, made on first use; null without memory.
template <typename T, typename Create, typename Destroy>
T *findOrCreate(TavHashMap *map, const char *key, Create create, Destroy destroy) noexcept {
    if (void *found = tavHashGet(map, key)) return static_cast<T *>(found);
    T *made = create();
    if (!made) return nullptr;
    tavHashPut(map, key, made);
    if (tavHashGet(map, key)) return made;
    destroy(made);
    return nullptr;
}

TavList *findOrCreateReporters(HealthMonitor *hm, const TriggerNames &names) noexcept TAV_REQUIRES(hm->lock) {
    const auto mapOfMaps = [] { return tavHashMapCreate2(destroyMap); };
    const auto mapOfLists = [] { return tavHashMapCreate2(destroyReporters); };
    const auto reporters = [] { return tavListCreate(nullptr); };
    if (!hm->triggeredPolicyMap) hm->triggeredPolicyMap = mapOfMaps();
    if (!hm->triggeredPolicyMap) return nullptr;
    auto *policies = findOrCreate<TavHashMap>(hm->triggeredPolicyMap, names.connectorGroup, mapOfMaps, destroyMap);
    auto *servers = policies ? findOrCreate<TavHashMap>(policies, names.policy, mapOfLists, destroyMap) : nullptr;
    return servers ? findOrCreate<TavList>(servers, names.server, reporters, destroyReporters) : nullptr;
}

// Calls fn(group, policy, server, reporters) for every list until it returns true.
template <typename Fn>
void forEachReporterList(TavHashMap *map, Fn fn) noexcept {
    for (auto [group, policies] : TavHashRange<TavHashMap>(map)) {
        for (auto [policy, servers] : TavHashRange<TavHashMap>(policies)) {
            for (auto [server, reporters] : TavHashRange<TavList>(servers)) {
                if (fn(TriggerNames{policy, server, group, nullptr}, reporters)) return;
            }
        }
    }
}

// TRUE when the reporter was in the list.
bool removeReporter(TavList *reporters, int id) noexcept {
    TavListEle *ele = tavListFind(reporters, reporterObject(id));
    tavListRemove(reporters, ele);
    return ele != nullptr;
}

// ---- reports ----

struct SearchTexts {
    const char *noGroup;
    const char *noConnector;
};
constexpr SearchTexts kReestablish = {"hmReestablishConnector - did not find connector group %s\n",
                                      "hmReestablishConnector - no active connector for group %s\n"};
constexpr SearchTexts kCleanup = {"hmClientProcessCleanup - did not find connector group %s\n",
                                  "hmClientProcessCleanup - no active connector for group %s\n"};

void logGroup(HealthMonitor *hm, const char *format, const char *group) noexcept {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    TR_DEBUG(hm->trCtx, hm->debugCtl, format, group);
#pragma GCC diagnostic pop
}

TavConnector *findCurrentConnector(HealthMonitor *hm, const char *groupName, const SearchTexts &texts) noexcept {
    TavConnectorGroup *cg = tavFindConnectorGroup(hm->tav, groupName);
    TavConnector *c = cg ? tavConnectorGroupGetCurConnector(cg) : nullptr;
    if (!cg) {
        logGroup(hm, texts.noGroup, groupName);
    } else if (!c) {
        logGroup(hm, texts.noConnector, groupName);
    }
    return c;
}

// The group's current connector, if it is still the one that announced the policy.
TavConnector *hmReestablishConnector(HealthMonitor *hm, const TriggerNames &names) noexcept {
    TavConnector *c = findCurrentConnector(hm, names.connectorGroup, kReestablish);
    if (!c || tavStrEquals(tavConnectorGetURL(c), names.connectorUrl)) return c;
    TR_DEBUG(hm->trCtx, hm->debugCtl, "hmReestablishConnector - did not find connector with URL %s\n", names.connectorUrl);
    return nullptr;
}

void hmSendJsonRequest(TavConnector *c, const TriggerNames &names, bool triggered) noexcept {
    json_t *json = json_pack("{s:s, s:s, s:b}", "healthPolicyName", names.policy, "serverName", names.server, "healthPolicyTriggered",
                             triggered ? 1 : 0);
    if (json) tavConnectorSendHealthTrigger(c, json);
    json_decref(json);
}

// TRUE when the controller must hear of it.
bool recordTrigger(HealthMonitor *hm, TavList *reporters, int reporterId) noexcept {
    const bool first = tavListIsEmpty(reporters);
    if (!first) TR_DEBUG(hm->trCtx, hm->debugCtl, "hmServerProcessHandleMessage not sending JSON trigger request, not first child\n");
    return tavListAddUnique(reporters, reporterObject(reporterId)) && first;
}

bool recordUntrigger(HealthMonitor *hm, TavList *reporters, int reporterId) noexcept {
    if (removeReporter(reporters, reporterId) && tavListIsEmpty(reporters)) return true;
    TR_DEBUG(hm->trCtx, hm->debugCtl, "hmServerProcessHandleMessage not sending JSON untrigger request, not last child\n");
    return false;
}

// Takes the reporter out of the first list that has it. FALSE: no list has it. `*names` are the map's own keys.
bool removeFromNextList(HealthMonitor *hm, int reporterId, TriggerNames *names, bool *emptied) noexcept {
    bool found = false;
    TavLockGuard guard(hm->lock, "hmClientProcessCleanup");
    forEachReporterList(hm->triggeredPolicyMap, [&](const TriggerNames &at, TavList *reporters) {
        found = removeReporter(reporters, reporterId);
        *names = at;
        *emptied = tavListIsEmpty(reporters);
        return found;
    });
    return found;
}

} // namespace

HealthMonitor *hmCreate(Tav *tav) noexcept {
    auto *hm = tavNewRecord<HealthMonitor>();
    if (!hm) return nullptr;
    hm->tav = tav;
    hm->trCtx = tavGetTrContext(tav);
    for (const auto &record : kRecords) hm->*record.field = trRecordGet(getTavTrMgr(tav), record.path);
    hm->lock = tavLockCreateRanked(TavLockRank::HealthMonitor);
    if (hm->lock) return hm;
    tavDestroyRecord(hm);
    return nullptr;
}

void hmDelete(HealthMonitor *hm) noexcept {
    if (!hm) return;
    {
        TavLockGuard guard(hm->lock, "hmDelete");
        tavHashMapDestroy(hm->triggeredPolicyMap);
    }
    tavLockDestroy(hm->lock);
    tavDestroyRecord(hm);
}

void hmServerProcessHandleMessage(Tav *tav, const HealthPolicyTriggerReq *req, int reporterId) noexcept {
    HealthMonitor *hm = tavGetHealthMonitor(tav);
    TriggerNames names{};
    if (!hm || !hmTriggerReqRead(req, &names)) return;
    TavConnector *c = hmReestablishConnector(hm, names);
    if (!c) return;
    bool due = false;
    {
        TavLockGuard guard(hm->lock, "hmServerProcessHandleMessage");
        TavList *reporters = findOrCreateReporters(hm, names);
        if (!reporters) return;
        due = req->triggered ? recordTrigger(hm, reporters, reporterId) : recordUntrigger(hm, reporters, reporterId);
    }
    if (due) hmSendJsonRequest(c, names, req->triggered != FALSE);
}

void hmClientProcessCleanup(Tav *tav, int fd) noexcept {
    HealthMonitor *hm = tavGetHealthMonitor(tav);
    TriggerNames names{};
    bool emptied = false;
    // The control lock keeps the map's entries, and so the names, in place between the steps.
    while (hm && removeFromNextList(hm, fd, &names, &emptied)) {
        TavConnector *c = emptied ? findCurrentConnector(hm, names.connectorGroup, kCleanup) : nullptr;
        if (c) hmSendJsonRequest(c, names, false);
    }
}

void hmResetInfo(Tav *tav) noexcept {
    HealthMonitor *hm = tavGetHealthMonitor(tav);
    if (!hm) return;
    TavHashMapPtr dropped;
    {
        TavLockGuard guard(hm->lock, "hmResetInfo");
        dropped.reset(hm->triggeredPolicyMap);
        hm->triggeredPolicyMap = nullptr;
    }
    forEachReporterList(dropped.get(), [hm](const TriggerNames &names, TavList *reporters) {
        TavConnector *c = tavListIsEmpty(reporters) ? nullptr : findCurrentConnector(hm, names.connectorGroup, kReestablish);
        if (c) hmSendJsonRequest(c, names, false);
        return false;
    });
}

void hmDumpTriggerMap(Tav *tav) noexcept {
    HealthMonitor *hm = tavGetHealthMonitor(tav);
    if (!hm || !trContextLogEnabled(hm->trCtx, hm->debugCtl)) return;
    TavLockGuard guard(hm->lock, "hmDumpTriggerMap");
    forEachReporterList(hm->triggeredPolicyMap, [hm](const TriggerNames &names, TavList *reporters) {
        for (void *id : TavListRange<void>(reporters))
            trContextDebug(hm->trCtx, hm->debugCtl, "hmDumpTriggerMap: group='%s' policy='%s' server='%s' reporter=%d\n",
                           names.connectorGroup, names.policy, names.server, static_cast<int>(reinterpret_cast<intptr_t>(id)));
        return false;
    });
}
