#include "FakeHttpContext.h"

#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavUtil/tavMemory.h"

namespace {

Boolean copy(Text &field, const char *text) {
    field = textOf(text);
    return TRUE;
}

Expression *createOperand(Operand *, OperandContext *) { return static_cast<Expression *>(tavMalloc(sizeof(Expression))); }

void uriValue(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) {
    const Text &path = static_cast<TavHttpContext *>(evaluationContextGetObject(evalCtx))->request.path;
    path ? expressionValueSetText(result, evalCtx, path->c_str()) : expressionValueSetMissing(result);
}

} // namespace

RulesTest::RulesTest() {
    tav.language = langCreate(nullptr, nullptr);
    langRegisterCommonOperands(tav.language);
    Operand *uri =
        operandCreate("uri", 0, nullptr, 0, nullptr, createOperand, nullptr, operandEvaluateAsCell<uriValue>, nullptr, 1, EXPR_STRING);
    operandSetEvaluateInto(uri, uriValue);
    langRegisterOperand(tav.language, uri);
    langRegisterCommonOperators(tav.language);
}

RulesTest::~RulesTest() { langFree(tav.language); }

TavHttpContext RulesTest::request(const char *path) {
    TavHttpContext ctx;
    ctx.tav = &tav;
    ctx.trContext = trMgrGetDefaultContext(tav.mgr);
    ctx.request.path = textOf(path);
    return ctx;
}

// ---- request context: what the mapper and the rules set ----

Boolean tavHttpContextSetPermit(TavHttpContext *ctx, const char *edition, Boolean sticky) noexcept {
    if (!copy(ctx->editionName, edition)) return FALSE;
    ctx->action = PERMIT;
    ctx->sticky = sticky;
    return TRUE;
}

Boolean tavHttpContextSetReject(TavHttpContext *ctx, int code, const char *text) noexcept {
    ctx->action = REJECT;
    ctx->errorCode = code;
    return copy(ctx->errorMsg, text);
}

Boolean tavHttpContextSetRedirect(TavHttpContext *ctx, const char *url) noexcept {
    if (!copy(ctx->redirectURL, url)) return FALSE;
    ctx->action = REDIRECT;
    return TRUE;
}

Boolean tavHttpContextSetApplicationName(TavHttpContext *ctx, const char *name) noexcept { return copy(ctx->applicationName, name); }
Boolean tavHttpContextSetModuleName(TavHttpContext *ctx, const char *name) noexcept { return copy(ctx->moduleName, name); }
void tavHttpContextSetModuleHint(TavHttpContext *ctx, TsModuleHint *hint) noexcept { ctx->moduleHint = hint; }
void tavHttpContextSetRuleMatch(TavHttpContext *, TavRuleMatch &&) noexcept {}
TsModuleHint *tavHttpContextGetModuleHint(TavHttpContext *ctx) noexcept { return ctx ? ctx->moduleHint : nullptr; }
Boolean tavHttpContextSetEditionName(TavHttpContext *ctx, const char *name) noexcept { return copy(ctx->editionName, name); }
Boolean tavHttpContextSetContextRoot(TavHttpContext *ctx, const char *root) noexcept { return copy(ctx->contextRoot, root); }

Boolean tavHttpContextSetMatchedVHostName(TavHttpContext *ctx, const char *name) noexcept {
    if (ctx) ctx->vHostName = textOf(name);
    return TRUE;
}

// ---- request context: getters ----

Tav *tavHttpContextGetTav(TavHttpContext *ctx) noexcept { return ctx->tav; }
TrContext *tavHttpContextGetTrContext(TavHttpContext *ctx) noexcept { return ctx ? ctx->trContext : nullptr; }
EnvHttpContext *tavHttpContextGetEnvContext(TavHttpContext *ctx) noexcept { return &ctx->request; }
const char *tavHttpContextGetProtocol(TavHttpContext *ctx) noexcept { return chars(ctx->request.protocol); }
const char *tavHttpContextGetVirtualHost(TavHttpContext *ctx) noexcept { return chars(ctx->request.host); }
int tavHttpContextGetVirtualPort(TavHttpContext *ctx) noexcept { return ctx->request.port; }
const char *tavHttpContextGetPath(TavHttpContext *ctx) noexcept { return chars(ctx->request.path); }
const char *tavHttpContextGetURL(TavHttpContext *ctx) noexcept { return ctx ? "http://fake/" : nullptr; }
const char *tavHttpContextGetApplicationName(TavHttpContext *ctx) noexcept { return chars(ctx->applicationName); }
const char *tavHttpContextGetModuleName(TavHttpContext *ctx) noexcept { return chars(ctx->moduleName); }
const char *tavHttpContextGetEditionName(TavHttpContext *ctx) noexcept { return chars(ctx->editionName); }
const char *tavHttpContextGetContextRoot(TavHttpContext *ctx) noexcept { return chars(ctx->contextRoot); }
const char *tavHttpContextGetMatchedVHostName(TavHttpContext *ctx) noexcept { return chars(ctx->vHostName); }
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
void tavHttpContextBreakAffinity(TavHttpContext *ctx, const char *reason) noexcept {
    ctx->brokenAffinity++;
    ctx->breakReason = reason;
}

Boolean tavHttpContextIsFailedServerApp(TavHttpContext *ctx, const TargetServerApplication *sapp) noexcept {
    return ctx->failedServerApps.contains(sapp);
}

TavTargetEndpoint *tavHttpContextWaitForRollout(TavHttpContext *) noexcept { return nullptr; }
