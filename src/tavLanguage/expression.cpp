// The nodes of a rule: their making, their fields, their end.
//
// Ownership: an expression owns its context and its kind's own part; an operator's expression owns its inputs, a list its members.
// Freeing is a loop: while a tree is being freed, expressionFree only queues what destructors hand to it, linked through the nodes
// themselves, so that neither nesting nor memory limits it.
#include "tavLanguage/tavExpression.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "tavLanguage/constantEvaluate.h"
#include "tavLanguage/tavLanguage.h"
#include "tavUtil/tavMemory.h"

namespace {

// What this thread has still to free; null while no tree is being freed.
thread_local Expression **freeQueue = nullptr;

void freeNode(Expression *expr) noexcept {
    expressionClearError(expr);
    evaluableSetEvaluate(&expr->base, nullptr);
    expressionContextFree(expr->exprCtx);
    if (expr->destructor) expr->destructor(expr);
    tavFree(expr);
}

void stringConstantDestroy(Expression *expr) noexcept { tavFree(reinterpret_cast<StringConstantExpression *>(expr)->value); }
void listDestroy(Expression *expr) noexcept { tavListDestroy(reinterpret_cast<ListExpression *>(expr)->value); }

template <typename Constant>
Expression *constantCreate(ExpressionContext *ctx, ExpressionType type, ExpressionDestructorFcn destructor) noexcept {
    if (!ctx) return nullptr;
    auto *constant = tavNewRecord<Constant>();
    if (!constant) return nullptr;
    ctx->type = type;
    constant->base.base.evaluate = constantExpressionEvaluate;
    constant->base.destructor = destructor;
    constant->base.embodiment = EXPR_IS_CONSTANT;
    constant->base.exprCtx = ctx;
    return &constant->base;
}

template <typename Constant>
Constant *as(Expression *expr) noexcept {
    return reinterpret_cast<Constant *>(expr);
}
template <typename Constant>
const Constant *as(const Expression *expr) noexcept {
    return reinterpret_cast<const Constant *>(expr);
}

void adopt(Expression *expr, ExpressionContext *ctx, EvaluateFcn evaluate, ExpressionDestructorFcn destructor,
           ExpressionEmbodiment embodiment) noexcept {
    evaluableSetEvaluate(&expr->base, evaluate);
    expr->destructor = destructor;
    expr->embodiment = embodiment;
    expr->exprCtx = ctx;
    expr->errorMessage = nullptr;
    expr->nextToFree = nullptr;
    expr->height = 0;
}

ExpressionValueKind operandValueKind(const OperandContext *ctx) noexcept {
    const Operand *operand = ctx->operand;
    if (!operand || operand->numReturnTypes < 1) return VALUE_WORD;
    const ExpressionType expected = ctx->expressionContext.type;
    const ExpressionType type = operandReturnsType(operand, expected) ? expected : operand->returnTypes[0];
    return type == EXPR_STRING || type == EXPR_LIST ? VALUE_TEXT : VALUE_WORD;
}

} // namespace

const char *expressionTypeToString(ExpressionType type) noexcept {
    constexpr const char *names[] = {"EXPR_UNKNOWN", "EXPR_BOOLEAN", "EXPR_INT", "EXPR_LONG", "EXPR_STRING", "EXPR_LIST"};
    const int index = static_cast<int>(type);
    return names[index >= EXPR_UNKNOWN && index <= EXPR_LIST ? index : EXPR_UNKNOWN];
}

void langReportError(const char *module, const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    flockfile(stderr);
    std::fprintf(stderr, "\n** TAV_ERROR(%s): ", module);
    std::vfprintf(stderr, format, args);
    funlockfile(stderr);
    va_end(args);
}

Expression *booleanConstantExpressionCreate(ExpressionContext *ctx) noexcept {
    return constantCreate<BooleanConstantExpression>(ctx, EXPR_BOOLEAN, nullptr);
}
Expression *integerConstantExpressionCreate(ExpressionContext *ctx) noexcept {
    return constantCreate<IntegerConstantExpression>(ctx, EXPR_INT, nullptr);
}
Expression *longConstantExpressionCreate(ExpressionContext *ctx) noexcept {
    return constantCreate<LongConstantExpression>(ctx, EXPR_LONG, nullptr);
}
Expression *stringConstantExpressionCreate(ExpressionContext *ctx) noexcept {
    return constantCreate<StringConstantExpression>(ctx, EXPR_STRING, stringConstantDestroy);
}
Expression *listExpressionCreate(ExpressionContext *ctx) noexcept { return constantCreate<ListExpression>(ctx, EXPR_LIST, listDestroy); }

