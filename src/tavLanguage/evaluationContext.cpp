// What one evaluation of a rule set knows about its request.
#include <cstring>

#include "tavLanguage/tavExpression.h"
#include "tavUtil/tavMemory.h"

namespace {

void destroyPropertyWithValue(void *object) noexcept {
    auto *prop = static_cast<EvaluationContextProp *>(object);
    tavFree(prop->val);
    evaluationContextPropDestroy(prop);
}

EvaluationContextProp *appendProperty(EvaluationContext *ctx, const char *name) noexcept {
    if (!ctx->properties) ctx->properties = tavListCreate(destroyPropertyWithValue);
    auto *prop = ctx->properties ? tavNewRecord<EvaluationContextProp>() : nullptr;
    if (!prop) return nullptr;
    prop->name = tavStrdup(name);
    if (!prop->name) {
        tavFree(prop);
        return nullptr;
    }
    return tavListAddTail(ctx->properties, prop) ? prop : nullptr;
}

} // namespace

EvaluationContext *evaluationContextCreate(TrContext *trCtx, void *object) noexcept {
    auto *ctx = static_cast<EvaluationContext *>(tavMalloc(sizeof(EvaluationContext)));
    if (!ctx) return nullptr;
    TrMgr *mgr = trCtx ? trContextGetMgr(trCtx) : nullptr;
    evaluationContextInit(ctx, trCtx, mgr ? trMgrGetRecord(mgr, "http.request.rules.process") : nullptr, object);
    return ctx;
}

void evaluationContextFree(EvaluationContext *ctx) noexcept {
    if (!ctx) return;
    evaluationContextClear(ctx);
    tavFree(ctx);
}

void evaluationContextInit(EvaluationContext *ctx, TrContext *trCtx, TrRecord *debugRecord, void *object) noexcept {
    ctx->object = object;
    ctx->properties = nullptr;
    ctx->trCtx = trCtx;
    ctx->trRec_Debug = debugRecord;
    ctx->scratchUsed = 0;
}

void evaluationContextClear(EvaluationContext *ctx) noexcept {
    tavListDestroy(ctx->properties);
    ctx->properties = nullptr;
}

void *evaluationContextGetObject(const EvaluationContext *ctx) noexcept { return ctx ? ctx->object : nullptr; }
TrContext *evaluationContextGetTrContext(const EvaluationContext *ctx) noexcept { return ctx ? ctx->trCtx : nullptr; }
TrRecord *evaluationContextGetTrRecord(const EvaluationContext *ctx) noexcept { return ctx ? ctx->trRec_Debug : nullptr; }

EvaluationContextProp *evaluationContextSetProp(EvaluationContext *ctx, const char *name, void *val) noexcept {
    if (!ctx || !name) return nullptr;
    const TavListEle *found = evaluationContextFindProp(ctx, name);
    auto *prop = found ? static_cast<EvaluationContextProp *>(found->object) : appendProperty(ctx, name);
    if (!prop) return nullptr;
    if (prop->val != val) tavFree(prop->val);
    prop->val = val;
    return prop;
}

TavListEle *evaluationContextFindProp(const EvaluationContext *ctx, const char *name) noexcept {
    TavListEle *ele = ctx && ctx->properties ? tavListGetHead(ctx->properties) : nullptr;
    while (ele && name && std::strcmp(evaluationContextPropGetName(static_cast<EvaluationContextProp *>(ele->object)), name) != 0) {
        ele = ele->next;
    }
    return ele;
}

void *evaluationContextFindPropVal(const EvaluationContext *ctx, const char *name) noexcept {
    const TavListEle *ele = evaluationContextFindProp(ctx, name);
    return ele ? evaluationContextPropGetValue(static_cast<EvaluationContextProp *>(ele->object)) : nullptr;
}

const char *evaluationContextPropGetName(const EvaluationContextProp *prop) noexcept { return prop ? prop->name : nullptr; }
void *evaluationContextPropGetValue(const EvaluationContextProp *prop) noexcept { return prop ? prop->val : nullptr; }

void evaluationContextPropDestroy(EvaluationContextProp *prop) noexcept {
    if (!prop) return;
    tavFree(prop->name);
    tavFree(prop);
}
