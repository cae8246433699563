#include "selectorFakes.h"

#include "VHostMatcher/VHostMatcher.h"
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavTargetSelector/tavConnectorForSelector.h"
#include "tavURLMatcher/tavURLMatcher.h"

// ---- instance ----
TrMgr *getTavTrMgr(Tav *tav) noexcept { return tav->mgr; }
EnvCallBacks *tavGetEnvCallBacks(Tav *tav) noexcept { return &tav->env; }
TavSSLMapMode tavGetSSLMapMode(Tav *) noexcept { return NullMapMode; }
TrContext *GET_TRCTX() noexcept { return nullptr; }
TrRecord *GET_TRREC() noexcept { return nullptr; }
char *tavCopyProperty(Tav *, const char *) noexcept { return nullptr; }
Boolean tavSelectsEndpointByVHost(Tav *) noexcept { return FALSE; }
Boolean tavIsOwnServerPath(Tav *, const char *) noexcept { return FALSE; }
Boolean tavSetServerCustomProperty(Tav *, const char *, const char *) noexcept { return FALSE; }
Tav *tavRoutingInfoGetTav(TavRoutingInfo *ri) noexcept { return ri->tav; }
RequestMapper *tavRoutingInfoGetRequestMapper(TavRoutingInfo *) noexcept { return nullptr; }
void tavLockPartitionData(Tav *, const char *) noexcept {}
void tavUnlockPartitionData(Tav *) noexcept {}
Boolean tavHasPartitionData(Tav *) noexcept { return FALSE; }
PartitionIDData *tavGetPartitionData(Tav *, const char *) noexcept { return nullptr; }
EndPointRef *tavEndPointRefObtain(Tav *, TavTargetEndpoint *) noexcept { return nullptr; }
void tavEndPointRefRelease(Tav *, EndPointRef *) noexcept {}
void tavEndPointRefDetach(Tav *, EndPointRef *) noexcept {}
EnvTargetEndpoint *tavEndPointRefGet(const EndPointRef *) noexcept { return nullptr; }

// ---- other modules ----
void tavConnectorObtainRef(TavConnector *, const char *) noexcept {}
void tavConnectorReleaseRef(TavConnector *, const char *) noexcept {}
void tavConnectorPostRoutingChange(TavConnector *, const char *, Boolean, Boolean) noexcept {}
void hmLinkServerToHealthPolicy(Tav *, TargetServer *, TavList *, HealthPolicy *, Boolean) noexcept {}
void hmHealthPolicyLinkDelete(void *) noexcept {}
void hmCheckHealthPolicies(Tav *, TavHttpContext *, TargetServer *, TavList *, TavTime, int) noexcept {}
URLMatcher *rmGetURLMatcher(const RequestMapper *) noexcept { return nullptr; }
VHostMatcher *getVHostMatcher(const URLMatcher *, const char *) noexcept { return nullptr; }
Boolean matchVHost(const VHostMatcher *, const char *, int, TavHttpContext *) noexcept { return FALSE; }
const char *rmWebModuleGetName(const WebModule *webModule) noexcept { return webModule->name; }
const char *rmWebModuleGetAppSimpleName(const WebModule *) noexcept { return benchApplication; }
TavSSLMapMode rmWebModuleGetSSLMapMode(const WebModule *) noexcept { return NullMapMode; }
Application *wmGetApplication(const WebModule *) noexcept { return nullptr; }
HttpAffinityPolicy *wmGetHttpAffinityPolicy(const WebModule *) noexcept { return nullptr; }
void wmSetHttpAffinityPolicy(WebModule *, HttpAffinityPolicy *) noexcept {}
const char *wmGetSessionAffinityCookies(const WebModule *) noexcept { return nullptr; }
const char *appGetSessionAffinityCookies(const Application *) noexcept { return nullptr; }

// ---- request context ----
TrContext *tavHttpContextGetTrContext(TavHttpContext *ctx) noexcept { return trMgrGetDefaultContext(ctx->tav->mgr); }
EnvHttpContext *tavHttpContextGetEnvContext(TavHttpContext *ctx) noexcept { return reinterpret_cast<EnvHttpContext *>(ctx); }
const char *tavHttpContextGetProtocol(TavHttpContext *) noexcept { return "http"; }
const char *tavHttpContextGetURL(TavHttpContext *) noexcept { return nullptr; }
const char *tavHttpContextGetModuleName(TavHttpContext *ctx) noexcept { return ctx->moduleName; }
const char *tavHttpContextGetApplicationName(TavHttpContext *ctx) noexcept { return ctx->applicationName; }
const char *tavHttpContextGetMatchedVHostName(TavHttpContext *) noexcept { return nullptr; }
TavSSLMapMode tavHttpContextGetSSLMapMode(TavHttpContext *) noexcept { return NullMapMode; }
int tavHttpContextGetNumOfResponseTimeouts(TavHttpContext *) noexcept { return 0; }
Boolean tavHttpContextSetReject(TavHttpContext *, int, const char *) noexcept { return TRUE; }
void tavHttpContextSetAffinityPolicy(TavHttpContext *, HttpAffinityPolicy *) noexcept {}
void tavHttpContextSetPerformedLoadBalancing(TavHttpContext *ctx, Boolean performed) noexcept { ctx->loadBalanced = performed; }
void tavHttpContextBreakAffinity(TavHttpContext *, const char *) noexcept {}
Boolean tavHttpContextIsFailedServerApp(TavHttpContext *, const TargetServerApplication *) noexcept { return FALSE; }
TsModuleHint *tavHttpContextGetModuleHint(TavHttpContext *) noexcept { return nullptr; }
TsTargetInfo *tavHttpContextGetTargetInfo(TavHttpContext *ctx) noexcept { return &ctx->targetInfo; }
void tavHttpContextSetMyTargetInfo(TavHttpContext *ctx, TavTargetEndpoint *endpoint, TargetServerApplication *sapp) noexcept {
    ctx->endpoint = endpoint;
    ctx->sapp = sapp;
}
void tavHttpContextResetMyTargetInfo(TavHttpContext *ctx) noexcept { tavHttpContextSetMyTargetInfo(ctx, nullptr, nullptr); }
TargetServerApplication *tavHttpContextGetMyTargetServerApplication(TavHttpContext *ctx) noexcept { return ctx->sapp; }
TavTargetEndpoint *tavHttpContextWaitForRollout(TavHttpContext *) noexcept { return nullptr; }