void expressionSetBooleanValue(Expression *expr, Boolean value) noexcept {
    if (expr) as<BooleanConstantExpression>(expr)->value = value;
}
void expressionSetIntegerValue(Expression *expr, int32_t value) noexcept {
    if (expr) as<IntegerConstantExpression>(expr)->value = value;
}
void expressionSetLongValue(Expression *expr, long value) noexcept {
    if (expr) as<LongConstantExpression>(expr)->value = value;
}
Boolean expressionSetStringValue(Expression *expr, const char *value) noexcept {
    return expr && tavReplaceStr(&as<StringConstantExpression>(expr)->value, value) ? TRUE : FALSE;
}
void expressionSetListValue(Expression *expr, TavList *value) noexcept {
    if (!expr || as<ListExpression>(expr)->value == value) return;
    listDestroy(expr);
    as<ListExpression>(expr)->value = value;
}

Boolean expressionGetBooleanValue(const Expression *expr) noexcept { return expr ? as<BooleanConstantExpression>(expr)->value : FALSE; }
int32_t expressionGetIntegerValue(const Expression *expr) noexcept { return expr ? as<IntegerConstantExpression>(expr)->value : 0; }
long expressionGetLongValue(const Expression *expr) noexcept { return expr ? as<LongConstantExpression>(expr)->value : 0; }
const char *expressionGetStringValue(const Expression *expr) noexcept { return expr ? as<StringConstantExpression>(expr)->value : nullptr; }
TavList *expressionGetListValue(const Expression *expr) noexcept { return expr ? as<ListExpression>(expr)->value : nullptr; }

Boolean expressionIsList(const Expression *expr) noexcept {
    return expr && expr->embodiment == EXPR_IS_CONSTANT && expressionGetType(expr) == EXPR_LIST;
}

ExpressionValueKind expressionGetValueKind(const Expression *expr) noexcept {
    if (!expr || !expr->exprCtx) return VALUE_WORD;
    if (expr->embodiment == EXPR_IS_OPERAND) return operandValueKind(reinterpret_cast<const OperandContext *>(expr->exprCtx));
    switch (expr->exprCtx->type) {
        case EXPR_STRING:
            return VALUE_TEXT;
        case EXPR_LIST:
            return VALUE_LIST;
        default:
            return VALUE_WORD;
    }
}

Expression *operatorCreateExpression(Operator *op, OperatorContext *ctx) noexcept {
    if (!op || !op->createExpression) return nullptr;
    Expression *expr = op->createExpression(op, ctx);
    if (!expr) return nullptr;
    adopt(expr, ctx ? &ctx->expressionContext : nullptr, op->base.evaluate, op->destroyExpression, EXPR_IS_OPERATOR);
    for (int i = 0; i < operatorContextGetNumInputs(ctx); ++i) {
        if (ctx->inputs[i]) expr->height = std::max(expr->height, ctx->inputs[i]->height);
    }
    ++expr->height;
    return expr;
}

Expression *operandCreateExpression(Operand *operand, OperandContext *ctx) noexcept {
    if (!operand || !operand->createExpression) return nullptr;
    Expression *expr = operand->createExpression(operand, ctx);
    if (!expr) return nullptr;
    if (ctx) ctx->operand = operand;
    adopt(expr, ctx ? &ctx->expressionContext : nullptr, operand->base.evaluate, operand->destroyExpression, EXPR_IS_OPERAND);
    return expr;
}

void expressionFree(Expression *expr) noexcept {
    if (!expr) return;
    if (freeQueue) {
        expr->nextToFree = *freeQueue;
        *freeQueue = expr;
        return;
    }
    Expression *queue = expr;
    expr->nextToFree = nullptr;
    freeQueue = &queue;
    while (queue) {
        Expression *next = queue;
        queue = next->nextToFree;
        freeNode(next);
    }
    freeQueue = nullptr;
}

void expressionSetError(Expression *expr, const char *message) noexcept {
    if (expr) tavReplaceStr(&expr->errorMessage, message);
}
void expressionClearError(Expression *expr) noexcept { expressionSetError(expr, nullptr); }
int expressionIsError(const Expression *expr) noexcept { return !expr || expr->errorMessage; }
const char *expressionGetErrorMessage(const Expression *expr) noexcept { return expr ? expr->errorMessage : nullptr; }

ExpressionType expressionGetType(const Expression *expr) noexcept { return expressionContextGetType(expressionGetContext(expr)); }
Language *expressionGetLanguage(const Expression *expr) noexcept { return expressionContextGetLanguage(expressionGetContext(expr)); }
void *expressionGetPassback(const Expression *expr) noexcept { return expressionContextGetPassback(expressionGetContext(expr)); }
ExpressionContext *expressionGetContext(const Expression *expr) noexcept { return expr ? expr->exprCtx : nullptr; }

void evaluableSetEvaluate(Evaluable *evaluable, EvaluateFcn evaluate) noexcept {
    if (evaluable) evaluable->evaluate = evaluate;
}
EvaluateFcn evaluableGetEvaluateFcn(const Evaluable *evaluable) noexcept { return evaluable ? evaluable->evaluate : nullptr; }
