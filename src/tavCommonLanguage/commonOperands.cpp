// The common operands: true, false, percentage, time, rampup, nulloperand.
//
// Oddities that are meant: percentage draws modulo 101 and compares with "at most", so that 0 is true now and then; a time window's end is
// exclusive and its weekday is not looked at; rampup is false again from its completion on.
#include <atomic>

#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavTime.h"

namespace {

using NowFcn = time_t (*)(time_t *);
using DrawFcn = int (*)();

int drawRandom() noexcept { return tavRandom(); }

std::atomic<NowFcn> nowFcn{&time};
std::atomic<DrawFcn> drawFcn{&drawRandom};

time_t currentSeconds() noexcept { return nowFcn.load(std::memory_order_relaxed)(nullptr); }
unsigned draw() noexcept { return static_cast<unsigned>(drawFcn.load(std::memory_order_relaxed)()); }

const char *truthText(bool truth) noexcept { return truth ? "TRUE" : "FALSE"; }

// A zeroed record of the operand's expression, when the context has exactly that many arguments, each of them given.
template <typename Record>
Record *createRecord(OperandContext *ctx, const char *name, int expectedArgs) noexcept {
    if (!ctx) return nullptr;
    const int given = operandContextGetNumArguments(ctx);
    bool complete = given == expectedArgs;
    for (int i = 0; complete && i < expectedArgs; ++i) complete = operandContextGetArgument(ctx, i) != nullptr;
    if (!complete) {
        langReportError("tavCommonLanguage", "In operandCreateExpression_%s - invalid number of inputs (%d) - expecting %d.\n", name, given,
                        expectedArgs);
        return nullptr;
    }
    return tavNewRecord<Record>();
}

Expression *createPlain(OperandContext *ctx) noexcept { return ctx ? tavNewRecord<Expression>() : nullptr; }

template <intptr_t word>
void constantWord(Expression *, EvaluationContext *, ExpressionValue *result) {
    expressionValueSetWord(result, word);
}

void nullText(Expression *, EvaluationContext *, ExpressionValue *result) { expressionValueBorrowText(result, nullptr); }

void percentValue(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) {
    const auto drawn = static_cast<int>(draw() % 101u);
    const bool truth = drawn <= reinterpret_cast<const Expr_Operand_Percent *>(expr)->percent;
    EVALUATION_DEBUG(evalCtx, "operandEvaluate_Percent: allow debug trace--> %s", truthText(truth));
    expressionValueSetWord(result, truth);
}

bool liesBetween(time_t now, const time_op *start, const time_op *stop) noexcept {
    const time_op current = timeOpFromSeconds(now);
    return diffTimeOps(&current, start) == 1 && diffTimeOps(&current, stop) == 0;
}

void timeValue(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) {
    const auto *window = reinterpret_cast<const Expr_Operand_Time *>(expr);
    const bool truth = liesBetween(currentSeconds(), &window->startTime, &window->stopTime);
    EVALUATION_DEBUG(evalCtx, "operandEvaluate_Time: --> %s", truthText(truth));
    expressionValueSetWord(result, truth);
}

// A span of 0 is an empty interval; one of -1 has no offset.
bool hasRamped(const Expr_Operand_rampup *ramp, time_t now) noexcept {
    if (ramp->span == 0 || !liesBetween(now, &ramp->startTime, &ramp->stopTime)) return false;
    const int64_t drawn = draw();
    const int64_t offset = ramp->span == -1 ? 0 : drawn % ramp->span;
    return ramp->startSeconds + offset < static_cast<int64_t>(now);
}

void rampupValue(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) {
    const bool truth = hasRamped(reinterpret_cast<const Expr_Operand_rampup *>(expr), currentSeconds());
    EVALUATION_DEBUG(evalCtx, "operandEvaluate_rampup: printing logs for current time stamp-->%s", truthText(truth));
    expressionValueSetWord(result, truth);
}

constexpr int maxArgs = 2;

struct CommonOperand {
    const char *name;
    ExpressionType type;
    OperandCreateExpressionFcn create;
    ExpressionDestructorFcn destroy;
    EvaluateFcn evaluate;
    OperandValueFcn evaluateInto;
    const char *args[maxArgs]; // names of the formal arguments; null: none
    OperandTruth truth = TRUTH_DEPENDS;
};

constexpr CommonOperand commonOperands[] = {
    {.name = "true",
     .type = EXPR_BOOLEAN,
     .create = operandCreateExpression_true,
     .destroy = operandDestroyExpression_true,
     .evaluate = operandEvaluate_true,
     .evaluateInto = constantWord<1>,
     .args = {},
     .truth = TRUTH_ALWAYS},
    {.name = "false",
     .type = EXPR_BOOLEAN,
     .create = operandCreateExpression_false,
     .destroy = operandDestroyExpression_false,
     .evaluate = operandEvaluate_false,
     .evaluateInto = constantWord<0>,
     .args = {},
     .truth = TRUTH_NEVER},
    {.name = "percentage",
     .type = EXPR_BOOLEAN,
     .create = operandCreateExpression_Percent,
     .destroy = operandDestroyExpression_Percent,
     .evaluate = operandEvaluate_Percent,
     .evaluateInto = percentValue,
     .args = {"percent"}},
    {.name = "time",
     .type = EXPR_BOOLEAN,
     .create = operandCreateExpression_Time,
     .destroy = operandDestroyExpression_Time,
     .evaluate = operandEvaluate_Time,
     .evaluateInto = timeValue,
     .args = {"startTime", "stopTime"}},
    {.name = "rampup",
     .type = EXPR_BOOLEAN,
     .create = operandCreateExpression_rampup,
     .destroy = operandDestroyExpression_rampup,
     .evaluate = operandEvaluate_rampup,
     .evaluateInto = rampupValue,
     .args = {"startTime", "completionTime"}},
    {.name = "nulloperand",
     .type = EXPR_STRING,
     .create = operandCreateExpression_nulloperand,
     .destroy = operandDestroyExpression_nulloperand,
     .evaluate = operandEvaluate_nulloperand,
     .evaluateInto = nullText,
     .args = {}},
};

Operand *createOperand(const CommonOperand &row) noexcept {
    FormalArg *args[maxArgs];
    int count = 0;
    for (const char *name : row.args) {
        if (name) args[count++] = formalArgCreate(name, ARG_INT, nullptr, 0, nullptr);
    }
    Operand *operand = operandCreate(row.name, 0, nullptr, count, args, row.create, row.destroy, row.evaluate, nullptr, 1, row.type);
    operandSetEvaluateInto(operand, row.evaluateInto);
    operandSetTruth(operand, row.truth);
    return operand;
}

} // namespace

