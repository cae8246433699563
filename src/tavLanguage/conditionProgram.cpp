// Compiling expressions into steps, and running them.
//
// The steps of an expression stand in postfix order, so that a run needs a stack of truths and nothing else; the stack is one 64-bit word,
// the newest truth its lowest bit. The last step of each expression is marked. Texts lie behind the steps in the same block, addressed from
// its start; offset 0 is no text.
//
// Why a run may skip copies: an operand's text is compared with a constant before any other operand is asked, so the host cannot have taken
// it back. Why truths are enough: the short forms never deliver a missing value (see conditionFormOf).
#include "tavLanguage/conditionProgram.h"

#include <cstring>

#include "tavLanguage/constantEvaluate.h"
#include "tavLanguage/tavLanguage.h"
#include "tavUtil/tavMemory.h"

namespace {

enum class StepKind : uint8_t {
    Test,
    Value,  // a test of an operand that makes its value and cannot just show it
    Member, // one more test of the same value: holds when either does
    Constant,
    And,
    Or,
    Not,
    Tree
};

struct Step {
    union {
        OperandPeekFcn peek; // Test
        Expression *expr;    // Value: the operand; Tree
    };
    OperatorTestFcn test; // Test, Value, Member
    intptr_t constant;    // a number, a truth, or the offset of a text
    uint32_t argument;    // offset of the operand's argument
    StepKind kind;
    bool constantIsText;
    bool last; // of its expression
};
static_assert(sizeof(Step) == 32); // two in a cache line

constexpr int highest = 31; // a tree of that height needs at most so many truths and so much recursion

} // namespace

struct _ConditionProgram {
    int numSteps;
    int treeSteps;

    Step *steps() noexcept { return reinterpret_cast<Step *>(this + 1); }
    const Step *steps() const noexcept { return reinterpret_cast<const Step *>(this + 1); }
    const char *text(size_t offset) const noexcept { return offset ? reinterpret_cast<const char *>(this) + offset : nullptr; }
};

namespace {

// ---- what an expression is ----

const OperatorContext *operatorOf(const Expression *expr) noexcept {
    if (expr->embodiment != EXPR_IS_OPERATOR || !expr->exprCtx) return nullptr;
    const auto *ctx = reinterpret_cast<const OperatorContext *>(expr->exprCtx);
    return ctx->operator_ && ctx->operator_->base.evaluate == expr->base.evaluate ? ctx : nullptr;
}

const OperandContext *operandOf(const Expression *expr) noexcept {
    if (expr->embodiment != EXPR_IS_OPERAND || !expr->exprCtx) return nullptr;
    const auto *ctx = reinterpret_cast<const OperandContext *>(expr->exprCtx);
    return ctx->operand && ctx->operand->base.evaluate == expr->base.evaluate ? ctx : nullptr;
}

bool isConstant(const Expression *expr) noexcept { return expr && expr->base.evaluate == constantExpressionEvaluate; }

// The members of a list that its operator looks at.
bool isCompared(const OperatorContext *ctx, const Expression *member) noexcept {
    return expressionGetType(member) == (ctx->operator_->testsTexts ? EXPR_STRING : EXPR_INT);
}

// A list of constants, at least one of which is looked at.
bool isConstantList(const OperatorContext *ctx, const Expression *list) noexcept {
    bool any = false;
    if (!expressionIsList(list)) return false;
    for (const Expression *member : TavListRange<Expression>(expressionGetListValue(list))) {
        if (!isCompared(ctx, member)) continue;
        if (!isConstant(member)) return false;
        any = true;
    }
    return any;
}

// An operand beside a constant of its kind, or beside a list of them.
bool isTest(const OperatorContext *ctx) noexcept {
    if (!ctx->operator_->test || ctx->numInputs != 2) return false;
    const Expression *left = ctx->inputs[0], *right = ctx->inputs[1];
    const OperandContext *operand = operandOf(left);
    if (!operand || !isConstant(right)) return false;
    const ExpressionValueKind kind = ctx->operator_->testsTexts ? VALUE_TEXT : VALUE_WORD;
    if (expressionGetValueKind(left) != kind) return false;
    return ctx->operator_->testsMembers ? isConstantList(ctx, right) : expressionGetValueKind(right) == kind;
}

bool isCompilable(const Expression *expr) noexcept;

// Operators that join truths deliver a truth only when every input does.
bool inputsAreCompilable(const OperatorContext *ctx) noexcept {
    for (int i = 0; i < ctx->numInputs; ++i) {
        if (!isCompilable(ctx->inputs[i])) return false;
    }
    return true;
}

bool isCompilable(const Expression *expr) noexcept {
    if (const OperandContext *operand = operandOf(expr)) return operand->operand->truth != TRUTH_DEPENDS;
    const OperatorContext *ctx = operatorOf(expr);
    if (!ctx) return false;
    switch (ctx->operator_->logic) {
        case LOGIC_NONE:
            return isTest(ctx);
        case LOGIC_NOT:
            return ctx->numInputs == 1 && inputsAreCompilable(ctx);
        default:
            return ctx->numInputs == 2 && inputsAreCompilable(ctx);
    }
}

intptr_t wordOf(const Expression *constant) noexcept {
    switch (expressionGetType(constant)) {
        case EXPR_BOOLEAN:
            return expressionGetBooleanValue(constant) ? 1 : 0;
        case EXPR_INT:
            return expressionGetIntegerValue(constant);
        default:
            return expressionGetLongValue(constant);
    }
}

// ---- compiling: once to measure, once to fill ----

class Compiler {
public:
    void add(Expression *expr) noexcept {
        if (!expr)
            emit({.kind = StepKind::Constant});
        else if (expr->height <= highest && isCompilable(expr))
            addTruth(expr);
        else
            addTree(expr);
        if (program_) program_->steps()[numSteps_ - 1].last = true;
    }
    size_t size() const noexcept { return stepsSize() + textSize_; }
    // From here on `program`, of size() bytes, is filled.
    void fill(ConditionProgram *program) noexcept {
        program_ = program;
        program->numSteps = numSteps_;
        textsAt_ = stepsSize();
        numSteps_ = 0;
        textSize_ = 0;
    }

private:
    size_t stepsSize() const noexcept { return sizeof(ConditionProgram) + static_cast<size_t>(numSteps_) * sizeof(Step); }

