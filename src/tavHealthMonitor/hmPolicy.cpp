// Policies, their links to servers, and the check of a sample against them. All under the selector lock: a change of state only queues a
// block for the instance's own thread.
#include "tavHealthMonitor/hmInternal.h"
#include "tavLibUtil/tavObjectName.h"
#include "tavTargetSelector/tsTopology.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

#include <tav/context.h>

const char *hmHealthPolicyTypeToString(HealthPolicyType type) noexcept {
    switch (type) {
        case HEALTHPOLICY_EXCESSIVE_RESPONSE_TIME:
            return "ExcessiveResponseTime";
        case HEALTHPOLICY_EXCESSIVE_REQUEST_TIMEOUTS:
            return "ExcessiveRequestTimeout";
        default:
            return "UNKNOWN";
    }
}

// ---- policies ----

namespace {

void releasePolicy(HealthPolicy *policy) noexcept {
    if (--policy->refcnt > 0) return;
    if (policy->connector) tavConnectorReleaseRef(policy->connector, "hmHealthPolicyDelete");
    tavFree(policy->name);
    tavDestroyRecord(policy);
}

void joinPolicy(HealthPolicyLink *link, HealthPolicy *policy) noexcept {
    link->policy = policy;
    link->next = policy->links;
    if (link->next) link->next->prev = link;
    policy->links = link;
    ++policy->refcnt;
}

void leavePolicy(HealthPolicyLink *link) noexcept {
    (link->prev ? link->prev->next : link->policy->links) = link->next;
    if (link->next) link->next->prev = link->prev;
    releasePolicy(link->policy);
}

HealthPolicyLink *findLink(const TavList *policies, const HealthPolicy *policy) noexcept {
    for (HealthPolicyLink *link : TavListRange<HealthPolicyLink>(policies)) {
        if (link->policy == policy) return link;
    }
    return nullptr;
}

void addLink(TavList *policies, HealthPolicy *policy) noexcept {
    auto *link = tavNewRecord<HealthPolicyLink>();
    if (!link) return;
    link->owner = policies;
    joinPolicy(link, policy);
    tavListAddTail(policies, link); // without memory the list's destructor takes the link back
}

} // namespace

HealthPolicy *hmHealthPolicyCreate(TargetSelector *ts, const char *name, TavConnector *connector) noexcept {
    auto *policy = ts && name ? tavNewRecord<HealthPolicy>() : nullptr;
    if (!policy) return nullptr;
    policy->name = tavStrdup(name);
    if (!policy->name) {
        tavDestroyRecord(policy);
        return nullptr;
    }
    policy->selector = ts;
    policy->refcnt = 1;
    policy->connector = connector;
    if (connector) tavConnectorObtainRef(connector, "hmHealthPolicyCreate");
    return policy;
}

Boolean hmHealthPolicySetPropStr(HealthPolicy *policy, const char *name, const char *value) noexcept {
    if (!policy || !tavStrEquals(name, "type")) return FALSE;
    for (HealthPolicyType type : {HEALTHPOLICY_EXCESSIVE_RESPONSE_TIME, HEALTHPOLICY_EXCESSIVE_REQUEST_TIMEOUTS}) {
        if (!tavStrEquals(hmHealthPolicyTypeToString(type), value)) continue;
        TavLockGuard guard(policy->selector->lock, "hmHealthPolicySetPropStr");
        policy->type = type;
        return TRUE;
    }
    return FALSE;
}

Boolean hmHealthPolicySetPropInt(HealthPolicy *policy, const char *name, int value) noexcept {
    if (!policy || !tavStrEquals(name, "threshold")) return FALSE;
    TavLockGuard guard(policy->selector->lock, "hmHealthPolicySetPropInt");
    policy->threshold = value;
    return TRUE;
}

void hmHealthPolicyDelete(HealthPolicy *policy) noexcept {
    if (!policy) return;
    {
        TavLockGuard guard(policy->selector->lock, "hmHealthPolicyDelete");
        while (HealthPolicyLink *link = policy->links) tavListRemoveObject(link->owner, link);
    }
    // No link is left, so this is the last reference: the connector is never let go under the selector lock.
    releasePolicy(policy);
}

const char *hmHealthPolicyGetName(const HealthPolicy *policy) noexcept { return policy ? policy->name : nullptr; }

// ---- links ----

void hmLinkServerToHealthPolicy(Tav *tav, TargetServer *server, TavList *policies, HealthPolicy *policy, Boolean add) noexcept {
    if (!server || !policies || !policy) return;
    HealthMonitor *hm = tavGetHealthMonitor(tav);
    TrContext *ctx = hm ? hm->trCtx : nullptr;
    TrRecord *rec = hm ? hm->debugCtl : nullptr;
    if (add) {
        TR_DEBUG(ctx, rec, "hmLinkServerToHealthPolicy: Adding policy='%s' to server='%s'\n", policy->name, tsServerGetName(server));
        return addLink(policies, policy);
    }
    TR_DEBUG(ctx, rec, "hmLinkServerToHealthPolicy: Deleting policy='%s' from server='%s'\n", policy->name, tsServerGetName(server));
    if (HealthPolicyLink *link = findLink(policies, policy)) tavListRemoveObject(policies, link);
}

