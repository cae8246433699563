// Reading and storing a context's fields. A null context is tolerated everywhere.
#include <cstdio>
#include <utility>

#include "tavHttpContext/hcInternal.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavStringBuffer.h"

// ---- the request's own ----

Tav *tavHttpContextGetTav(TavHttpContext *ctx) noexcept { return ctx ? ctx->tav : nullptr; }
TrContext *tavHttpContextGetTrContext(TavHttpContext *ctx) noexcept { return ctx ? ctx->trContext : nullptr; }
EnvHttpContext *tavHttpContextGetEnvContext(TavHttpContext *ctx) noexcept { return ctx ? ctx->envHttpContext : nullptr; }

const char *tavHttpContextGetProtocol(TavHttpContext *ctx) noexcept {
    return ctx ? hcCall(ctx, hcHost(ctx).request.getProtocol, nullptr) : nullptr;
}

const char *tavHttpContextGetVirtualHost(TavHttpContext *ctx) noexcept {
    return ctx ? hcCall(ctx, hcHost(ctx).request.getVirtualHost, nullptr) : nullptr;
}

int tavHttpContextGetVirtualPort(TavHttpContext *ctx) noexcept { return ctx ? hcCall(ctx, hcHost(ctx).request.getVirtualPort, -1) : -1; }

const char *tavHttpContextGetPath(TavHttpContext *ctx) noexcept {
    return ctx ? hcCall(ctx, hcHost(ctx).request.getPath, nullptr) : nullptr;
}

// The path brings its own "/": the doubled slash is part of the text.
const char *tavHttpContextGetURL(TavHttpContext *ctx) noexcept {
    if (!ctx || ctx->url) return ctx ? ctx->url : nullptr;
    TavStringBufferPtr sb(sbCreate(2048));
    if (!sb) return nullptr;
    sbAdd(sb.get(), tavHttpContextGetProtocol(ctx));
    sbAdd(sb.get(), "://");
    sbAdd(sb.get(), tavHttpContextGetVirtualHost(ctx));
    sbAdd(sb.get(), ":");
    sbAddInt(sb.get(), tavHttpContextGetVirtualPort(ctx));
    sbAdd(sb.get(), "/");
    sbAdd(sb.get(), tavHttpContextGetPath(ctx));
    if (!sb->failed) hcSetText(ctx, &ctx->url, sbStr(sb.get()));
    return ctx->url;
}

// ---- decisions ----

TavAction tavHttpContextGetAction(TavHttpContext *ctx) noexcept { return ctx ? ctx->action : REJECT; }
int tavHttpContextGetErrorCode(TavHttpContext *ctx) noexcept { return ctx ? ctx->errorCode : 500; }
const char *tavHttpContextGetErrorMessage(TavHttpContext *ctx) noexcept { return ctx ? ctx->errorMsg : nullptr; }
const char *tavHttpContextGetRedirectURL(TavHttpContext *ctx) noexcept { return ctx ? ctx->redirectURL : nullptr; }

// ---- why it was decided so ----

void tavHttpContextSetRuleMatch(TavHttpContext *ctx, TavRuleMatch &&match) noexcept {
    if (ctx) ctx->ruleMatch = std::move(match);
}

int tavHttpContextGetRuleOrder(TavHttpContext *ctx) noexcept {
    const TavRuleEntry *rule = ctx ? ctx->ruleMatch.entry() : nullptr;
    return rule ? rule->order : 0;
}

const char *tavHttpContextGetRuleExpression(TavHttpContext *ctx) noexcept {
    const TavRuleEntry *rule = ctx ? ctx->ruleMatch.entry() : nullptr;
    return rule ? rule->expressionString : nullptr;
}

long long tavHttpContextGetConfigVersion(TavHttpContext *ctx) noexcept { return ctx ? ctx->configVersion : -1; }

void tavHttpContextSetAffinityBreakReason(TavHttpContext *ctx, const char *reason) noexcept {
    if (ctx) snprintf(ctx->affinityBreakReason, sizeof ctx->affinityBreakReason, "%s", reason ? reason : "");
}

// A later choice may have gone back to the session's server: the reason of an earlier one is then past.
const char *tavHttpContextGetAffinityBreakReason(TavHttpContext *ctx) noexcept {
    if (!ctx || !*ctx->affinityBreakReason) return nullptr;
    const bool kept = ctx->targetEndpoint && !ctx->performedLoadBalancing;
    return kept ? nullptr : ctx->affinityBreakReason;
}

// ---- names ----

static Boolean setText(TavHttpContext *ctx, char *TavHttpContext::*text, const char *value) noexcept {
    return ctx && hcSetText(ctx, &(ctx->*text), value);
}