void tavCommonLanguageSetNow(time_t (*now)(time_t *)) noexcept { nowFcn = now ? now : &time; }
void tavCommonLanguageSetRandom(int (*drawn)()) noexcept { drawFcn = drawn ? drawn : &drawRandom; }

Expression *operandCreateExpression_true(Operand *, OperandContext *ctx) noexcept { return createPlain(ctx); }
Expression *operandCreateExpression_false(Operand *, OperandContext *ctx) noexcept { return createPlain(ctx); }
Expression *operandCreateExpression_nulloperand(Operand *, OperandContext *ctx) noexcept { return createPlain(ctx); }

Expression *operandCreateExpression_Percent(Operand *, OperandContext *ctx) noexcept {
    auto *record = createRecord<Expr_Operand_Percent>(ctx, "Percent", 1);
    if (!record) return nullptr;
    record->percent = tavParseInt(operandContextGetArgument(ctx, 0));
    return &record->base;
}

Expression *operandCreateExpression_Time(Operand *, OperandContext *ctx) noexcept {
    auto *record = createRecord<Expr_Operand_Time>(ctx, "Time", 2);
    if (!record) return nullptr;
    record->startTime = timeOpParse(operandContextGetArgument(ctx, 0));
    record->stopTime = timeOpParse(operandContextGetArgument(ctx, 1));
    return &record->base;
}

// Bounds without a year get the one in which the rule is made.
Expression *operandCreateExpression_rampup(Operand *, OperandContext *ctx) noexcept {
    auto *record = createRecord<Expr_Operand_rampup>(ctx, "rampup", 2);
    if (!record) return nullptr;
    const int32_t year = timeOpFromSeconds(currentSeconds()).year;
    record->startTime = timeOpParse(operandContextGetArgument(ctx, 0));
    record->stopTime = timeOpParse(operandContextGetArgument(ctx, 1));
    record->startSeconds = timeOpToSeconds(&record->startTime, year);
    record->span = timeOpToSeconds(&record->stopTime, year) - record->startSeconds;
    return &record->base;
}

// Nothing behind the head needs freeing.
void operandDestroyExpression_true(Expression *) noexcept {}
void operandDestroyExpression_false(Expression *) noexcept {}
void operandDestroyExpression_Percent(Expression *) noexcept {}
void operandDestroyExpression_Time(Expression *) noexcept {}
void operandDestroyExpression_rampup(Expression *) noexcept {}
void operandDestroyExpression_nulloperand(Expression *) noexcept {}

intptr_t *operandEvaluate_true(Expression *expr, EvaluationContext *evalCtx) noexcept {
    return operandEvaluateAsCell<constantWord<1>>(expr, evalCtx);
}
intptr_t *operandEvaluate_false(Expression *expr, EvaluationContext *evalCtx) noexcept {
    return operandEvaluateAsCell<constantWord<0>>(expr, evalCtx);
}
intptr_t *operandEvaluate_Percent(Expression *expr, EvaluationContext *evalCtx) noexcept {
    return operandEvaluateAsCell<percentValue>(expr, evalCtx);
}
intptr_t *operandEvaluate_Time(Expression *expr, EvaluationContext *evalCtx) noexcept {
    return operandEvaluateAsCell<timeValue>(expr, evalCtx);
}
intptr_t *operandEvaluate_rampup(Expression *expr, EvaluationContext *evalCtx) noexcept {
    return operandEvaluateAsCell<rampupValue>(expr, evalCtx);
}
intptr_t *operandEvaluate_nulloperand(Expression *expr, EvaluationContext *evalCtx) noexcept {
    return operandEvaluateAsCell<nullText>(expr, evalCtx);
}

Boolean langRegisterCommonOperands(Language *language) noexcept {
    if (!language) return FALSE;
    for (const CommonOperand &row : commonOperands) {
        Operand *operand = createOperand(row);
        if (!operand) return FALSE;
        langRegisterOperand(language, operand);
        if (!langFindOperand(language, row.name)) return FALSE;
    }
    return TRUE;
}
