// The HTTP operands: each asks the host for one property of the request. A slot that the host does not supply has no value. Texts of the
// host are copied at once, because it may reuse its buffer for the next operand.
#include <string_view>

#include <tav/context.h>

#include "tavHttpLanguage/tavHttpLanguage.h"
#include "tavHttpLanguage/tavHttpOperands.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavStringBuffer.h"

static constexpr const char *ERROR_MODULE = "tavHttpLangauge"; // spelled so

using RequestCalls = decltype(decltype(EnvCallBacks::http)::request);
using TextGetter = char *(*RequestCalls::*)(EnvHttpContext *);
using NamedTextGetter = char *(*RequestCalls::*)(EnvHttpContext *, char *);

// ---- finding the host ----

static TavHttpContext *getHttpContext(const EvaluationContext *evalCtx) noexcept {
    auto *ctx = static_cast<TavHttpContext *>(evaluationContextGetObject(evalCtx));
    if (!ctx) langReportError(ERROR_MODULE, "tavHttpCtx is NULL at file %s, line %d", __FILE__, __LINE__);
    return ctx;
}

EnvHttpContext *getEnvHttpCtxFromEvalCtx(const EvaluationContext *evalCtx) noexcept {
    TavHttpContext *ctx = getHttpContext(evalCtx);
    return ctx ? tavHttpContextGetEnvContext(ctx) : nullptr;
}

EnvCallBacks *getEnvCallbacksFromEvalCtx(const EvaluationContext *evalCtx) noexcept {
    TavHttpContext *ctx = getHttpContext(evalCtx);
    if (!ctx) return nullptr;
    Tav *tav = tavHttpContextGetTav(ctx);
    if (!tav) langReportError(ERROR_MODULE, "tav is NULL at file %s, line %d", __FILE__, __LINE__);
    return tav ? tavGetEnvCallBacks(tav) : nullptr;
}

// ---- values ----

static const char *askText(const EvaluationContext *evalCtx, TextGetter getter) noexcept {
    const EnvCallBacks *env = getEnvCallbacksFromEvalCtx(evalCtx);
    if (!env || !(env->http.request.*getter)) return nullptr;
    return (env->http.request.*getter)(getEnvHttpCtxFromEvalCtx(evalCtx));
}

static const char *askText(const EvaluationContext *evalCtx, NamedTextGetter getter, const char *name) noexcept {
    const EnvCallBacks *env = getEnvCallbacksFromEvalCtx(evalCtx);
    if (!env || !name || !(env->http.request.*getter)) return nullptr;
    return (env->http.request.*getter)(getEnvHttpCtxFromEvalCtx(evalCtx), const_cast<char *>(name));
}

static const char *argumentOf(const Expression *expr) noexcept { return reinterpret_cast<const HttpOperandExpression *>(expr)->argument; }

static void setTextOrMissing(ExpressionValue *result, EvaluationContext *evalCtx, const char *text) noexcept {
    if (text)
        expressionValueSetText(result, evalCtx, text);
    else
        expressionValueSetMissing(result);
}

// Peeking at a text of the host; without one the value is missing.
static Boolean showText(const char *text, intptr_t *word) noexcept {
    *word = reinterpret_cast<intptr_t>(text);
    return text != nullptr;
}

#define HTTP_TEXT_OPERAND(x, slot)                                                                      \
    Boolean operandPeek_##x(const char *, const EvaluationContext *evalCtx, intptr_t *word) noexcept {  \
        return showText(askText(evalCtx, &RequestCalls::slot), word);                                   \
    }                                                                                                   \
    void operandValue_##x(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) noexcept { \
        setTextOrMissing(result, evalCtx, askText(evalCtx, &RequestCalls::slot));                       \
    }
HTTP_TEXT_OPERAND(uri, getPath)
HTTP_TEXT_OPERAND(userid, getUserName)
HTTP_TEXT_OPERAND(httpmethod, getMethod)
HTTP_TEXT_OPERAND(clientip, getClientIpAddr)
HTTP_TEXT_OPERAND(virtualHost, getVirtualHost)
HTTP_TEXT_OPERAND(serverip, getLocalAddress)
#undef HTTP_TEXT_OPERAND

#define HTTP_NAMED_OPERAND(x, slot)                                                                            \
    Boolean operandPeek_##x(const char *argument, const EvaluationContext *evalCtx, intptr_t *word) noexcept { \
        return showText(askText(evalCtx, &RequestCalls::slot, argument), word);                                \
    }                                                                                                          \
    void operandValue_##x(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {    \
        setTextOrMissing(result, evalCtx, askText(evalCtx, &RequestCalls::slot, argumentOf(expr)));            \
    }
HTTP_NAMED_OPERAND(header, getHeaderValue)
HTTP_NAMED_OPERAND(cookie, getCookieValue)
#undef HTTP_NAMED_OPERAND

// The only one whose value can be null: with "protocol IS NULL" a rule can ask for it.
Boolean operandPeek_protocol(const char *, const EvaluationContext *evalCtx, intptr_t *word) noexcept {
    showText(askText(evalCtx, &RequestCalls::getProtocol), word);
    return TRUE;
}