Boolean tavHttpContextSetApplicationName(TavHttpContext *ctx, const char *name) noexcept {
    return setText(ctx, &TavHttpContext::applicationName, name);
}
Boolean tavHttpContextSetModuleName(TavHttpContext *ctx, const char *name) noexcept {
    if (ctx) ctx->moduleHint = nullptr;
    return setText(ctx, &TavHttpContext::moduleName, name);
}
void tavHttpContextSetModuleHint(TavHttpContext *ctx, TsModuleHint *hint) noexcept {
    if (ctx) ctx->moduleHint = hint;
}
TsModuleHint *tavHttpContextGetModuleHint(TavHttpContext *ctx) noexcept { return ctx ? ctx->moduleHint : nullptr; }
Boolean tavHttpContextSetEditionName(TavHttpContext *ctx, const char *name) noexcept {
    return setText(ctx, &TavHttpContext::editionName, name);
}
Boolean tavHttpContextSetMatchedVHostName(TavHttpContext *ctx, const char *name) noexcept {
    return setText(ctx, &TavHttpContext::vHostName, name);
}
Boolean tavHttpContextSetContextRoot(TavHttpContext *ctx, const char *contextRoot) noexcept {
    return setText(ctx, &TavHttpContext::contextRoot, contextRoot);
}

const char *tavHttpContextGetApplicationName(TavHttpContext *ctx) noexcept { return ctx ? ctx->applicationName : nullptr; }
const char *tavHttpContextGetModuleName(TavHttpContext *ctx) noexcept { return ctx ? ctx->moduleName : nullptr; }
const char *tavHttpContextGetEditionName(TavHttpContext *ctx) noexcept { return ctx ? ctx->editionName : nullptr; }
const char *tavHttpContextGetMatchedVHostName(TavHttpContext *ctx) noexcept { return ctx ? ctx->vHostName : nullptr; }
const char *tavHttpContextGetContextRoot(TavHttpContext *ctx) noexcept { return ctx ? ctx->contextRoot : nullptr; }

// ---- selection ----

void tavHttpContextSetAffinityPolicy(TavHttpContext *ctx, HttpAffinityPolicy *policy) noexcept {
    if (ctx) ctx->policy = policy;
}
HttpAffinityPolicy *tavHttpContextGetAffinityPolicy(TavHttpContext *ctx) noexcept { return ctx ? ctx->policy : nullptr; }

void tavHttpContextSetMyTargetInfo(TavHttpContext *ctx, TavTargetEndpoint *endpoint, TargetServerApplication *sapp) noexcept {
    if (!ctx) return;
    ctx->targetEndpoint = endpoint;
    ctx->targetServerApplication = sapp;
    ctx->outstandingRequestCountIsIncremented = !ctx->trial;
    tavHttpContextAddPrivateHeaders(ctx);
}

void tavHttpContextResetMyTargetInfo(TavHttpContext *ctx) noexcept {
    if (!ctx) return;
    ctx->targetEndpoint = nullptr;
    ctx->targetServerApplication = nullptr;
    ctx->outstandingRequestCountIsIncremented = FALSE;
}

TavTargetEndpoint *tavHttpContextGetMyTargetEndPoint(TavHttpContext *ctx) noexcept { return ctx ? ctx->targetEndpoint : nullptr; }

TargetServerApplication *tavHttpContextGetMyTargetServerApplication(TavHttpContext *ctx) noexcept {
    return ctx ? ctx->targetServerApplication : nullptr;
}

Boolean tavHttpContextIsTrial(TavHttpContext *ctx) noexcept { return ctx ? ctx->trial : FALSE; }

TsTargetInfo *tavHttpContextGetTargetInfo(TavHttpContext *ctx) noexcept { return ctx ? &ctx->targetInfo : nullptr; }

const char *tavHttpContextGetTargetEndpointServerName(TavHttpContext *ctx) noexcept {
    return ctx && ctx->targetEndpoint ? tavTargetEndpointGetServerName(ctx->targetEndpoint) : nullptr;
}

void tavHttpContextSetSSLMapMode(TavHttpContext *ctx, TavSSLMapMode mode) noexcept {
    if (ctx) ctx->sslMapMode = mode;
}
TavSSLMapMode tavHttpContextGetSSLMapMode(TavHttpContext *ctx) noexcept { return ctx ? ctx->sslMapMode : NullMapMode; }

void tavHttpContextSetPerformedLoadBalancing(TavHttpContext *ctx, Boolean performed) noexcept {
    if (ctx) ctx->performedLoadBalancing = performed;
}
Boolean tavHttpContextGetPerformedLoadBalancing(TavHttpContext *ctx) noexcept { return ctx ? ctx->performedLoadBalancing : FALSE; }

Boolean tavHttpContextIsFailedServerApp(TavHttpContext *ctx, const TargetServerApplication *sapp) noexcept {
    return ctx && tavListFind(ctx->failedServerApps, sapp) != nullptr;
}
