// Object handlers of applications, web modules, uris and virtual hosts, and the links of web modules.
#include <cstring>

#include "VHostMatcher/VHostMatcher.h"
#include "tavHandlers.h"
#include "tavLibUtil/tavObjectName.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

// A host:port pair until its group takes it.
struct VHostObject {
    VHostMatcher *group; // borrowed
    char *host;
    int port;
};

WebModule *webModuleOf(void *object) noexcept { return static_cast<WebModule *>(object); }

TargetSelector *selectorOf(const WebModule *webModule) noexcept {
    return tavRoutingInfoGetTargetSelector(rmApplicationGetRoutingInfo(wmGetApplication(webModule)));
}

VirtualCluster *virtualClusterOf(const WebModule *webModule) noexcept {
    return tsFindVirtualCluster(selectorOf(webModule), wmGetName(webModule));
}

} // namespace

// ---- applications and web modules ----

Object *tavApplicationCreate(void *snapshot, const char *name, TavConnector *) noexcept {
    return rmApplicationCreate(static_cast<TavRoutingInfo *>(snapshot)->requestMapper, name);
}

Object *tavWebModuleCreate(void *application, const char *name, TavConnector *connector) noexcept {
    const int restVersion = tavClampInt(tavConnectorGetRestVersion(connector));
    WebModule *webModule = rmWebModuleCreate(static_cast<Application *>(application), name, restVersion);
    if (!webModule || tsVirtualClusterCreate(selectorOf(webModule), webModule, name)) return webModule;
    rmWebModuleDelete(webModule);
    return nullptr;
}

Boolean tavWebModuleSetPropStr(Object *webModule, const char *name, const char *value) noexcept {
    return rmWebModuleSetPropStr(webModuleOf(webModule), name, value);
}

Boolean tavWebModuleSetPropInt(Object *webModule, const char *name, int value) noexcept {
    return rmWebModuleSetPropInt(webModuleOf(webModule), name, value);
}

Boolean tavWebModuleSetPropBool(Object *webModule, const char *name, tav_boolean value) noexcept {
    return rmWebModuleSetPropBool(webModuleOf(webModule), name, value);
}

Boolean tavWebModuleInit(Object *webModule) noexcept { return rmWebModuleInit(webModuleOf(webModule)); }

void tavWebModuleDelete(Object *webModule) noexcept {
    tsVirtualClusterDelete(virtualClusterOf(webModuleOf(webModule)));
    rmWebModuleDelete(webModuleOf(webModule));
}

// A uri is a pattern of its web module: there is no object but the module itself.
Object *tavUriCreate(void *webModule, const char *name, TavConnector *connector) noexcept {
    const char *unescaped = tavConnectorGetRestVersion(connector) < 0 ? std::strstr(name, "/uri/") : nullptr;
    if (unescaped) return rmWebModuleAddUri(webModuleOf(webModule), unescaped + std::strlen("/uri/")) ? webModule : nullptr;
    TavText pattern(tavNameGetValue(name, FALSE));
    return pattern && rmWebModuleAddUri(webModuleOf(webModule), pattern.get()) ? webModule : nullptr;
}

// ---- virtual hosts ----

Object *tavVHostGroupCreate(void *snapshot, const char *name, TavConnector *) noexcept {
    return createVHostMatcher(static_cast<TavRoutingInfo *>(snapshot), name);
}

Boolean tavVHostGroupInit(Object *object) noexcept {
    auto *group = static_cast<VHostMatcher *>(object);
    return rmAddVHostMatcher(vhostMatcherGetRoutingInfo(group)->requestMapper, group);
}

void tavVHostGroupRelease(Object *object) noexcept {
    auto *group = static_cast<VHostMatcher *>(object);
    if (!group->owner.owner) deleteVHostMatcher(group);
}

Object *tavVHostCreate(void *group, const char *, TavConnector *) noexcept {
    return tavNewRecord<VHostObject>(static_cast<VHostMatcher *>(group), nullptr, -1);
}

// The port as text: "*" is any.
Boolean tavVHostSetPropStr(Object *object, const char *name, const char *value) noexcept {
    auto *vHost = static_cast<VHostObject *>(object);
    if (tavStrEquals(name, "host")) return tavReplaceStr(&vHost->host, value);
    if (!tavStrEquals(name, "port")) return FALSE;
    vHost->port = tavStrEquals(value, "*") ? -1 : tavParseInt(value);
    return TRUE;
}

Boolean tavVHostSetPropInt(Object *object, const char *name, int value) noexcept {
    if (!tavStrEquals(name, "port")) return FALSE;
    static_cast<VHostObject *>(object)->port = value;
    return TRUE;
}

Boolean tavVHostSetPropBool(Object *, const char *, tav_boolean) noexcept { return FALSE; }

Boolean tavVHostInit(Object *object) noexcept {
    const auto *vHost = static_cast<VHostObject *>(object);
    putVHost(vHost->group, vHost->host, vHost->port);
    return vhostMatcherIsComplete(vHost->group);
}

void tavVHostDelete(Object *object) noexcept {
    auto *vHost = static_cast<VHostObject *>(object);
    tavFree(vHost->host);
    tavDestroyRecord(vHost);
}

// ---- links ----

Boolean tavLinkClusterToWebModule(Object *object, Object *webModule, Boolean add) noexcept {
    auto *cluster = static_cast<Cluster *>(object);
    const Boolean linked = tsLinkVirtualClusterToCluster(virtualClusterOf(webModuleOf(webModule)), cluster, add);
    return rmLinkClusterToWebModule(tsClusterGetName(cluster), webModuleOf(webModule), add) && linked;
}

Boolean tavLinkVHostAndWebModule(Object *group, Object *webModule, Boolean add) noexcept {
    return rmLinkVHostAndWebModule(static_cast<VHostMatcher *>(group), webModuleOf(webModule), add);
}

Boolean tavLinkServerToWebModule(Object *server, Object *webModule, Boolean add) noexcept {
    return tsLinkServerToWebModule(static_cast<TargetServer *>(server), webModuleOf(webModule), add);
}