void operandValue_protocol(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {
    expressionValueSetText(result, evalCtx, askText(evalCtx, &RequestCalls::getProtocol));
}

Boolean operandPeek_virtualPort(const char *, const EvaluationContext *evalCtx, intptr_t *word) noexcept {
    const EnvCallBacks *env = getEnvCallbacksFromEvalCtx(evalCtx);
    if (!env || !env->http.request.getVirtualPort) return FALSE;
    *word = env->http.request.getVirtualPort(getEnvHttpCtxFromEvalCtx(evalCtx));
    return TRUE;
}

void operandValue_virtualPort(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {
    intptr_t port;
    if (operandPeek_virtualPort(nullptr, evalCtx, &port))
        expressionValueSetWord(result, port);
    else
        expressionValueSetMissing(result);
}

// A front proxy that resolved the client's name hands it on in the private header.
void operandValue_clienthost(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {
    const char *host = askText(evalCtx, &RequestCalls::getHeaderValue, "$ZVRH");
    if (!host || !*host) host = askText(evalCtx, &RequestCalls::getClientHostName);
    setTextOrMissing(result, evalCtx, host);
}

// ---- query parameters ----

// The name may stand anywhere in the query, also inside another parameter. No view: it is not there.
static std::string_view findQueryParm(std::string_view query, std::string_view name) noexcept {
    size_t begin = query.find(name);
    if (begin == std::string_view::npos) return {};
    query.remove_prefix(begin);
    size_t equals = query.find('='), ampersand = query.find('&');
    if (equals > ampersand || equals == std::string_view::npos)
        return query.substr(0, ampersand); // a parameter without a value: its own text
    return query.substr(equals + 1, ampersand == std::string_view::npos ? ampersand : ampersand - equals - 1);
}

char *getQueryParm(const char *queryString, const char *name) noexcept {
    if (!queryString || !name) return nullptr;
    std::string_view value = findQueryParm(queryString, name);
    return value.data() ? tavStrndup(value.data(), value.size()) : nullptr;
}

// A query string without the parameter has a value: null.
void operandValue_queryparm(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {
    const char *query = askText(evalCtx, &RequestCalls::getQueryString);
    const char *name = argumentOf(expr);
    if (!query || !name) return expressionValueSetMissing(result);
    std::string_view value = findQueryParm(query, name);
    if (value.data())
        expressionValueSetTextView(result, evalCtx, value);
    else
        expressionValueSetText(result, evalCtx, nullptr);
}

// ---- groups ----

// "('first','second')": a text, although the operand is declared a list.
static bool joinGroups(TavStringBuffer *sb, char **groups) noexcept {
    sbAdd(sb, "('");
    for (char **group = groups; *group; group++) {
        if (group != groups) sbAdd(sb, "','");
        sbAdd(sb, *group);
    }
    sbAdd(sb, "')");
    return !sb->failed;
}

void operandValue_groupids(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) noexcept {
    const EnvCallBacks *env = getEnvCallbacksFromEvalCtx(evalCtx);
    auto getGroupNames = env ? env->http.request.getGroupNames : nullptr;
    char **groups = getGroupNames ? getGroupNames(getEnvHttpCtxFromEvalCtx(evalCtx)) : nullptr;
    if (!groups) return expressionValueSetMissing(result);
    if (!*groups) return expressionValueSetText(result, evalCtx, nullptr);
    TavStringBufferPtr sb(sbCreate(256));
    if (sb && joinGroups(sb.get(), groups))
        expressionValueSetText(result, evalCtx, sbStr(sb.get()));
    else
        expressionValueSetMissing(result);
}

// ---- expressions ----

static Expression *createExpression(const char *creator, OperandContext *ctx, bool hasArgument) noexcept {
    if (!ctx) return nullptr;
    const int given = operandContextGetNumArguments(ctx);
    if (hasArgument && given != 1) {
        langReportError(ERROR_MODULE, "In %s - invalid number of inputs (%d) - expecting 1.\n", creator, given);
        return nullptr;
    }
    auto *expr = static_cast<HttpOperandExpression *>(tavMalloc(sizeof(HttpOperandExpression)));
    if (!expr) return nullptr;
    if (hasArgument) expr->argument = operandContextGetArgument(ctx, 0);
    return &expr->base;
}

// Nothing to destroy: the argument goes with the expression's context.
#define HTTP_OPERAND(x, hasArgument)                                                       \
    intptr_t *operandEvaluate_##x(Expression *expr, EvaluationContext *evalCtx) noexcept { \
        return operandEvaluateAsCell<operandValue_##x>(expr, evalCtx);                     \
    }                                                                                      \
    Expression *operandCreateExpression_##x(Operand *, OperandContext *ctx) noexcept {     \
        return createExpression("operandCreateExpression_" #x, ctx, hasArgument);          \
    }                                                                                      \
    void operandDestroyExpression_##x(Expression *) noexcept {}
TAV_HTTP_OPERANDS(HTTP_OPERAND)
#undef HTTP_OPERAND
