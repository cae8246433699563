// A list of conditions compiled into one block of steps: what a rule set asks of every request.
//
// Walking the trees of some rules costs a few hundred instructions and as many cache lines as the trees have records. A program is one
// block that is read front to back: it asks the same operands in the same order, compares what they show without copying it and keeps the
// truths in the bits of a word. It computes exactly what expressionIsTrue() computes, but writes no debug lines. What has no short form (a
// comparison of two operands, a list with an operand in it, an operator of another language) is one step that walks its whole expression's
// tree.
#ifndef TAVLANGUAGE_CONDITIONPROGRAM_H
#define TAVLANGUAGE_CONDITIONPROGRAM_H

#include "tavLanguage/tavExpression.h"

typedef struct _ConditionProgram ConditionProgram;

// Compiles `count` expressions, which the program borrows for its life; a null one never holds. Returns new (conditionProgramFree), outside
// the allocation counter: a request that meets new rules makes one, and what it leaves behind is no leak. Null without memory.
ConditionProgram *conditionProgramCreate(Expression *const *exprs, int count) noexcept;
void conditionProgramFree(ConditionProgram *program) noexcept; // null ignored
// The index of the first expression that holds, -1 when none does; those behind it are not evaluated. Any number of threads.
int conditionProgramFirst(const ConditionProgram *program, EvaluationContext *evalCtx) noexcept;
// How many of its steps walk a tree. For tests and measurements.
int conditionProgramTreeSteps(const ConditionProgram *program) noexcept;

// Would an evaluation write debug lines? Then the trees must be walked.
inline bool evaluationIsTraced(const EvaluationContext *evalCtx) noexcept {
    return evalCtx->trRec_Debug && trContextLogEnabled(evalCtx->trCtx, evalCtx->trRec_Debug);
}

#endif
