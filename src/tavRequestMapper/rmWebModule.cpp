// Web modules: properties, and their links to virtual-host groups and clusters.
#include <memory>
#include <utility>

#include "URIMatcher/URIMatcher.h"
#include "URIMatcher/WebModuleForMatching.h"
#include "VHostMatcher/VHostMatcher.h"
#include "tavRequestMapper/rmInternal.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

void freeText(void *text) noexcept { tavFree(text); }

struct ProtocolMap {
    const char *value;
    TavSSLMapMode mode;
};

constexpr ProtocolMap protocolMaps[] = {{"direct", MapInboundToOutbound}, {"http", SSLOffLoad}, {"https", SSLOnLoad}};

// FALSE (the mode stays) for a text that names no mode.
Boolean setProtocolMap(WebModule *webModule, const char *value) noexcept {
    if (!value) {
        webModule->sslMapMode = NullMapMode;
        return TRUE;
    }
    for (const ProtocolMap &map : protocolMaps) {
        if (!tavStrEquals(value, map.value)) continue;
        webModule->sslMapMode = map.mode;
        return TRUE;
    }
    return FALSE;
}

// The full patterns of a module's URIs.
class Patterns {
public:
    explicit Patterns(const WebModule *webModule) noexcept
        : texts_(static_cast<char **>(tavMalloc((static_cast<size_t>(tavListGetCount(webModule->uris)) + 1) * sizeof(char *)))) {
        for (const char *uri : TavListRange<const char>(texts_ ? webModule->uris : nullptr)) {
            texts_[count_] = URIMatcherMakePattern(webModule->contextRoot, uri);
            if (!texts_[count_++]) complete_ = false;
        }
    }
    ~Patterns() noexcept {
        for (int i = 0; i < count_; i++) tavFree(texts_[i]);
        tavFree(texts_);
    }
    Patterns(const Patterns &) = delete;
    Patterns &operator=(const Patterns &) = delete;
    bool complete() const noexcept { return texts_ && complete_; }
    const char *const *texts() const noexcept { return texts_; }
    int count() const noexcept { return count_; }

private:
    char **texts_;
    int count_ = 0;
    bool complete_ = true;
};

} // namespace

// ---- life ----

void webModuleFree(WebModule *webModule) noexcept {
    if (!webModule) return;
    HttpAffinityPolicy *policy = webModule->hap.exchange(nullptr);
    if (policy) rmRetirePolicy(webModule->rm, policy);
    tavFree(webModule->name);
    tavFree(webModule->contextRoot);
    tavFree(webModule->sessionAffinityCookies);
    tavListDestroy(webModule->uris);
    tavListDestroy(webModule->clusters);
    tavListDestroy(webModule->vHostGroups);
    tavDestroyRecord(webModule);
}

WebModule *rmWebModuleCreate(Application *application, const char *name, int restVersion) noexcept {
    if (!application || !name) return nullptr;
    auto *webModule = tavNewRecord<WebModule>();
    if (!webModule) return nullptr;
    webModule->rm = application->rm;
    webModule->name = tavStrdup(name);
    webModule->uris = tavListCreate(freeText);
    webModule->clusters = tavListCreate(freeText);
    webModule->vHostGroups = tavListCreate(freeText);
    webModule->sslMapMode = NullMapMode;
    webModule->fileServingEnabled = TRUE;
    webModule->restVersion = restVersion;
    webModule->hint.appNameHash = tavHashCompute(application->simpleName);
    if (webModule->name && webModule->uris && webModule->clusters && webModule->vHostGroups && appAddWebModule(application, webModule))
        return webModule;
    webModuleFree(webModule);
    return nullptr;
}

Boolean rmWebModuleInit(WebModule *webModule) noexcept {
    if (!webModule) return FALSE;
    return webModule->restVersion < 0 ? rmWebModuleAddUri(webModule, "*") : TRUE;
}

void rmWebModuleDelete(WebModule *webModule) noexcept {
    if (!webModule) return;
    TR_DEBUG(webModule->rm->trCtx, webModule->rm->debugCtl, "rmWebModuleDelete: %s\n", webModule->name);
    tavListRemove(webModule->application->webModules, webModule->ele);
    webModuleFree(webModule);
}

// ---- properties ----

Boolean rmWebModuleSetPropStr(WebModule *webModule, const char *name, const char *value) noexcept {
    if (!webModule) return FALSE;
    if (tavStrEquals(name, "contextRoot")) return tavReplaceStr(&webModule->contextRoot, value);
    if (tavStrEquals(name, "protocolMap")) return setProtocolMap(webModule, value);
    if (tavStrEquals(name, "sessionAffinityCookies")) return wmSetSessionAffinityCookies(webModule, value);
    return FALSE;
}

