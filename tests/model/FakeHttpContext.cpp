#include "FakeHttpContext.h"

#include <algorithm>

#include "tavUtil/tavMemory.h"

std::vector<std::string> fakeTrace;

namespace {

int print(const TrContext *ctx, va_list args) {
    char text[1024];
    const char *format = trContextGetFormat(ctx);
    vsnprintf(text, sizeof text, format ? format : "(no format)", args);
    fakeTrace.push_back(text);
    return 0;
}

// Texts come in a buffer that the next getter overwrites, as a host may do.
char *lend(EnvHttpContext *ctx, const FakeText &text) {
    if (!text) return nullptr;
    ctx->lent = *text;
    return ctx->lent.data();
}

char *lendFrom(EnvHttpContext *ctx, const std::map<std::string, std::string> &texts, const char *name) {
    auto found = texts.find(name);
    return found == texts.end() ? nullptr : lend(ctx, found->second);
}

EnvCallBacks callbacks() {
    EnvCallBacks env{};
    env.version = TAV_ENV_VERSION;
    env.http.request.getVirtualHost = [](EnvHttpContext *ctx) { return lend(ctx, ctx->host); };
    env.http.request.getVirtualPort = [](EnvHttpContext *ctx) { return ctx->port; };
    env.http.request.getPath = [](EnvHttpContext *ctx) { return lend(ctx, ctx->path); };
    env.http.request.getProtocol = [](EnvHttpContext *ctx) { return lend(ctx, ctx->protocol); };
    env.http.request.getHeaderValue = [](EnvHttpContext *ctx, char *name) { return lendFrom(ctx, ctx->headers, name); };
    env.http.request.getCookieValue = [](EnvHttpContext *ctx, char *name) { return lendFrom(ctx, ctx->cookies, name); };
    return env;
}

// Stores the text unless this copy is the one that fails.
Boolean copy(TavHttpContext *ctx, FakeText &field, const char *text) {
    if (ctx->copies++ == ctx->copyFails) return FALSE;
    field = fakeText(text);
    return TRUE;
}

} // namespace

// ---- fixture ----

void ModelTest::SetUp() {
    fakeTrace.clear();
    before_ = tavGetMemCount();
    tav.env = callbacks();
    tav.mgr = trMgrCreate(fopen(TAV_SOURCE_DIR "/share/tav-trace.xml", "r"), TRUE);
    ASSERT_TRUE(tav.mgr);
    trMgrSetPrintf(tav.mgr, print);
    traceAt(":NOTICE");
    ri.tav = &tav;
}

void ModelTest::TearDown() {
    trMgrDelete(tav.mgr);
    trPurgeDeathRow();
    EXPECT_EQ(tavGetMemCount(), before_);
}

void ModelTest::traceAt(const char *spec) {
    fakeTrace.clear();
    trContextSetSpec(trMgrGetDefaultContext(tav.mgr), trSpecCreate(tav.mgr, spec));
}

bool ModelTest::traced(const std::string &text) const { return std::find(fakeTrace.begin(), fakeTrace.end(), text) != fakeTrace.end(); }

// ---- instance and snapshot ----

TrMgr *getTavTrMgr(Tav *tav) noexcept { return tav->mgr; }
TrMgr *tavGetTrMgr(Tav *tav) noexcept { return tav->mgr; }
TrContext *tavGetTrContext(Tav *tav) noexcept { return trMgrGetDefaultContext(tav->mgr); }
EnvCallBacks *tavGetEnvCallBacks(Tav *tav) noexcept { return &tav->env; }
Language *tavGetHttpLanguage(Tav *tav) noexcept { return tav->httpLanguage; }
TavSSLMapMode tavGetSSLMapMode(Tav *tav) noexcept { return tav->sslMapMode; }
TrContext *GET_TRCTX() noexcept { return nullptr; }
TrRecord *GET_TRREC() noexcept { return nullptr; }

char *tavCopyProperty(Tav *tav, const char *name) noexcept {
    auto found = tav->properties.find(name);
    return found == tav->properties.end() ? nullptr : tavStrdup(found->second.c_str());
}

Boolean tavSelectsEndpointByVHost(Tav *tav) noexcept { return tav->properties.contains("enableEndpointSelectionBasedOnMatchedVHost"); }

Tav *tavRoutingInfoGetTav(TavRoutingInfo *ri) noexcept { return ri ? ri->tav : nullptr; }
Boolean tavRoutingInfoIsPublished(TavRoutingInfo *ri) noexcept { return ri->published; }
RequestMapper *tavRoutingInfoGetRequestMapper(TavRoutingInfo *ri) noexcept { return ri ? ri->requestMapper : nullptr; }
TargetSelector *tavRoutingInfoGetTargetSelector(TavRoutingInfo *ri) noexcept { return ri ? ri->targetSelector : nullptr; }

// ---- request context: what the mapper and the rules set ----

Boolean tavHttpContextSetPermit(TavHttpContext *ctx, const char *edition, Boolean sticky) noexcept {
    if (!copy(ctx, ctx->editionName, edition)) return FALSE;
    ctx->action = PERMIT;
    ctx->sticky = sticky;
    return TRUE;
}

Boolean tavHttpContextSetReject(TavHttpContext *ctx, int code, const char *text) noexcept {
    ctx->action = REJECT;
    ctx->errorCode = code;
    return copy(ctx, ctx->errorMsg, text);
}

