// A rule on a request. Lines: expression, action, path, query, method, host; then headers "name: value" until the end.
//
// The value must be the same whether the expression is evaluated by value or by cells, a rule set must come to the same verdict, and
// everything must be given back.

#include <cstring>

#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "tavHttpLanguage/tavHttpLanguage.h"
#include "tavLanguage/tavLanguage.h"
#include "tavRule/tavRule.h"
#include "tavUtil/tavMemory.h"

namespace {

EnvHttpContext readRequest(FuzzInput &input) {
    EnvHttpContext request;
    request.path = input.line();
    if (const std::string query = input.line(); !query.empty()) request.query = query;
    if (const std::string method = input.line(); !method.empty()) request.method = method;
    if (const std::string host = input.line(); !host.empty()) request.host = host;
    request.groups = {"staff", "admins"};
    request.cookies["c"] = "v";
    while (!input.empty()) {
        const std::string header = input.line();
        const size_t colon = header.find(": ");
        if (colon != std::string::npos) request.headers[header.substr(0, colon)] = {header.substr(colon + 2)};
    }
    return request;
}

// Words that ask a clock or the dice: two evaluations need not agree.
bool isRepeatable(const std::string &text) {
    for (const char *word : {"percentage", "rampup", "time"})
        if (strcasestr(text.c_str(), word)) return false;
    return true;
}

struct Value {
    ExpressionValueKind kind;
    intptr_t word;
    std::string text;
    bool operator==(const Value &) const = default;
};

Value valueOf(ExpressionValueKind kind, intptr_t word) {
    const char *text = kind == VALUE_TEXT ? reinterpret_cast<const char *>(word) : nullptr;
    return {kind, kind == VALUE_TEXT ? word != 0 : word, text ? text : ""};
}

void evaluate(Expression *expr, TavHttpContext *ctx, bool repeatable) {
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, ctx);
    ExpressionValue value;
    expressionEvaluateInto(expr, &evalCtx, &value);
    const Value byValue = valueOf(value.kind, value.word);
    expressionValueClear(&value);
    intptr_t *cell = expressionEvaluate(expr, &evalCtx);
    const Value byCell = valueOf(cell ? expressionGetValueKind(expr) : VALUE_MISSING, cell ? *cell : 0);
    expressionCellFree(expr, cell);
    if (repeatable) {
        FUZZ_CHECK(byValue == byCell);
        FUZZ_CHECK(expressionIsTrue(expr, &evalCtx) == (byValue.word != 0));
    }
    evaluationContextClear(&evalCtx);
    const TavStringBufferPtr sb(sbCreate(64));
    FUZZ_CHECK(expressionDescribe(expr, sb.get()));
}

void matchInSet(Tav *tav, const std::string &expression, const std::string &action, TavHttpContext *ctx, int verdict) {
    TavRules *rules = tavRulesCreate(tavGetHttpLanguage(tav), tav);
    tavRulesSetType(rules, TAVRULESTYPE_WEBROUTEWORKCLASS);
    TavRule *rule = tavRuleCreate(rules);
    tavRuleSetType(rule, TAVRULETYPE_WEBROUTEWORKCLASS);
    tavRuleSetExpr(rule, expression.c_str());
    tavRuleSetObject(rule, actionCreate(action.c_str()));
    FUZZ_CHECK(tavRulesInsertRule(rules, rule));
    FUZZ_CHECK(tavRuleIsError(rule) == (tavRuleGetExpr(rule) == nullptr));
    {
        TavRuleMatch match = tavRulesMatch(tavHttpContextGetTrContext(ctx), rules, ctx);
        if (verdict >= 0) FUZZ_CHECK((match.entry() != nullptr) == (verdict != 0));
    }
    tavRulesFree(rules);
}

} // namespace

FUZZ_TARGET(fuzz_rule) {
    FuzzInput input(data, size);
    const std::string expression = input.line(), action = input.line();
    EnvHttpContext request = readRequest(input);
    Tav *tav = FuzzShop::get().tav;
    TavHttpContext *ctx = tavHttpContextObtain(tav, &request);
    FUZZ_CHECK(ctx);
    const int before = tavGetMemCount();

    int verdict = -1;
    {
        const bool repeatable = isRepeatable(expression);
        const TokenizerPtr tokenizer(tokenizerCreate(expression.c_str()));
        const ExpressionPtr expr(langParse(tavGetHttpLanguage(tav), tokenizer.get(), 0, EXPR_BOOLEAN, nullptr));
        if (expr) evaluate(expr.get(), ctx, repeatable);
        EvaluationContext evalCtx;
        evaluationContextInit(&evalCtx, nullptr, nullptr, ctx);
        if (repeatable) verdict = expr && expressionIsTrue(expr.get(), &evalCtx);
        evaluationContextClear(&evalCtx);
    }
    matchInSet(tav, expression, action, ctx, verdict);

    FUZZ_CHECK(tavGetMemCount() == before);
    tavHttpContextRelease(ctx);
    return 0;
}
