// What an expression knows about its making.
#include "tavLanguage/tavExpression.h"
#include "tavLanguage/tavLanguage.h"
#include "tavUtil/tavMemory.h"

namespace {

void operandContextDestroy(ExpressionContext *ctx) noexcept {
    auto *operandCtx = reinterpret_cast<OperandContext *>(ctx);
    for (int i = 0; operandCtx->actualArgs && i < operandCtx->numActualArgs; ++i) tavFree(operandCtx->actualArgs[i]);
    tavFree(operandCtx->actualArgs);
}

// The inputs belong to the operator's expression.
void operatorContextDestroy(ExpressionContext *ctx) noexcept { tavFree(reinterpret_cast<OperatorContext *>(ctx)->inputs); }

template <typename T>
T **createPointerArray(int count) noexcept {
    return static_cast<T **>(tavMalloc(sizeof(T *) * static_cast<size_t>(count > 0 ? count : 1)));
}

bool copyArguments(OperandContext *ctx, int numArgs, const char *const *args) noexcept {
    ctx->actualArgs = createPointerArray<char>(numArgs);
    if (!ctx->actualArgs) return false;
    ctx->numActualArgs = numArgs;
    for (int i = 0; i < numArgs; ++i) {
        ctx->actualArgs[i] = tavStrdup(args[i]);
        if (args[i] && !ctx->actualArgs[i]) return false;
    }
    return true;
}

} // namespace

ExpressionContext *expressionContextCreate(ExpressionType type, ExpressionContextDestructorFcn destructor, void *passback,
                                           Language *language, int depth, int position, const char *text) noexcept {
    auto *ctx = tavNewRecord<ExpressionContext>();
    if (ctx) *ctx = {type, EXPRCTX_OPERATOR, passback, language, destructor, depth, position, text};
    return ctx;
}

OperandContext *operandContextCreate(ExpressionType expectedType, int depth, Language *language, void *passback, int numArgs,
                                     const char *const *args, int position, const char *text) noexcept {
    auto *ctx = tavNewRecord<OperandContext>();
    if (!ctx) return nullptr;
    ctx->expressionContext = {expectedType, EXPRCTX_OPERAND, passback, language, operandContextDestroy, depth, position, text};
    if (copyArguments(ctx, args && numArgs > 0 ? numArgs : 0, args)) return ctx;
    expressionContextFree(&ctx->expressionContext);
    return nullptr;
}

OperatorContext *operatorContextCreate(Operator *op, int depth, Language *language, void *passback, TavList *inputList, int position,
                                       const char *text) noexcept {
    auto *ctx = tavNewRecord<OperatorContext>();
    if (!ctx) return nullptr;
    const ExpressionType type = op ? op->type : EXPR_UNKNOWN;
    ctx->expressionContext = {type, EXPRCTX_OPERATOR, passback, language, operatorContextDestroy, depth, position, text};
    ctx->operator_ = op;
    ctx->inputs = createPointerArray<Expression>(tavListGetCount(inputList));
    if (!ctx->inputs) {
        tavFree(ctx);
        return nullptr;
    }
    while (!tavListIsEmpty(inputList)) ctx->inputs[ctx->numInputs++] = static_cast<Expression *>(tavListRemoveHead(inputList));
    return ctx;
}

void expressionContextFree(ExpressionContext *ctx) noexcept {
    if (!ctx) return;
    if (ctx->destructor) ctx->destructor(ctx);
    tavFree(ctx);
}

ExpressionType expressionContextGetType(const ExpressionContext *ctx) noexcept { return ctx ? ctx->type : EXPR_UNKNOWN; }
void *expressionContextGetPassback(const ExpressionContext *ctx) noexcept { return ctx ? ctx->passback : nullptr; }
Language *expressionContextGetLanguage(const ExpressionContext *ctx) noexcept { return ctx ? ctx->language : nullptr; }

int operatorContextGetNumInputs(const OperatorContext *ctx) noexcept { return ctx ? ctx->numInputs : 0; }
Expression *operatorContextGetInput(const OperatorContext *ctx, int index) noexcept {
    return index >= 0 && index < operatorContextGetNumInputs(ctx) ? ctx->inputs[index] : nullptr;
}
int operandContextGetNumArguments(const OperandContext *ctx) noexcept { return ctx ? ctx->numActualArgs : 0; }
const char *operandContextGetArgument(const OperandContext *ctx, int index) noexcept {
    return index >= 0 && index < operandContextGetNumArguments(ctx) ? ctx->actualArgs[index] : nullptr;
}