    void emit(const Step &step) noexcept {
        if (program_) program_->steps()[numSteps_] = step;
        ++numSteps_;
    }

    uint32_t addText(const char *text) noexcept {
        if (!text) return 0;
        const size_t length = strlen(text) + 1, at = textsAt_ + textSize_;
        if (program_) memcpy(reinterpret_cast<char *>(program_) + at, text, length);
        textSize_ += length;
        return static_cast<uint32_t>(at);
    }

    void addTestOf(const OperatorContext *ctx, const Expression *constant, StepKind kind) noexcept {
        const bool text = ctx->operator_->testsTexts;
        Step step{.test = ctx->operator_->test, .kind = kind, .constantIsText = text};
        if (kind == StepKind::Test) {
            const OperandContext *operand = operandOf(ctx->inputs[0]);
            step.peek = operand->operand->peek;
            step.argument = addText(operandContextGetArgument(operand, 0));
        } else {
            step.expr = ctx->inputs[0];
        }
        step.constant = text ? addText(expressionGetStringValue(constant)) : wordOf(constant);
        emit(step);
    }

    void addTest(const OperatorContext *ctx) noexcept {
        StepKind kind = operandOf(ctx->inputs[0])->operand->peek ? StepKind::Test : StepKind::Value;
        if (!ctx->operator_->testsMembers) return addTestOf(ctx, ctx->inputs[1], kind);
        for (const Expression *member : TavListRange<Expression>(expressionGetListValue(ctx->inputs[1]))) {
            if (!isCompared(ctx, member)) continue;
            addTestOf(ctx, member, kind);
            kind = StepKind::Member;
        }
    }

    void addTruth(const Expression *expr) noexcept {
        if (const OperandContext *operand = operandOf(expr))
            return emit({.constant = operand->operand->truth == TRUTH_ALWAYS, .kind = StepKind::Constant});
        const OperatorContext *ctx = operatorOf(expr);
        if (ctx->operator_->logic == LOGIC_NONE) return addTest(ctx);
        for (int i = 0; i < ctx->numInputs; ++i) addTruth(ctx->inputs[i]);
        constexpr StepKind kinds[] = {StepKind::Tree, StepKind::And, StepKind::Or, StepKind::Not};
        emit({.kind = kinds[ctx->operator_->logic]});
    }

