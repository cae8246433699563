// Matching: a request pins the set's array, walks it without a lock and keeps the pin with the entry that it found.
#include <utility>

#include "tavLanguage/tavExpression.h"
#include "tavRule/tavRule.h"
#include "tavRule/tavRuleParts.h"
#include "tr/tr.h"

namespace {

// The evaluation context of one walk, on the walker's stack.
class Evaluation {
public:
    Evaluation(TrContext *trCtx, TrRecord *record, TavHttpContext *ctx) noexcept { evaluationContextInit(&context_, trCtx, record, ctx); }
    ~Evaluation() noexcept { evaluationContextClear(&context_); }
    Evaluation(const Evaluation &) = delete;
    Evaluation &operator=(const Evaluation &) = delete;
    bool isTrue(Expression *expr) noexcept { return expr && expressionIsTrue(expr, &context_); }
    bool isTraced() const noexcept { return evaluationIsTraced(&context_); }
    int firstOf(const ConditionProgram *program) noexcept { return conditionProgramFirst(program, &context_); }

private:
    EvaluationContext context_;
};

// The plain way: one tree after the other. It alone writes the lines of an evaluation and passes over dead entries.
const TavRuleEntry *findMatchByTrees(TavRuleArray *array, Evaluation &evaluation) noexcept {
    for (int i = 0; i < array->count; i++) {
        const TavRuleEntry *entry = array->entries()[i];
        if (!entry->dead.load(std::memory_order_relaxed) && evaluation.isTrue(entry->expr)) return entry;
    }
    return nullptr;
}

// The fast way, when nobody reads the lines of an evaluation: the whole array in one program.
const TavRuleEntry *findMatch(TavRuleArray *array, Evaluation &evaluation) noexcept {
    const bool plain = evaluation.isTraced() || array->hasDead.load(std::memory_order_relaxed);
    const ConditionProgram *program = plain ? nullptr : ruleArrayProgram(array);
    if (!program) return findMatchByTrees(array, evaluation);
    const int index = evaluation.firstOf(program);
    return index < 0 ? nullptr : array->entries()[index];
}

} // namespace

TavRuleMatch &TavRuleMatch::operator=(TavRuleMatch &&other) noexcept {
    if (this != &other) {
        reset();
        std::swap(array_, other.array_);
        std::swap(entry_, other.entry_);
    }
    return *this;
}

void TavRuleMatch::unpin() noexcept {
    ruleArrayRelease(array_);
    forget();
}

void TavRuleMatch::places(const void *(&addresses)[PLACES]) const noexcept {
    addresses[0] = array_;
    addresses[1] = array_ ? array_->program.load(std::memory_order_relaxed) : nullptr;
    addresses[2] = entry_;
    addresses[3] = entry_ ? entry_->action : nullptr;
}

TavRuleMatch tavRulesMatch(TrContext *trCtx, TavRules *rules, TavHttpContext *ctx) noexcept {
    if (!rules) return {};
    TavRuleArray *array = rulesPin(rules);
    if (array) {
        Evaluation evaluation(trCtx, rules->recReqProcess, ctx);
        if (const TavRuleEntry *entry = findMatch(array, evaluation)) {
            TR_DEBUG(trCtx, rules->recReqProcess, "tavRule: Rule #%d (%s) matches context %p", entry->order, entry->expressionString,
                     static_cast<void *>(ctx));
            return TavRuleMatch(array, entry);
        }
        ruleArrayRelease(array);
    }
    TR_DEBUG(trCtx, rules->recReqProcess, "tavRule: No rule found matching context %p", static_cast<void *>(ctx));
    return {};
}

TavRule *tavRulesFindMatchingRule(TrContext *trCtx, TavRules *rules, TavHttpContext *ctx) noexcept {
    TavRuleMatch match = tavRulesMatch(trCtx, rules, ctx);
    return match.entry() ? match.entry()->rule : nullptr;
}

void tavRulesForEach(TavRules *rules, TavRuleFcn fn, void *passback) noexcept {
    TavRuleArray *array = rules ? rulesPin(rules) : nullptr;
    if (!array) return;
    for (int i = 0; i < array->count; i++) {
        const TavRuleEntry *entry = array->entries()[i];
        if (!entry->dead.load(std::memory_order_relaxed)) fn(entry, entry->text ? entry->text->errorString : nullptr, passback);
    }
    ruleArrayRelease(array);
}

int tavRuleMatches(TrContext *trCtx, const TavRule *rule, TavHttpContext *ctx) noexcept {
    if (!rule || !rule->expr) return 0;
    Evaluation evaluation(trCtx, rule->rules ? rule->rules->recReqProcess : nullptr, ctx);
    return evaluation.isTrue(rule->expr) ? 1 : 0;
}
