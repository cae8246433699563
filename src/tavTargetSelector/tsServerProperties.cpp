// A server's state, maintenance, weight, clone id and plain properties.
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavTargetSelector/tsInternal.h"

// ---- selectability ----

static const char *noLoadBalancingOfStarted(const TargetServer *server) noexcept TS_LOCKED {
    if (server->weight < 1) return "server weight is 0";
    if (server->maintenanceMode == AffinityMM) return "server is in affinity maintenance mode";
    if (server->node->maintenanceMode) return "server is on node in maintenance mode";
    return nullptr;
}

void serverRecomputeSelectability(TargetServer *server) noexcept {
    const char *both = nullptr;
    if (!server->started)
        both = "server is not started";
    else if (server->maintenanceMode == BreakMM)
        both = "server is in break maintenance mode";
    server->reasonForNoAffinity = both;
    server->reasonForNoLoadBalancing = both ? both : noLoadBalancingOfStarted(server);
    TargetSelector *ts = server->selector;
    TR_DEBUG(ts->trCtx, ts->controlRec, "serverRecomputeSelectability: reasonForNoAffinity: %s %s\n", server->name,
             tavOrNull(server->reasonForNoAffinity));
    TR_DEBUG(ts->trCtx, ts->controlRec, "serverRecomputeSelectability: reasonForNoLoadBalancing: %s %s\n", server->name,
             tavOrNull(server->reasonForNoLoadBalancing));
}

void tsServerSetMaintenanceMode(TargetServer *server, MaintenanceMode mode) noexcept {
    TsScope scope(server->selector->lock, "tsServerSetMaintenanceMode");
    server->maintenanceMode = mode;
    serverRecomputeSelectability(server);
}

static constexpr const char *maintenanceTexts[] = {"false", "affinity", "break"}; // index: the mode

const char *tsMaintenanceModeToProperty(MaintenanceMode mode) noexcept { return maintenanceTexts[mode]; }

// An unknown text leaves the mode; selectability is recomputed in every case.
static void setMaintenanceText(TargetServer *server, const char *value) noexcept TS_LOCKED {
    for (int i = 0; i <= BreakMM; i++) {
        if (tavStrEquals(value, maintenanceTexts[i])) server->maintenanceMode = static_cast<MaintenanceMode>(i);
    }
    serverRecomputeSelectability(server);
}

// Between two positive weights nothing changes but the share.
static void setWeight(TargetServer *server, int weight) noexcept TS_LOCKED {
    const int old = server->weight;
    server->weight = weight;
    if (old <= 0 || weight <= 0) serverRecomputeSelectability(server);
}

void tsServerSetWeight(TargetServer *server, int weight) noexcept {
    TsScope scope(server->selector->lock, "tsServerSetWeight");
    setWeight(server, weight);
}

// ---- state ----

void serverInitRetry(TargetServer *server) noexcept {
    TargetSelector *ts = server->selector;
    TR_DEBUG(ts->trCtx, ts->balanceRec, "initRetry: resetting retry interval and next retry time\n");
    server->nextRetryInterval = TS_FIRST_RETRY_INTERVAL;
    server->nextRetryTime = 0;
}

// Host objects exist while the server is not "STOPPED".
static void switchHostObjects(TargetServer *server, bool wasStopped, bool isStopped) noexcept TS_LOCKED {
    if (wasStopped == isStopped) return;
    for (TavList *list : server->endPoints) {
        for (TavTargetEndpoint *endpoint : TavListRange<TavTargetEndpoint>(list)) {
            if (isStopped)
                endPointGiveUp(endpoint);
            else
                endPointObtain(endpoint);
        }
    }
}

static void setStarted(TargetServer *server, Boolean started) noexcept TS_LOCKED {
    if (server->started == started) return;
    server->started = started;
    serverRecomputeSelectability(server);
    if (started) serverInitRetry(server);
}

Boolean serverSetState(TargetServer *server, const char *state) noexcept {
    if (!state) return TRUE;
    char *copy = tsStateCopy(state);
    if (!copy) return FALSE;
    TargetSelector *ts = server->selector;
    char *old = server->state;
    server->state = copy;
    if (!tavStrEquals(old, copy)) TR_LOG(ts->trCtx, ts->serverStateRec, copy, tavOrNull(old), server->name);
    switchHostObjects(server, tavStrEquals(old, "STOPPED"), tavStrEquals(copy, "STOPPED"));
    tsStateFree(old);
    setStarted(server, tavStrEquals(copy, "STARTED"));
    if (server->started) return TRUE;
    // Two zero samples: whatever this server had triggered ends.
    hmCheckHealthPolicies(ts->tav, nullptr, server, server->healthPolicies, 0, 0);
    tavAvgCalcInit(&server->avgResponseTimeCalc, TS_RESPONSE_TIME_INTERVAL);
    tavTimeoutCalcInit(&server->timeoutCalc, TS_TIMEOUT_INTERVAL);
    return TRUE;
}

Boolean tsServerSetState(TargetServer *server, const char *state) noexcept {
    TsScope scope(server->selector->lock, "tsServerSetState");
    return serverSetState(server, state);
}

// ---- clone id ----

