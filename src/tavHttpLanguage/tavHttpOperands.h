// The operands that read a request, one family: TAV_HTTP_OPERANDS lists the suffix of each evaluate function, and every suffix x has
// operandEvaluate_x, operandCreateExpression_x and operandDestroyExpression_x. The names that rules use are in tavHttpLanguage.cpp; some
// share a family member.
#ifndef TAVHTTPLANGUAGE_TAVHTTPOPERANDS_H
#define TAVHTTPLANGUAGE_TAVHTTPOPERANDS_H

#include <tav/env.h>

#include "tavLanguage/tavLanguage.h"

// X(suffix, takes an argument)
#define TAV_HTTP_OPERANDS(X) \
    X(uri, false)            \
    X(queryparm, true)       \
    X(userid, false)         \
    X(groupids, true)        \
    X(header, true)          \
    X(cookie, true)          \
    X(httpmethod, false)     \
    X(clienthost, false)     \
    X(clientip, false)       \
    X(virtualHost, false)    \
    X(serverip, false)       \
    X(virtualPort, false)    \
    X(protocol, false)

// An operand with an argument keeps its text, which its context owns.
typedef struct _HttpOperandExpression {
    Expression base;
    const char *argument;
} HttpOperandExpression;

// Evaluate: a new cell, or null when the host has no value (see EvaluateFcn). Create: null for a null context, without memory and, with a
// line on standard error, for a wrong number of arguments. value: the same as operandEvaluate_x without a cell.
#define TAV_DECLARE_HTTP_OPERAND(x, hasArgument)                                                           \
    intptr_t *operandEvaluate_##x(Expression *expr, EvaluationContext *evalCtx) noexcept;                  \
    void operandValue_##x(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) noexcept; \
    Expression *operandCreateExpression_##x(Operand *operand, OperandContext *ctx) noexcept;               \
    void operandDestroyExpression_##x(Expression *expr) noexcept;
TAV_HTTP_OPERANDS(TAV_DECLARE_HTTP_OPERAND)
#undef TAV_DECLARE_HTTP_OPERAND

// Short forms of those that need no work on the host's answer; the others have none.
#define TAV_DECLARE_HTTP_PEEK(x) Boolean operandPeek_##x(const char *argument, const EvaluationContext *evalCtx, intptr_t *word) noexcept;
TAV_DECLARE_HTTP_PEEK(uri)
TAV_DECLARE_HTTP_PEEK(userid)
TAV_DECLARE_HTTP_PEEK(httpmethod)
TAV_DECLARE_HTTP_PEEK(clientip)
TAV_DECLARE_HTTP_PEEK(virtualHost)
TAV_DECLARE_HTTP_PEEK(serverip)
TAV_DECLARE_HTTP_PEEK(header)
TAV_DECLARE_HTTP_PEEK(cookie)
TAV_DECLARE_HTTP_PEEK(protocol)
TAV_DECLARE_HTTP_PEEK(virtualPort)
#undef TAV_DECLARE_HTTP_PEEK

// The host's handle and callbacks of the request under evaluation. Null, with a line on standard error, when the evaluation context has no
// request or the request no instance.
EnvHttpContext *getEnvHttpCtxFromEvalCtx(const EvaluationContext *evalCtx) noexcept;
EnvCallBacks *getEnvCallbacksFromEvalCtx(const EvaluationContext *evalCtx) noexcept;

#endif