    void addTree(Expression *expr) noexcept {
        emit({.expr = expr, .kind = StepKind::Tree});
        if (program_) ++program_->treeSteps;
    }

    ConditionProgram *program_ = nullptr;
    int numSteps_ = 0;
    size_t textsAt_ = 0;
    size_t textSize_ = 0;
};

} // namespace

ConditionProgram *conditionProgramCreate(Expression *const *exprs, int count) noexcept {
    Compiler compiler;
    for (int i = 0; i < count; ++i) compiler.add(exprs[i]);
    const size_t size = compiler.size();
    auto *program = size <= UINT32_MAX ? static_cast<ConditionProgram *>(tavMallocUncounted(size)) : nullptr;
    if (!program) return nullptr;
    compiler.fill(program);
    for (int i = 0; i < count; ++i) compiler.add(exprs[i]);
    return program;
}

void conditionProgramFree(ConditionProgram *program) noexcept { tavFreeUncounted(program); }

int conditionProgramTreeSteps(const ConditionProgram *program) noexcept { return program->treeSteps; }

// ---- running ----

namespace {

class Run {
public:
    Run(const ConditionProgram *program, EvaluationContext *evalCtx) noexcept
        : program_(program), evalCtx_(evalCtx), scratchBefore_(evalCtx->scratchUsed) {}
    ~Run() { dropValue(); }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    // The truths after the step: it pushes one, or replaces those on top.
    uint64_t perform(const Step &step, uint64_t truths) noexcept {
        switch (step.kind) {
            case StepKind::Test:
                present_ = step.peek(program_->text(step.argument), evalCtx_, &word_);
                return truths << 1 | testHolds(step);
            case StepKind::Value:
                makeValue(step);
                return truths << 1 | testHolds(step);
            case StepKind::Member:
                return truths | testHolds(step);
            case StepKind::Constant:
                return truths << 1 | static_cast<uint64_t>(step.constant);
            case StepKind::Tree:
                return truths << 1 | (expressionIsTrue(step.expr, evalCtx_) ? 1U : 0U);
            case StepKind::Not:
                return truths ^ 1;
            case StepKind::And:
                return (truths >> 1) & (truths | ~uint64_t{1});
            case StepKind::Or:
                return (truths >> 1) | (truths & 1);
        }
        return truths;
    }

private:
    void dropValue() noexcept {
        if (!valueMade_) return;
        expressionValueClear(&value_);
        evalCtx_->scratchUsed = scratchBefore_;
        valueMade_ = false;
    }

    void makeValue(const Step &step) noexcept {
        dropValue();
        expressionEvaluateInto(step.expr, evalCtx_, &value_);
        valueMade_ = true;
        present_ = value_.kind != VALUE_MISSING;
        word_ = step.constantIsText ? reinterpret_cast<intptr_t>(expressionValueGetText(&value_)) : value_.word;
    }

    uint64_t testHolds(const Step &step) const noexcept {
        if (!present_) return 0;
        const auto offset = static_cast<size_t>(step.constant);
        return step.test(word_, step.constantIsText ? reinterpret_cast<intptr_t>(program_->text(offset)) : step.constant) ? 1 : 0;
    }

    const ConditionProgram *program_;
    EvaluationContext *evalCtx_;
    const size_t scratchBefore_;
    ExpressionValue value_; // of the last operand that made one, while `valueMade_`
    intptr_t word_ = 0;     // what the last test was shown
    bool present_ = false, valueMade_ = false;
};

} // namespace

int conditionProgramFirst(const ConditionProgram *program, EvaluationContext *evalCtx) noexcept {
    Run run(program, evalCtx);
    uint64_t truths = 0;
    int index = 0;
    for (const Step *step = program->steps(), *end = step + program->numSteps; step < end; ++step) {
        truths = run.perform(*step, truths);
        if (!step->last) continue;
        if (truths & 1) return index;
        truths = 0;
        ++index;
    }
    return -1;
}
