// The evaluate function that every constant and list has; private to the module.
#ifndef TAVLANGUAGE_CONSTANTEVALUATE_H
#define TAVLANGUAGE_CONSTANTEVALUATE_H

#include "tavLanguage/tavExpression.h"

intptr_t *constantExpressionEvaluate(Expression *expr, EvaluationContext *evalCtx) noexcept;

#endif
