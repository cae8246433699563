// Rules outside a configuration: parsed and evaluated as the request mapper would.
#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "engine/Inside.h"
#include "engine/TraceLog.h"
#include "support/Fault.h"
#include "tavInstance/tavInstance.h"
#include "tavLanguage/tavExpression.h"
#include "tavRule/tavRule.h"

namespace tavctl {

namespace {

constexpr int MAX_INDENTED_LEVELS = 100;

struct RuleDeleter {
    void operator()(TavRule *rule) const noexcept { tavRuleFree(rule); }
};

const char *kindOf(const ExpressionNode *node) {
    switch (node->type) {
        case EXPR_BOOLEAN:
            return "boolean";
        case EXPR_INT:
        case EXPR_LONG:
            return "number";
        case EXPR_STRING:
            return "text";
        case EXPR_LIST:
            return "list";
        default:
            return "unknown";
    }
}

std::string describe(const ExpressionNode *node) {
    switch (node->kind) {
        case NODE_CONSTANT:
            return node->type == EXPR_STRING ? fmt::format("'{}'", node->name) : node->name;
        case NODE_LIST:
            return "list";
        case NODE_OPERATOR:
            return fmt::format("{} ({})", node->name, kindOf(node));
        default:
            break;
    }
    std::string text = node->name;
    for (int i = 0; i < node->numArgs; i++) text += fmt::format("{}'{}'", i == 0 ? "(" : ", ", node->args[i] ? node->args[i] : "");
    return node->numArgs > 0 ? text + ")" : text;
}

void addNode(const ExpressionNode *node, void *passback) {
    auto *tree = static_cast<std::vector<std::string> *>(passback);
    // A chain of n operators is n levels deep: its lines must not take n * n blanks.
    const int level = std::min(node->level, MAX_INDENTED_LEVELS);
    tree->push_back(std::string(static_cast<size_t>(level) * 2, ' ') + describe(node));
}

std::string orEmpty(const char *text) { return text ? text : ""; }

} // namespace

struct RuleReader::Rules {
    TavRules *set;
    ~Rules() { tavRulesFree(set); }
};

RuleReader::RuleReader(Tav *tav) : rules_(new Rules{tavRulesCreate(tavGetHttpLanguage(tav), tav)}) {
    if (!rules_->set) throw InternalFault("the rule language could not be started");
}

RuleReader::~RuleReader() = default;

RuleOutcome RuleReader::read(const std::string &expression, TavHttpContext *ctx, bool explained) const {
    const std::unique_ptr<TavRule, RuleDeleter> rule(tavRuleCreate(rules_->set));
    if (!rule || !tavRuleSetExpr(rule.get(), expression.c_str())) throw InternalFault("no memory for the rule");
    RuleOutcome outcome;
    outcome.parses = !tavRuleIsError(rule.get()) && tavRuleGetExpr(rule.get());
    outcome.position = tavRuleGetErrorPosition(rule.get());
    outcome.message = orEmpty(tavRuleGetError(rule.get()));
    outcome.indicator = orEmpty(tavRuleGetErrorPositionIndicatorString(rule.get()));
    if (!outcome.parses) return outcome;
    if (explained) expressionWalk(tavRuleGetExpr(rule.get()), addNode, &outcome.tree);
    if (!ctx) return outcome;
    TraceLines lines;
    {
        std::optional<TraceRecording> recording;
        if (explained) recording.emplace(lines);
        outcome.value = tavRuleMatches(explained ? tavHttpContextGetTrContext(ctx) : nullptr, rule.get(), ctx) != 0;
    }
    outcome.steps = evaluationSteps(lines);
    return outcome;
}

} // namespace tavctl
