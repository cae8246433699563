// A rule on a request. Lines: expression, action, path, query, method, host; then headers "name: value" until the end.
//
// The value must be the same in every way of evaluation, a rule set must come to the same verdict, and everything must be given back.
#include <cstring>

#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "support/Expressions.h"
#include "tavHttpLanguage/tavHttpLanguage.h"
#include "tavRule/tavRule.h"

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
    {
        const FuzzBalance balance;
        const Parsed parsed(tavGetHttpLanguage(tav), expression);
        const std::string value = parsed.expr ? valueOf(parsed.expr.get(), ctx) : "missing";
        FUZZ_CHECK(!parsed.expr || parsed.tree() != "(none)");
        int verdict = -1;
        if (isRepeatable(expression)) {
            FUZZ_CHECK(!value.starts_with("differs"));
            verdict = value != "FALSE" && value != "null" && value != "missing";
        }
        matchInSet(tav, expression, action, ctx, verdict);
    }
    tavHttpContextRelease(ctx);
    return 0;
}
