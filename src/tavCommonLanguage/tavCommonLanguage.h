// The words every rule language shares: comparison, logic, lists, null tests and concatenation; true, false, percentage, time, rampup and
// nulloperand.
//
// The operators are one family: TAV_COMMON_OPERATORS lists each registered name with its number of inputs, in registration order, and
// every name X has the record Expr_Operator_X, operatorCreateExpression_X, operatorDestroyExpression_X and operatorEvaluate_X. What they
// compute is in commonOperators.cpp.
#ifndef TAVCOMMONLANGUAGE_TAVCOMMONLANGUAGE_H
#define TAVCOMMONLANGUAGE_TAVCOMMONLANGUAGE_H

#include <ctime>

#include "tavLanguage/tavLanguage.h"
#include "tavUtil/tavMemory.h"

// Both append to the language; the order inside is binding, because the parser tries operators in it. FALSE without memory (the language
// then lacks words and must be dropped) or for a null language.
Boolean langRegisterCommonOperators(Language *language) noexcept;
Boolean langRegisterCommonOperands(Language *language) noexcept;

#define TAV_COMMON_OPERATORS(X)        \
    X(IntEqualsInt, 2)                 \
    X(IntNotEqualsInt, 2)              \
    X(StringEqualsString, 2)           \
    X(StringEqualsIgnoreCaseString, 2) \
    X(StringNotEqualsString, 2)        \
    X(StringLikeString, 2)             \
    X(StringLikeIgnoreCaseString, 2)   \
    X(BooleanEqualsBoolean, 2)         \
    X(BooleanNotEqualsBoolean, 2)      \
    X(IntGreaterthanInt, 2)            \
    X(IntLessthanInt, 2)               \
    X(IntGreaterthanEqualToInt, 2)     \
    X(IntLessthanEqualToInt, 2)        \
    X(IntBetweenInt, 3)                \
    X(AND, 2)                          \
    X(OR, 2)                           \
    X(NOT, 1)                          \
    X(STRING_IN_LIST, 2)               \
    X(STRING_LIKE_IN_LIST, 2)          \
    X(INT_IN_LIST, 2)                  \
    X(StringConcatString, 2)           \
    X(IsNull, 1)                       \
    X(IsNullList, 1)                   \
    X(IsNotNull, 1)                    \
    X(IsNotNullList, 1)

// An operator's expression: the head and its inputs, owned, in pattern order.
template <int numInputs>
struct CommonOperatorExpression {
    Expression base;
    Expression *inputs[numInputs];
};

// Has the context exactly `numInputs` inputs? Else there is a line on standard error. FALSE for a null argument.
Boolean commonOperatorAccepts(const Operator *op, const OperatorContext *ctx, int numInputs) noexcept;

// Takes the context's inputs and returns new; null when their number is wrong and without memory.
template <int numInputs>
Expression *commonOperatorCreate(Operator *op, OperatorContext *ctx) noexcept {
    auto *record = commonOperatorAccepts(op, ctx, numInputs) ? tavNewRecord<CommonOperatorExpression<numInputs>>() : nullptr;
    if (!record) return nullptr;
    for (int i = 0; i < numInputs; ++i) record->inputs[i] = ctx->inputs[i];
    return &record->base;
}

template <int numInputs>
void commonOperatorDestroy(Expression *expr) noexcept {
    if (!expr) return;
    for (Expression *&input : reinterpret_cast<CommonOperatorExpression<numInputs> *>(expr)->inputs) {
        expressionFree(input);
        input = nullptr;
    }
}

#define TAV_DECLARE_COMMON_OPERATOR(name, numInputs)                                                                 \
    using Expr_Operator_##name = CommonOperatorExpression<numInputs>;                                                \
    inline constexpr OperatorCreateExpressionFcn operatorCreateExpression_##name = &commonOperatorCreate<numInputs>; \
    inline constexpr ExpressionDestructorFcn operatorDestroyExpression_##name = &commonOperatorDestroy<numInputs>;   \
    inline constexpr EvaluateFcn operatorEvaluate_##name = &expressionEvaluateAsCell;
TAV_COMMON_OPERATORS(TAV_DECLARE_COMMON_OPERATOR)
#undef TAV_DECLARE_COMMON_OPERATOR

// ---- points in time ----

// "weekday/day/month/year/hour:minute:second" taken apart; -1: not given or unusable. The weekday is never compared.
typedef struct _time_op {
    int32_t wday; // 0 (Sunday) to 6
    int32_t day;
    int32_t month; // 0 (January) to 11
    int32_t year;
    int32_t hour;
    int32_t min;
    int32_t sec;
} time_op;

time_op timeOpParse(const char *text) noexcept;     // null: nothing given
time_op timeOpFromSeconds(time_t seconds) noexcept; // local time
// 1 when `now` is at or after `bound`, 0 when before. Fields that the bound lacks are skipped.
int diffTimeOps(const time_op *now, const time_op *bound) noexcept;
// Seconds since the epoch, after the fields that the bound lacks are filled with year `currentYear`, December, 31, 23, 59, 59.
int64_t timeOpToSeconds(const time_op *bound, int32_t currentYear) noexcept;
// Replaces the clock (`time`) and the random draw (`tavRandom`) of these operands; null: the real one again. For tests, before threads run.
void tavCommonLanguageSetNow(time_t (*now)(time_t *)) noexcept;
void tavCommonLanguageSetRandom(int (*draw)()) noexcept;

// ---- operands ----

typedef struct _Expr_Operand_Percent {
    Expression base;
    int percent;
} Expr_Operand_Percent;

typedef struct _Expr_Operand_Time {
    Expression base;
    time_op startTime;
    time_op stopTime;
} Expr_Operand_Time;

typedef struct _Expr_Operand_rampup {
    Expression base;
    time_op startTime;
    time_op stopTime;
    int64_t span;         // seconds from start to stop
    int64_t startSeconds; // since the epoch
} Expr_Operand_rampup;

typedef Expression Expr_Operand_true;
typedef Expression Expr_Operand_false;
typedef Expression Expr_Operand_nulloperand;

#define TAV_DECLARE_COMMON_OPERAND(name)                                                        \
    Expression *operandCreateExpression_##name(Operand *operand, OperandContext *ctx) noexcept; \
    void operandDestroyExpression_##name(Expression *expr) noexcept;                            \
    intptr_t *operandEvaluate_##name(Expression *expr, EvaluationContext *evalCtx) noexcept;
TAV_DECLARE_COMMON_OPERAND(true)
TAV_DECLARE_COMMON_OPERAND(false)
TAV_DECLARE_COMMON_OPERAND(Percent)
TAV_DECLARE_COMMON_OPERAND(Time)
TAV_DECLARE_COMMON_OPERAND(rampup)
TAV_DECLARE_COMMON_OPERAND(nulloperand)
#undef TAV_DECLARE_COMMON_OPERAND

// ---- wildcards ----

// Does `text` match `pattern`? "%" and "*" stand for any run of characters; nothing else is special. One remembered restart point and no
// further backtracking: "ababac" does not match "%abac", and must not. Neither may be null.
int wildcardTextCompare(const char *text, const char *pattern, int caseSensitive) noexcept;

#endif