Boolean rmWebModuleSetPropInt(WebModule *, const char *, int) noexcept { return FALSE; }

// "routingEnabled" is among the names that are not taken, on purpose.
Boolean rmWebModuleSetPropBool(WebModule *webModule, const char *name, Boolean value) noexcept {
    if (!webModule || !tavStrEquals(name, "fileServingEnabled")) return FALSE;
    rmWebModuleSetFileServingEnabled(webModule, value);
    return TRUE;
}

Boolean rmWebModuleAddUri(WebModule *webModule, const char *uri) noexcept {
    if (!webModule || !uri) return FALSE;
    char *copy = tavStrdup(uri);
    return copy && tavListAddTail(webModule->uris, copy); // a failed add has freed the copy
}

const char *rmWebModuleGetName(const WebModule *webModule) noexcept { return wmGetName(webModule); }

const char *rmWebModuleGetAppSimpleName(const WebModule *webModule) noexcept {
    return rmApplicationGetSimpleName(wmGetApplication(webModule));
}

TavSSLMapMode rmWebModuleGetSSLMapMode(const WebModule *webModule) noexcept { return webModule ? webModule->sslMapMode : NullMapMode; }

void rmWebModuleSetFileServingEnabled(WebModule *webModule, Boolean enabled) noexcept {
    if (webModule) webModule->fileServingEnabled = enabled;
}

Boolean rmWebModuleGetFileServingEnabled(const WebModule *webModule) noexcept { return webModule && webModule->fileServingEnabled; }

const char *wmGetName(const WebModule *webModule) noexcept { return webModule ? webModule->name : nullptr; }
const char *wmGetContextRoot(const WebModule *webModule) noexcept { return webModule ? webModule->contextRoot : nullptr; }
Application *wmGetApplication(const WebModule *webModule) noexcept { return webModule ? webModule->application : nullptr; }
TavList *wmGetClusters(const WebModule *webModule) noexcept { return webModule ? webModule->clusters : nullptr; }

const char *wmGetSessionAffinityCookies(const WebModule *webModule) noexcept {
    return webModule ? webModule->sessionAffinityCookies : nullptr;
}

Boolean wmSetSessionAffinityCookies(WebModule *webModule, const char *cookies) noexcept {
    return webModule && tavReplaceStr(&webModule->sessionAffinityCookies, cookies);
}

HttpAffinityPolicy *wmGetHttpAffinityPolicy(const WebModule *webModule) noexcept {
    return webModule ? webModule->hap.load(std::memory_order_acquire) : nullptr;
}

void wmSetHttpAffinityPolicy(WebModule *webModule, HttpAffinityPolicy *policy) noexcept {
    if (!webModule) return;
    HttpAffinityPolicy *old = webModule->hap.exchange(policy, std::memory_order_acq_rel);
    if (old != policy) rmRetirePolicy(webModule->rm, old);
}

// ---- links ----

// TRUE when it is in the list afterwards. `name` may be null: nothing to do.
static Boolean addName(RequestMapper *rm, TavList *names, const char *name) noexcept {
    TavLockGuard guard(rm->lock, "addName");
    return !name || tavListAddUniqueStr(names, name) || tavListFindStr(names, name);
}

Boolean rmLinkVHostAndWebModule(VHostMatcher *vhostMatcher, WebModule *webModule, Boolean add) noexcept {
    if (!vhostMatcher || !webModule) return FALSE;
    if (!add) return TRUE; // the snapshot is rebuilt instead
    Patterns patterns(webModule);
    if (!patterns.complete()) return FALSE;
    TR_DEBUG(webModule->rm->trCtx, webModule->rm->debugCtl, "rmLinkVHostAndWebModule: %d patterns of %s\n", patterns.count(),
             webModule->name);
    if (patterns.count() == 0) return TRUE;
    // The name is only told; where the patterns then find no memory, the link is tried again or the snapshot is given up.
    return addName(webModule->rm, webModule->vHostGroups, getVHostMatcherName(vhostMatcher)) &&
           vhostMatcherPutPatterns(vhostMatcher, patterns.texts(), patterns.count(), webModule);
}

Boolean rmLinkClusterToWebModule(const char *clusterName, WebModule *webModule, Boolean add) noexcept {
    if (!clusterName || !webModule) return FALSE;
    if (add) return addName(webModule->rm, webModule->clusters, clusterName);
    TavLockGuard guard(webModule->rm->lock, "rmLinkClusterToWebModule");
    tavListFindAndRemoveStr(webModule->clusters, clusterName);
    return TRUE;
}
