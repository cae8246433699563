// The request mapper: applications by root, and what hangs on them.
//
// Applications whose full names differ only behind "-edition" are editions of one root. The configuration builds all of this before the
// snapshot is published; then requests walk it without a lock (rmMapRequest.cpp).
//
// Ownership runs downwards: mapper, root, application, then web modules and work classes, then rules. The lists themselves have no
// destructor: whoever takes an element out frees it, so a child can be deleted alone or with its parent. Web modules are only borrowed by
// the URL matcher, which goes first. Affinity policies outlive their web modules on the mapper's list of retired ones, because requests
// keep them. Locks: `lock` guards the root map and the cluster names of web modules. Policies need none (an atomic pointer, a list that
// only grows).
#include "tavRequestMapper/tavRequestMapper.h"

#include <cstring>

#include "tavRequestMapper/rmInternal.h"
#include "tavURLMatcher/tavURLMatcher.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

// ---- roots ----

char *rootNameOf(const char *applicationName) noexcept {
    const char *suffix = std::strstr(applicationName, "-edition");
    return suffix ? tavStrndup(applicationName, static_cast<size_t>(suffix - applicationName)) : tavStrdup(applicationName);
}

void rootFree(ApplicationRoot *root) noexcept {
    if (!root) return;
    tavFree(root->name);
    tavListDestroy(root->applications);
    tavDestroyRecord(root);
}

ApplicationRoot *rootCreate(RequestMapper *rm, const char *name) noexcept TAV_REQUIRES(rm->lock) {
    auto *root = tavNewRecord<ApplicationRoot>();
    if (!root) return nullptr;
    root->rm = rm;
    root->name = tavStrdup(name);
    root->applications = tavListCreate(nullptr);
    if (root->name && root->applications) {
        tavHashPut(rm->appRoots, name, root);
        if (tavHashGet(rm->appRoots, name) == root) return root;
    }
    rootFree(root);
    return nullptr;
}

// A root without applications goes.
void rootDropIfEmpty(RequestMapper *rm, ApplicationRoot *root) noexcept TAV_REQUIRES(rm->lock) {
    if (!tavListIsEmpty(root->applications)) return;
    tavHashPut(rm->appRoots, root->name, nullptr);
    rootFree(root);
}

// ---- applications ----

void applicationFree(Application *application) noexcept {
    if (!application) return;
    while (auto *webModule = static_cast<WebModule *>(tavListRemoveHead(application->webModules))) webModuleFree(webModule);
    for (TavList *workClasses : {application->webRouteWorkClasses, application->newWorkClasses}) {
        while (auto *workClass = static_cast<WebRouteWorkClass *>(tavListRemoveHead(workClasses))) workClassFree(workClass);
    }
    tavListDestroy(application->webModules);
    tavListDestroy(application->webRouteWorkClasses);
    tavListDestroy(application->newWorkClasses);
    tavFree(application->name);
    tavFree(application->simpleName);
    tavFree(application->edition);
    tavFree(application->sessionAffinityCookies);
    tavFree(application->state);
    tavDestroyRecord(application);
}

Application *applicationNew(RequestMapper *rm, const char *name) noexcept {
    auto *application = tavNewRecord<Application>();
    if (!application) return nullptr;
    application->rm = rm;
    application->name = tavStrdup(name);
    application->simpleName = tavStrdup(tavPathToName(name));
    application->edition = tavStrdup("");
    application->webModules = tavListCreate(nullptr);
    application->webRouteWorkClasses = tavListCreate(nullptr);
    application->newWorkClasses = tavListCreate(nullptr);
    if (application->name && application->simpleName && application->edition && application->webModules &&
        application->webRouteWorkClasses && application->newWorkClasses) {
        return application;
    }
    applicationFree(application);
    return nullptr;
}

// Makes the application an edition of its root, which is made when it is the first. FALSE without memory.
Boolean joinRoot(RequestMapper *rm, Application *application) noexcept {
    TavText rootName(rootNameOf(application->name));
    if (!rootName) return FALSE;
    TavLockGuard guard(rm->lock, "rmApplicationCreate");
    auto *root = static_cast<ApplicationRoot *>(tavHashGet(rm->appRoots, rootName.get()));
    if (!root) root = rootCreate(rm, rootName.get());
    if (!root) return FALSE;
    application->root = root;
    application->rootEle = tavListAddTail(root->applications, application);
    if (application->rootEle) return TRUE;
    rootDropIfEmpty(rm, root);
    return FALSE;
}

} // namespace

// ---- mapper ----

RequestMapper *rmCreate(TavRoutingInfo *ri) noexcept {
    auto *rm = tavNewRecord<RequestMapper>();
    if (!rm) return nullptr;
    rm->ri = ri;
    rm->lock = tavLockCreateRanked(TavLockRank::RequestMapper);
    rm->appRoots = tavHashMapCreate();
    rm->matcher = tavURLMatcherCreate(ri);
    if (!rm->lock || !rm->appRoots || !rm->matcher) {
        rmDelete(rm);
        return nullptr;
    }
    if (Tav *tav = tavRoutingInfoGetTav(ri)) {
        TrMgr *mgr = tavGetTrMgr(tav);
        rm->trCtx = tavGetTrContext(tav);
        rm->debugCtl = trRecordGet(mgr, "control.mapper");
        rm->debugReq = trRecordGet(mgr, "http.request.map.url");
        rm->rolloutRec = trRecordGet(mgr, "http.request.select.editionRollout");
    }
    return rm;
}