Boolean tavHttpContextSetRedirect(TavHttpContext *ctx, const char *url) noexcept {
    if (!copy(ctx, ctx->redirectURL, url)) return FALSE;
    ctx->action = REDIRECT;
    return TRUE;
}

Boolean tavHttpContextSetApplicationName(TavHttpContext *ctx, const char *name) noexcept { return copy(ctx, ctx->applicationName, name); }
Boolean tavHttpContextSetModuleName(TavHttpContext *ctx, const char *name) noexcept { return copy(ctx, ctx->moduleName, name); }
void tavHttpContextSetModuleHint(TavHttpContext *ctx, TsModuleHint *hint) noexcept { ctx->moduleHint = hint; }
TsModuleHint *tavHttpContextGetModuleHint(TavHttpContext *ctx) noexcept { return ctx ? ctx->moduleHint : nullptr; }
Boolean tavHttpContextSetEditionName(TavHttpContext *ctx, const char *name) noexcept { return copy(ctx, ctx->editionName, name); }
Boolean tavHttpContextSetContextRoot(TavHttpContext *ctx, const char *root) noexcept { return copy(ctx, ctx->contextRoot, root); }

Boolean tavHttpContextSetMatchedVHostName(TavHttpContext *ctx, const char *name) noexcept {
    if (ctx) ctx->vHostName = fakeText(name);
    return TRUE;
}

// ---- request context: getters ----

Tav *tavHttpContextGetTav(TavHttpContext *ctx) noexcept { return ctx->tav; }
TrContext *tavHttpContextGetTrContext(TavHttpContext *ctx) noexcept { return ctx ? ctx->trContext : nullptr; }
EnvHttpContext *tavHttpContextGetEnvContext(TavHttpContext *ctx) noexcept { return &ctx->request; }
const char *tavHttpContextGetProtocol(TavHttpContext *ctx) noexcept { return fakeChars(ctx->request.protocol); }
const char *tavHttpContextGetVirtualHost(TavHttpContext *ctx) noexcept { return fakeChars(ctx->request.host); }
int tavHttpContextGetVirtualPort(TavHttpContext *ctx) noexcept { return ctx->request.port; }
const char *tavHttpContextGetPath(TavHttpContext *ctx) noexcept { return fakeChars(ctx->request.path); }
const char *tavHttpContextGetURL(TavHttpContext *ctx) noexcept { return ctx ? "http://fake/" : nullptr; }
const char *tavHttpContextGetApplicationName(TavHttpContext *ctx) noexcept { return fakeChars(ctx->applicationName); }
const char *tavHttpContextGetModuleName(TavHttpContext *ctx) noexcept { return fakeChars(ctx->moduleName); }
const char *tavHttpContextGetEditionName(TavHttpContext *ctx) noexcept { return fakeChars(ctx->editionName); }
const char *tavHttpContextGetContextRoot(TavHttpContext *ctx) noexcept { return fakeChars(ctx->contextRoot); }
const char *tavHttpContextGetMatchedVHostName(TavHttpContext *ctx) noexcept { return fakeChars(ctx->vHostName); }
TavAction tavHttpContextGetAction(TavHttpContext *ctx) noexcept { return ctx ? ctx->action : REJECT; }
int tavHttpContextGetErrorCode(TavHttpContext *ctx) noexcept { return ctx ? ctx->errorCode : 500; }
TavSSLMapMode tavHttpContextGetSSLMapMode(TavHttpContext *ctx) noexcept { return ctx->sslMapMode; }
int tavHttpContextGetNumOfResponseTimeouts(TavHttpContext *ctx) noexcept { return ctx->responseTimeouts; }
Boolean tavHttpContextGetPerformedLoadBalancing(TavHttpContext *ctx) noexcept { return ctx->performedLoadBalancing; }

// ---- request context: what the selector sets ----

void tavHttpContextSetSSLMapMode(TavHttpContext *ctx, TavSSLMapMode mode) noexcept { ctx->sslMapMode = mode; }
void tavHttpContextSetAffinityPolicy(TavHttpContext *ctx, HttpAffinityPolicy *policy) noexcept { ctx->policy = policy; }
TsTargetInfo *tavHttpContextGetTargetInfo(TavHttpContext *ctx) noexcept { return ctx ? &ctx->targetInfo : nullptr; }

void tavHttpContextSetMyTargetInfo(TavHttpContext *ctx, TavTargetEndpoint *endpoint, TargetServerApplication *sapp) noexcept {
    ctx->endpoint = endpoint;
    ctx->sapp = sapp;
}

void tavHttpContextResetMyTargetInfo(TavHttpContext *ctx) noexcept { tavHttpContextSetMyTargetInfo(ctx, nullptr, nullptr); }
TavTargetEndpoint *tavHttpContextGetMyTargetEndPoint(TavHttpContext *ctx) noexcept { return ctx->endpoint; }
TargetServerApplication *tavHttpContextGetMyTargetServerApplication(TavHttpContext *ctx) noexcept { return ctx->sapp; }
void tavHttpContextSetPerformedLoadBalancing(TavHttpContext *ctx, Boolean performed) noexcept { ctx->performedLoadBalancing = performed; }
void tavHttpContextBreakAffinity(TavHttpContext *ctx) noexcept { ctx->brokenAffinity++; }

Boolean tavHttpContextIsFailedServerApp(TavHttpContext *ctx, const TargetServerApplication *sapp) noexcept {
    return ctx->failedServerApps.contains(sapp);
}

TavTargetEndpoint *tavHttpContextWaitForRollout(TavHttpContext *) noexcept { return nullptr; }