void hmHealthPolicyLinkDelete(void *object) noexcept {
    auto *link = static_cast<HealthPolicyLink *>(object);
    if (!link) return;
    leavePolicy(link);
    tavDestroyRecord(link);
}

// ---- the check ----

namespace {

// Runs on the instance's own thread, which holds no lock.
void hmHealthPolicyStateChangeCallback(Tav *tav, void *obj) noexcept {
    auto *req = static_cast<HealthPolicyTriggerReq *>(obj);
    TriggerNames names{};
    if (!tavIsClientProcess(tav)) {
        tavControlLock("hmHealthPolicyStateChangeCallback");
        hmServerProcessHandleMessage(tav, req, HM_OWN_REPORTER);
        tavControlUnlock();
    } else if (hmTriggerReqRead(req, &names)) {
        HealthMonitor *hm = tavGetHealthMonitor(tav);
        TR_DEBUG(hm->trCtx, hm->debugCtl, "hmHealthPolicyStateChangeCallback: Send msg to daemon, Server='%s' Policy='%s' Trigger=%d\n",
                 names.server, names.policy, req->triggered);
        tavClientProcessSendHealthTrigger(tav, req, req->len);
    }
    tavFree(req);
}

// Without memory the link keeps its state, so the next sample tries again.
void hmHealthPolicyStateChange(HealthMonitor *hm, TargetServer *server, HealthPolicyLink *link, Boolean trigger) noexcept {
    const HealthPolicy *policy = link->policy;
    TavConnector *c = policy->connector;
    const TriggerNames names = {policy->name, tsServerGetName(server), c ? tavConnectorGroupGetName(tavConnectorGetGroup(c)) : "",
                                c ? tavConnectorGetURL(c) : ""};
    HealthPolicyTriggerReq *req = hmTriggerReqCreate(names, trigger);
    if (!req) return;
    link->triggered = trigger;
    TR_DEBUG(hm->trCtx, hm->debugCtl, "hmHealthPolicyStateChange: Server='%s' Policy='%s' Type='%s' Threshold='%d' Trigger=%d\n",
             names.server, names.policy, hmHealthPolicyTypeToString(policy->type), policy->threshold, trigger);
    tavProcessAsync(hm->tav, req, hmHealthPolicyStateChangeCallback, tavFree);
}

void logTriggered(HealthMonitor *hm, TrRecord *rec, const TargetServer *server, const HealthPolicy *policy, long long value) noexcept {
    if (!trContextLogEnabled(hm->trCtx, rec)) return;
    const char *node = tsNodeGetName(tsServerGetNode(server));
    TavText parent(tavGetParentName(node));
    trContextLog(hm->trCtx, rec, tavOrNull(tavPathToName(policy->name)), tavOrNull(tavPathToName(tsServerGetName(server))),
                 tavOrNull(tavPathToName(node)), tavOrNull(tavPathToName(parent.get())), policy->threshold, tavClampInt(value));
}

// Reached triggers, below untriggers.
void checkValue(HealthMonitor *hm, TargetServer *server, HealthPolicyLink *link, long long value, TrRecord *rec) noexcept {
    const bool reached = value >= link->policy->threshold;
    if (reached == (link->triggered != FALSE)) return;
    if (reached) logTriggered(hm, rec, server, link->policy, value);
    hmHealthPolicyStateChange(hm, server, link, reached);
}

} // namespace

void hmCheckHealthPolicies(Tav *tav, TavHttpContext *ctx, TargetServer *server, TavList *policies, TavTime avgRT, int timeoutPct) noexcept {
    HealthMonitor *hm = tavGetHealthMonitor(tav);
    if (!hm || !server) return;
    static constexpr char kFormat[] = "hmCheckHealthPolicies: Server='%s' avgRT=%lu timeoutPct=%d\n";
    const auto shown = static_cast<unsigned long>(avgRT);
    if (ctx) TR_DEBUG(tavHttpContextGetTrContext(ctx), hm->debugReq, kFormat, tsServerGetName(server), shown, timeoutPct);
    TR_DEBUG(hm->trCtx, hm->debugCtl, kFormat, tsServerGetName(server), shown, timeoutPct);
    for (HealthPolicyLink *link : TavListRange<HealthPolicyLink>(policies)) {
        switch (link->policy->type) {
            case HEALTHPOLICY_EXCESSIVE_RESPONSE_TIME:
                if (avgRT != TAV_NO_VALUE) checkValue(hm, server, link, avgRT, hm->logResponsePolicyTriggered);
                break;
            case HEALTHPOLICY_EXCESSIVE_REQUEST_TIMEOUTS:
                if (timeoutPct != -1) checkValue(hm, server, link, timeoutPct, hm->logTimeoutPolicyTriggered);
                break;
            default:
                break;
        }
    }
}
