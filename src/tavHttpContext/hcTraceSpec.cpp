// Which trace specification a request has: that of the first request-trace rule that matches it, else the instance's. The choice is made
// for every request, so the usual case, no rule and the same specification as before, changes no shared count.
#include "tavHttpContext/hcInternal.h"
#include "tavRule/tavRule.h"

static void logMatch(TavHttpContext *ctx, const TavRuleEntry *rule) noexcept {
    const TrRecord *rec = ctx->trRecTraceRuleMatches;
    if (!trContextLogEnabled(ctx->trContext, rec)) return;
    const int port = tavHttpContextGetVirtualPort(ctx);
    const char *type = tavOrNull(rule->typeString), *expression = tavOrNull(rule->expressionString);
    const char *host = tavOrNull(tavHttpContextGetVirtualHost(ctx)), *path = tavOrNull(tavHttpContextGetPath(ctx));
    if (trRecordGetFormat(rec)) // the catalogue's text takes the same six
        trContextLog(ctx->trContext, rec, rule->order, type, expression, host, port, path);
    else
        trContextDebug(ctx->trContext, rec, "initRequestTraceSpec matched rule #%d, type=%s, expr='%s', host=%s, port=%d, path=%s\n",
                       rule->order, type, expression, host, port, path);
}

// The match pins the rule: the configuration may replace it meanwhile.
static bool useMatchingRule(TavHttpContext *ctx) noexcept {
    TavRules *rules = tavGetRequestTraceRules(ctx->tav);
    if (!rules || tavRulesGetCount(rules) == 0) return false;
    TavRuleMatch match = tavRulesMatch(ctx->trContext, rules, ctx);
    const TavRuleEntry *rule = match.entry();
    if (!rule || !rule->spec) return false;
    if (trContextPeekSpec(ctx->trContext) != rule->spec) trContextSetSpec(ctx->trContext, trSpecRefObtain(rule->spec));
    logMatch(ctx, rule);
    return true;
}

static void useInstanceSpec(TavHttpContext *ctx) noexcept {
    Boolean isCustom = FALSE;
    // An equal pointer is the same specification: the context's own reference keeps its address from being used again.
    if (tavPeekRequestTraceSpec(ctx->tav, &isCustom) != trContextPeekSpec(ctx->trContext)) {
        TrSpec *spec = tavObtainRequestTraceSpec(ctx->tav, &isCustom);
        if (spec) trContextSetSpec(ctx->trContext, spec);
    }
    if (isCustom)
        TR_DEBUG(ctx->trContext, ctx->debugRules, "initRequestTraceSpec tracing with custom property 'DefaultRequestTraceSpec'");
    else
        TR_DEBUG(ctx->trContext, ctx->debugRules, "initRequestTraceSpec tracing with DEFAULT trace spec");
}

void hcInitRequestTraceSpec(TavHttpContext *ctx) noexcept {
    if (!useMatchingRule(ctx)) useInstanceSpec(ctx);
}
