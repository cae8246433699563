#include <memory>

#include "tavLanguage/tavLanguage.h"
#include "tavRule/tavRuleParts.h"
#include "tavTokenizer/tavTokenizer.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

struct TextReleaser {
    void operator()(TavRuleText *text) const noexcept { ruleTextRelease(text); }
};

TrContext *traceContext(const TavRules *rules) noexcept { return rules && rules->tav ? tavGetTrContext(rules->tav) : nullptr; }

// Puts the error into the text. FALSE without memory.
Boolean recordError(TavRuleText *text, const TavRules *rules, int order, const char *message, int position,
                    const char *indicator) noexcept {
    text->errorString = tavStrdup(message);
    text->errorPositionIndicatorString = tavStrdup(indicator);
    text->errorPosition = position;
    if (!text->errorString || !text->errorPositionIndicatorString) return FALSE;
    if (rules) {
        TR_DEBUG(traceContext(rules), rules->recCtrlParseError, "tavRule: Expression '%s' of rule #%d: %s, position=%d\n%s\n%s\n",
                 tavOrNull(text->expressionString), order, message, position, tavOrNull(text->expressionString), indicator);
    }
    return TRUE;
}

Boolean recordTokenizerError(TavRuleText *text, const TavRules *rules, int order, const Tokenizer *tokenizer) noexcept {
    return recordError(text, rules, order, tokenizerGetErrorMessage(tokenizer), tokenizerGetErrorPosition(tokenizer),
                       tokenizerGetErrorPositionIndicatorString(tokenizer));
}

// Fills in the expression or the error. FALSE without memory.
Boolean parse(TavRuleText *text, const TavRules *rules, int order) noexcept {
    TokenizerPtr tokenizer(tokenizerCreate(text->expressionString));
    if (text->expressionString && !tokenizer) return FALSE;
    if (tokenizer && tokenizerIsError(tokenizer.get())) return recordTokenizerError(text, rules, order, tokenizer.get());

    Language *language = rules ? rules->language : nullptr;
    if (language && tokenizer) {
        ExpressionPtr expr(langParse(language, tokenizer.get(), 0, EXPR_BOOLEAN, nullptr));
        if (tokenizer->outOfMemory) return FALSE;
        if (tokenizerIsError(tokenizer.get())) return recordTokenizerError(text, rules, order, tokenizer.get());
        text->expr = expr.release();
    }
    if (!text->expr) return recordError(text, rules, order, "tavRule: Internal Error - no expression created.", 0, "^");
    TR_DEBUG(traceContext(rules), rules->recCtrlParseProcess, "tavRule: Parsed expression '%s' for rule #%d", text->expressionString,
             order);
    return TRUE;
}

} // namespace

TavRuleText *ruleTextCreate(const TavRules *rules, int order, const char *expressionString) noexcept {
    std::unique_ptr<TavRuleText, TextReleaser> text(tavNewRecord<TavRuleText>());
    if (!text) return nullptr;
    text->refCount = 1;
    text->errorPosition = -1;
    text->expressionString = tavStrdup(expressionString);
    if (expressionString && !text->expressionString) return nullptr;
    return parse(text.get(), rules, order) ? text.release() : nullptr;
}

void ruleTextRelease(TavRuleText *text) noexcept {
    if (!text || text->refCount.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    expressionFree(text->expr);
    tavFree(text->expressionString);
    tavFree(text->errorString);
    tavFree(text->errorPositionIndicatorString);
    tavDestroyRecord(text);
}
