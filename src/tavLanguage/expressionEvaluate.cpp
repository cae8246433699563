// Evaluation.
//
// Idea: operators that can combine values are evaluated by one loop over an explicit stack of frames, a frame being an operator and the
// values of its inputs so far. The stack needs as many frames as the tree is high; that number is kept in the root, so that a usual rule
// runs in storage on the thread's stack and a pathological one in a single block. All else (constants, operands, operators that only know
// cells) is a leaf of that loop. Every input is evaluated, whatever the others delivered.
// Ownership: a frame's values are cleared when its operator has combined them.
#include <algorithm>
#include <cstring>

#include "tavLanguage/constantEvaluate.h"
#include "tavLanguage/tavExpression.h"
#include "tavLanguage/tavLanguage.h"
#include "tavUtil/tavMemory.h"

namespace {

struct Frame {
    Expression *expr;
    const OperatorContext *ctx;
    int filled; // inputs evaluated so far
    ExpressionValue inputs[OPERATOR_MAX_COMBINED_INPUTS];
};

constexpr int inlineFrames = 16;

void constantValue(const Expression *expr, ExpressionValue *result) noexcept {
    switch (expressionGetType(expr)) {
        case EXPR_BOOLEAN:
            return expressionValueSetWord(result, expressionGetBooleanValue(expr) ? 1 : 0);
        case EXPR_INT:
            return expressionValueSetWord(result, expressionGetIntegerValue(expr));
        case EXPR_LONG:
            return expressionValueSetWord(result, expressionGetLongValue(expr));
        case EXPR_STRING:
            return expressionValueBorrowText(result, expressionGetStringValue(expr));
        case EXPR_LIST:
            *result = {reinterpret_cast<intptr_t>(expressionGetListValue(expr)), VALUE_LIST, false};
            return;
        default:
            return expressionValueSetMissing(result);
    }
}

// The operand's value function, unless its expression was given another evaluate function.
OperandValueFcn valueFunctionOf(const Expression *expr) noexcept {
    if (expr->embodiment != EXPR_IS_OPERAND || !expr->exprCtx) return nullptr;
    const Operand *operand = reinterpret_cast<const OperandContext *>(expr->exprCtx)->operand;
    return operand && operand->base.evaluate == expr->base.evaluate ? operand->evaluateInto : nullptr;
}

void valueFromCell(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {
    intptr_t *cell = expressionEvaluate(expr, evalCtx);
    if (!cell) return expressionValueSetMissing(result);
    const ExpressionValueKind kind = expressionGetValueKind(expr);
    *result = {*cell, kind, kind == VALUE_TEXT && *cell != 0};
    tavFree(cell);
}

void evaluateLeaf(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {
    if (!expr) return expressionValueSetMissing(result);
    if (expr->base.evaluate == constantExpressionEvaluate) return constantValue(expr, result);
    if (OperandValueFcn valueFcn = valueFunctionOf(expr)) return valueFcn(expr, evalCtx, result);
    valueFromCell(expr, evalCtx, result);
}

// The context of an operator that the loop can compute; null for anything else.
const OperatorContext *combinableContext(const Expression *expr) noexcept {
    if (!expr || expr->embodiment != EXPR_IS_OPERATOR || !expr->exprCtx) return nullptr;
    const auto *ctx = reinterpret_cast<const OperatorContext *>(expr->exprCtx);
    const Operator *op = ctx->operator_;
    const bool usable = op && op->combine && op->base.evaluate == expr->base.evaluate && ctx->numInputs <= OPERATOR_MAX_COMBINED_INPUTS;
    return usable ? ctx : nullptr;
}

void combine(Frame &frame, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {
    frame.ctx->operator_->combine(frame.expr, evalCtx, frame.inputs, result);
    for (int i = 0; i < frame.filled; ++i) expressionValueClear(&frame.inputs[i]);
}

void evaluateOperator(Frame *frames, Expression *root, const OperatorContext *rootCtx, EvaluationContext *evalCtx,
                      ExpressionValue *result) noexcept {
    int top = 0;
    frames[0].expr = root;
    frames[0].ctx = rootCtx;
    frames[0].filled = 0;
    for (;;) {
        Frame &frame = frames[top];
        if (frame.filled < frame.ctx->numInputs) {
            Expression *input = frame.ctx->inputs[frame.filled];
            const OperatorContext *inputCtx = combinableContext(input);
            if (inputCtx) {
                Frame &below = frames[++top];
                below.expr = input;
                below.ctx = inputCtx;
                below.filled = 0;
            } else {
                evaluateLeaf(input, evalCtx, &frame.inputs[frame.filled]);
                ++frame.filled;
            }
            continue;
        }
        ExpressionValue value;
        combine(frame, evalCtx, &value);
        if (top == 0) {
            *result = value;
            return;
        }
        Frame &above = frames[--top];
        above.inputs[above.filled++] = value;
    }
}

bool liesInScratch(const ExpressionValue &value, const EvaluationContext *evalCtx) noexcept {
    const char *text = expressionValueGetText(&value);
    return text && !value.owned && text >= evalCtx->scratch && text < evalCtx->scratch + EVALUATION_SCRATCH_SIZE;
}

} // namespace

intptr_t *constantExpressionEvaluate(Expression *expr, EvaluationContext *evalCtx) noexcept {
    if (!expr || !evalCtx) return nullptr;
    ExpressionValue value;
    constantValue(expr, &value);
    return expressionCellFromValue(&value);
}

intptr_t *expressionCellCreate(intptr_t word) noexcept {
    auto *cell = static_cast<intptr_t *>(tavMalloc(sizeof(intptr_t)));
    if (cell) *cell = word;
    return cell;
}

intptr_t *expressionCellCreateText(const char *text) noexcept {
    ExpressionValue value;
    expressionValueBorrowText(&value, text);
    return expressionCellFromValue(&value);
}

void expressionCellFree(const Expression *expr, intptr_t *cell) noexcept {
    if (!cell) return;
    if (expressionGetValueKind(expr) == VALUE_TEXT) tavFree(reinterpret_cast<char *>(*cell));
    tavFree(cell);
}

intptr_t *expressionCellFromValue(ExpressionValue *value) noexcept {
    intptr_t *cell = value->kind == VALUE_MISSING ? nullptr : expressionCellCreate(value->word);
    if (cell && value->kind == VALUE_TEXT && value->word) {
        char *text = value->owned ? reinterpret_cast<char *>(value->word) : tavStrdup(expressionValueGetText(value));
        value->owned = false;
        *cell = reinterpret_cast<intptr_t>(text);
        if (!text) {
            tavFree(cell);
            cell = nullptr;
        }
    }
    expressionValueClear(value);
    return cell;
}

void expressionValueSetText(ExpressionValue *value, EvaluationContext *evalCtx, const char *text) noexcept {
    if (!text) return expressionValueBorrowText(value, nullptr);
    expressionValueSetTextView(value, evalCtx, text);
}

void expressionValueSetTextView(ExpressionValue *value, EvaluationContext *evalCtx, std::string_view text) noexcept {
    const bool fits = evalCtx && text.size() < EVALUATION_SCRATCH_SIZE - evalCtx->scratchUsed;
    char *copy = fits ? evalCtx->scratch + evalCtx->scratchUsed : static_cast<char *>(tavMalloc(text.size() + 1));
    if (!copy) return expressionValueSetMissing(value);
    if (!text.empty()) std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    if (!fits) return expressionValueTakeText(value, copy);
    evalCtx->scratchUsed += text.size() + 1;
    expressionValueBorrowText(value, copy);
}

void expressionValueClear(ExpressionValue *value) noexcept {
    if (value->owned) tavFree(reinterpret_cast<char *>(value->word));
    expressionValueSetMissing(value);
}

intptr_t *expressionEvaluate(Expression *expr, EvaluationContext *evalCtx) noexcept {
    return expr && evalCtx && expr->base.evaluate ? expr->base.evaluate(expr, evalCtx) : nullptr;
}

void expressionEvaluateInto(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {
    expressionValueSetMissing(result);
    if (!expr || !evalCtx) return;
    const OperatorContext *ctx = combinableContext(expr);
    if (!ctx) return evaluateLeaf(expr, evalCtx, result);

    const size_t scratchBefore = evalCtx->scratchUsed;
    if (expr->height <= inlineFrames) {
        Frame frames[inlineFrames];
        evaluateOperator(frames, expr, ctx, evalCtx, result);
    } else if (auto *frames = static_cast<Frame *>(tavMalloc(static_cast<size_t>(expr->height) * sizeof(Frame)))) {
        evaluateOperator(frames, expr, ctx, evalCtx, result);
        tavFree(frames);
    }
    if (!liesInScratch(*result, evalCtx)) evalCtx->scratchUsed = scratchBefore;
}

intptr_t *expressionEvaluateAsCell(Expression *expr, EvaluationContext *evalCtx) noexcept {
    // Only the loop may compute it: through a cell this function would call itself.
    if (!evalCtx || !combinableContext(expr)) return nullptr;
    ExpressionValue value;
    const size_t scratchBefore = evalCtx->scratchUsed;
    expressionEvaluateInto(expr, evalCtx, &value);
    intptr_t *cell = expressionCellFromValue(&value);
    evalCtx->scratchUsed = scratchBefore;
    return cell;
}

Boolean expressionIsTrue(Expression *expr, EvaluationContext *evalCtx) noexcept {
    if (!evalCtx) return FALSE;
    const size_t scratchBefore = evalCtx->scratchUsed;
    ExpressionValue value;
    expressionEvaluateInto(expr, evalCtx, &value);
    const Boolean verdict = value.word != 0 ? TRUE : FALSE;
    expressionValueClear(&value);
    evalCtx->scratchUsed = scratchBefore;
    return verdict;
}