Boolean serverSetCloneId(TargetServer *server, const char *id) noexcept {
    if (!id || !*id || server->cloneId) return TRUE;
    char *copy = tavStrdup(id);
    if (!copy) return FALSE;
    // A deleted server may still learn an id from a response, but is not found by it.
    void *displaced = server->deleted ? nullptr : tavHashPut(server->selector->serverMapByCloneId, id, server);
    if (displaced == server) {
        tavFree(copy);
        return FALSE;
    }
    if (displaced) server->selector->affinityGeneration++;
    server->cloneId = copy;
    return TRUE;
}

Boolean tsServerSetCloneId(TargetServer *server, const char *id) noexcept {
    TsScope scope(server->selector->lock, "tsServerSetCloneId");
    return serverSetCloneId(server, id);
}

// ---- plain fields ----

void tsServerSetType(TargetServer *server, TavServerType type) noexcept {
    TsScope scope(server->selector->lock, "tsServerSetType");
    server->type = type;
}

static Boolean setCookies(TargetServer *server, const char *cookies) noexcept TS_LOCKED {
    return !cookies || tavReplaceStr(&server->sessionAffinityCookies, cookies);
}

Boolean tsServerSetSessionAffinityCookies(TargetServer *server, const char *cookies) noexcept {
    TsScope scope(server->selector->lock, "tsServerSetSessionAffinityCookies");
    return setCookies(server, cookies);
}

void tsServerSetCloneSeparatorChange(TargetServer *server, Boolean change) noexcept {
    TsScope scope(server->selector->lock, "tsServerSetCloneSeparatorChange");
    server->cloneSeparatorChange = change;
}

namespace {
struct StrProperty {
    const char *name;
    Boolean (*set)(TargetServer *server, const char *value) noexcept;
};
struct IntProperty {
    const char *name;
    void (*set)(TargetServer *server, int value) noexcept;
};
struct BoolProperty {
    const char *name;
    std::atomic<Boolean> TargetServer::*field;
};

Boolean setMaintenance(TargetServer *server, const char *value) noexcept TS_LOCKED {
    setMaintenanceText(server, value);
    return TRUE;
}
Boolean setType(TargetServer *server, const char *value) noexcept TS_LOCKED {
    server->type = tsServerTypeFromString(value);
    return TRUE;
}
constexpr StrProperty strProperties[] = {
    {"id", serverSetCloneId}, {"state", serverSetState}, {"server.maintenancemode", setMaintenance}, {"sessionAffinityCookies", setCookies},
    {"type", setType},
};

template <auto field>
void setField(TargetServer *server, int value) noexcept TS_LOCKED {
    server->*field = value;
}
constexpr IntProperty intProperties[] = {
    {"weight", setWeight},
    {"connectTimeout", setField<&TargetServer::connectTimeout>},
    {"ioTimeout", setField<&TargetServer::ioTimeout>},
    {"wsIoTimeout", setField<&TargetServer::wsIoTimeout>},
    {"wsIdleTimeout", setField<&TargetServer::wsIdleTimeout>},
    {"maxConnections", setField<&TargetServer::maxConnections>},
};
constexpr BoolProperty boolProperties[] = {
    {"cloneSeparatorChange", &TargetServer::cloneSeparatorChange},
    {"waitForContinue", &TargetServer::waitForContinue},
    {"extendedHandshake", &TargetServer::extendedHandshake},
};

template <typename Property, size_t N>
const Property *findProperty(const Property (&table)[N], const char *name) noexcept {
    for (const Property &property : table) {
        if (tavStrEquals(property.name, name)) return &property;
    }
    return nullptr;
}
} // namespace

static bool isOwnServer(const TargetServer *server) noexcept {
    Tav *tav = server->selector->tav;
    return tavIsOwnServerPath(tav, server->name);
}

Boolean tsServerSetPropStr(TargetServer *server, const char *name, const char *value) noexcept {
    if (!server || !name) return FALSE;
    // Custom properties have locks of their own: not under the selector lock.
    if (isOwnServer(server)) return tavSetServerCustomProperty(server->selector->tav, name, value);
    const StrProperty *property = findProperty(strProperties, name);
    if (!property) return FALSE;
    TsScope scope(server->selector->lock, "tsServerSetPropStr");
    return property->set(server, value);
}

Boolean tsServerSetPropInt(TargetServer *server, const char *name, int value) noexcept {
    const IntProperty *property = server ? findProperty(intProperties, name) : nullptr;
    if (!property) return FALSE;
    TsScope scope(server->selector->lock, "tsServerSetPropInt");
    property->set(server, value);
    return TRUE;
}

Boolean tsServerSetPropBool(TargetServer *server, const char *name, Boolean value) noexcept {
    const BoolProperty *property = server ? findProperty(boolProperties, name) : nullptr;
    if (!property) return FALSE;
    TsScope scope(server->selector->lock, "tsServerSetPropBool");
    server->*property->field = value;
    return TRUE;
}

Boolean tsServerSetPropNull(TargetServer *server, const char *name) noexcept {
    if (!server) return FALSE;
    if (isOwnServer(server)) return tavSetServerCustomProperty(server->selector->tav, name, nullptr);
    return TRUE;
}