void rmDelete(RequestMapper *rm) noexcept {
    if (!rm) return;
    tavURLMatcherDestroy(rm->matcher);
    for (auto [name, root] : TavHashRange<ApplicationRoot>(rm->appRoots)) {
        for (Application *application : TavListRange<Application>(root->applications)) applicationFree(application);
        rootFree(root);
    }
    tavHashMapDestroy(rm->appRoots);
    while (HttpAffinityPolicy *policy = rm->retiredPolicies.load()) {
        rm->retiredPolicies = policy->nextRetired;
        hapDelete(policy);
    }
    tavLockDestroy(rm->lock);
    tavDestroyRecord(rm);
}

TavRoutingInfo *rmGetRoutingInfo(const RequestMapper *rm) noexcept { return rm ? rm->ri : nullptr; }
URLMatcher *rmGetURLMatcher(const RequestMapper *rm) noexcept { return rm ? rm->matcher : nullptr; }

Boolean rmAddVHostMatcher(RequestMapper *rm, VHostMatcher *vhostMatcher) noexcept {
    return rm && vhostMatcher && addVHostMatcher(rm->matcher, vhostMatcher);
}

void rmRetirePolicy(RequestMapper *rm, HttpAffinityPolicy *policy) noexcept {
    if (!policy) return;
    policy->nextRetired = rm->retiredPolicies.load(std::memory_order_relaxed);
    while (!rm->retiredPolicies.compare_exchange_weak(policy->nextRetired, policy, std::memory_order_release, std::memory_order_relaxed)) {
    }
}

// ---- applications ----

Application *rmApplicationCreate(RequestMapper *rm, const char *name) noexcept {
    if (!rm || !name) return nullptr;
    Application *application = applicationNew(rm, name);
    if (application && !joinRoot(rm, application)) {
        applicationFree(application);
        return nullptr;
    }
    if (application) TR_DEBUG(rm->trCtx, rm->debugCtl, "rmApplicationCreate: %s, root %s\n", name, application->root->name);
    return application;
}

void rmApplicationDelete(Application *application) noexcept {
    if (!application) return;
    ApplicationRoot *root = application->root;
    RequestMapper *rm = application->rm;
    TR_DEBUG(rm->trCtx, rm->debugCtl, "rmApplicationDelete: %s\n", application->name);
    {
        TavLockGuard guard(rm->lock, "rmApplicationDelete");
        tavListRemove(root->applications, application->rootEle);
        rootDropIfEmpty(rm, root);
    }
    applicationFree(application);
}

Application *getApplicationByEdition(const ApplicationRoot *root, const char *edition) noexcept {
    if (!root) return nullptr;
    for (Application *application : TavListRange<Application>(root->applications)) {
        if (tavStrEquals(application->edition, edition)) return application;
    }
    return nullptr;
}

Boolean rmApplicationSetState(Application *application, const char *state) noexcept {
    return application && tavReplaceStr(&application->state, state);
}

Boolean rmApplicationSetEdition(Application *application, const char *edition) noexcept {
    return application && tavReplaceStr(&application->edition, edition ? edition : "");
}

Boolean rmApplicationSetSessionAffinityCookies(Application *application, const char *cookies) noexcept {
    return application && tavReplaceStr(&application->sessionAffinityCookies, cookies);
}

Boolean rmApplicationSetPropStr(Application *application, const char *name, const char *value) noexcept {
    if (tavStrEquals(name, "state")) return rmApplicationSetState(application, value);
    if (tavStrEquals(name, "edition")) return rmApplicationSetEdition(application, value);
    if (tavStrEquals(name, "sessionAffinityCookies")) return rmApplicationSetSessionAffinityCookies(application, value);
    return FALSE;
}

Boolean rmApplicationSetPropInt(Application *, const char *, int) noexcept { return FALSE; }
Boolean rmApplicationSetPropBool(Application *, const char *, Boolean) noexcept { return FALSE; }

Boolean rmApplicationSetPropNull(Application *application, const char *name) noexcept {
    if (!application || !tavStrEquals(name, "sessionAffinityCookies")) return FALSE;
    rmApplicationSetSessionAffinityCookies(application, nullptr);
    for (WebModule *webModule : TavListRange<WebModule>(application->webModules)) wmSetHttpAffinityPolicy(webModule, nullptr);
    return TRUE;
}

TavRoutingInfo *rmApplicationGetRoutingInfo(const Application *application) noexcept {
    return application ? rmGetRoutingInfo(application->rm) : nullptr;
}

const char *rmApplicationGetSimpleName(const Application *application) noexcept { return application ? application->simpleName : nullptr; }

const char *appGetSessionAffinityCookies(const Application *application) noexcept {
    return application ? application->sessionAffinityCookies : nullptr;
}

Boolean appAddWebModule(Application *application, WebModule *webModule) noexcept {
    if (!application || !webModule) return FALSE;
    webModule->ele = tavListAddTail(application->webModules, webModule);
    if (!webModule->ele) return FALSE;
    webModule->application = application;
    webModule->rm = application->rm;
    return TRUE;
}
