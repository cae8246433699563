// The affinity policy of a virtual cluster: which cookies carry session ids, and what stands before a clone id.
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tsInternal.h"

namespace {
constexpr const char *defaultCookieNames = "ZVJSESSIONID,JSESSIONID";
constexpr const char *defaultCookieName = "ZVJSESSIONID";
// No comma before the name that is appended: the second name runs into it.
constexpr const char *defaultCookiePrefix = "JSESSIONID,SSLJSESSIONID";

struct StrSplitDeleter {
    void operator()(char **pieces) const noexcept { tavFreeStrSplitArray(pieces); }
};
using StrPieces = std::unique_ptr<char *, StrSplitDeleter>;
} // namespace

// A policy without a web module is the selector's: contexts borrow it until the snapshot goes.
static HttpAffinityPolicy *keep(VirtualCluster *vc, HttpAffinityPolicy *policy) noexcept TS_LOCKED {
    if (policy && !vc->webModule) {
        policy->nextRetired = vc->selector->ownedPolicies;
        vc->selector->ownedPolicies = policy;
    }
    return policy;
}

static HttpAffinityPolicy *policyFromNames(VirtualCluster *vc, const char *names, const char *delimiter, Boolean learn) noexcept TS_LOCKED {
    const StrPieces pieces(tavStrSplit(names, ","));
    return pieces ? keep(vc, hapCreate(vc->webModule, pieces.get(), delimiter, learn)) : nullptr;
}

// From the library's properties.
static HttpAffinityPolicy *defaultPolicy(VirtualCluster *vc) noexcept TS_LOCKED {
    Tav *tav = vc->selector->tav;
    const TavText descriptor(tavCopyProperty(tav, "HttpSessionAffinityPolicyDescriptor"));
    if (descriptor) return keep(vc, hapCreate1(vc->webModule, descriptor.get()));
    TavText names(tavCopyProperty(tav, "HttpSessionCookies"));
    if (!names) {
        const TavText name(tavCopyProperty(tav, "QuorvexSessionCookieName"));
        names.reset(tavStrJoin(defaultCookiePrefix, name ? name.get() : defaultCookieName));
    }
    return policyFromNames(vc, names.get(), ":", FALSE);
}

static const char *cloneIdSeparator(const Cluster *cluster) noexcept TS_LOCKED {
    if (cluster->serverType == TAVSERVERTYPE_APPLICATION_SERVER) {
        for (const TargetServer *server : TavListRange<TargetServer>(cluster->servers)) {
            if (server->cloneSeparatorChange) return "+";
        }
    }
    return cluster->cloneIdSeparator ? cluster->cloneIdSeparator : ":";
}

// The cookie names of the cluster's first server; only that one is asked.
static const char *cookiesOfFirstServer(const VirtualCluster *vc) noexcept TS_LOCKED {
    TargetSelector *ts = vc->selector;
    TavListEle *head = tavListGetHead(vc->cluster->servers);
    const auto *server = head ? static_cast<const TargetServer *>(tavListEleGetObject(head)) : nullptr;
    const char *names = server ? server->sessionAffinityCookies : nullptr;
    if (!names) return nullptr;
    TR_DEBUG(ts->trCtx, ts->controlRec, "getAffinityPolicy: server %s session affinity cookies - %s\n", server->name, names);
    return tavStrEquals(names, "JSESSIONID") ? nullptr : names;
}

// The first source that has names.
static const char *cookieNames(const VirtualCluster *vc) noexcept TS_LOCKED {
    TargetSelector *ts = vc->selector;
    const Application *application = vc->webModule ? wmGetApplication(vc->webModule) : nullptr;
    if (const char *names = vc->webModule ? wmGetSessionAffinityCookies(vc->webModule) : nullptr) {
        TR_DEBUG(ts->trCtx, ts->controlRec, "getAffinityPolicy: web module session affinity cookies - %s\n", names);
        return names;
    }
    if (const char *names = application ? appGetSessionAffinityCookies(application) : nullptr) {
        TR_DEBUG(ts->trCtx, ts->controlRec, "getAffinityPolicy: application session affinity cookies - %s\n", names);
        return names;
    }
    if (const char *names = cookiesOfFirstServer(vc)) return names;
    if (const char *names = vc->cluster->sessionAffinityCookies) {
        TR_DEBUG(ts->trCtx, ts->controlRec, "getAffinityPolicy: cluster session affinity cookies - %s\n", names);
        return names;
    }
    return defaultCookieNames;
}

static HttpAffinityPolicy *computePolicy(VirtualCluster *vc) noexcept TS_LOCKED {
    HttpAffinityPolicy *own = vc->webModule ? wmGetHttpAffinityPolicy(vc->webModule) : nullptr;
    if (own) return own;
    if (!vc->cluster) return defaultPolicy(vc);
    const char *names = cookieNames(vc);
    TargetSelector *ts = vc->selector;
    TR_DEBUG(ts->trCtx, ts->controlRec, "getAffinityPolicy: returning cookieNames %s for web module %s\n", names, vc->name);
    return policyFromNames(vc, names, cloneIdSeparator(vc->cluster), vc->cluster->learnServerIds);
}

// A module's policy may have been taken away or replaced since: what it has now counts.
HttpAffinityPolicy *getAffinityPolicy(VirtualCluster *vc) noexcept {
    HttpAffinityPolicy *known = vc->affinityPolicy;
    if (known && (!vc->webModule || wmGetHttpAffinityPolicy(vc->webModule) == known)) return known;
    vc->affinityPolicy = computePolicy(vc);
    return vc->affinityPolicy;
}

HttpAffinityPolicy *tsVirtualClusterGetAffinityPolicy(VirtualCluster *vc) noexcept {
    if (!vc) return nullptr;
    TsScope scope(vc->selector->lock, "tsVirtualClusterGetAffinityPolicy");
    return getAffinityPolicy(vc);
}
