// Reduction: matching operator patterns against the tail of the element list.
//
// Only the tail can match: before the last element came, the list of this level could not be reduced any further, so each operator is
// tried at exactly one place, where its pattern would end at the tail. Matching changes nothing; a full match is first turned into inputs
// (operand expressions, selected values, members taken out of one-element lists), then into the operator's expression, and only when that
// exists do the elements go. A creator that refuses is no match.
#include <new>

#include "tavLanguage/langParser.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

constexpr const char *moduleName = "tavLanguage";

bool isKeyword(const ElementEntry &element, const InputElement *pattern) noexcept {
    const char *keyword = reinterpret_cast<const TokenInputElement *>(pattern)->string;
    return element.elementType == eet_Identifier && tavStrCmpIgnoreCase(static_cast<const char *>(element.object), keyword) == 0;
}

// INT and LONG stand for each other.
bool typesAgree(ExpressionType given, ExpressionType expected) noexcept {
    if (given == expected) return true;
    return (given == EXPR_INT && expected == EXPR_LONG) || (given == EXPR_LONG && expected == EXPR_INT);
}

// The innermost expression of nested one-element lists.
Expression *peel(Expression *expr) noexcept {
    while (expressionIsList(expr) && tavListGetCount(expressionGetListValue(expr)) == 1) {
        expr = static_cast<Expression *>(tavListGetHead(expressionGetListValue(expr))->object);
    }
    return expr;
}

// Takes `inner` out of the nest that peel() looked into; the empty nest stays.
void detachPeeled(Expression *outer, const Expression *inner) noexcept {
    while (tavListGetHead(expressionGetListValue(outer))->object != inner) {
        outer = static_cast<Expression *>(tavListGetHead(expressionGetListValue(outer))->object);
    }
    tavListRemoveHead(expressionGetListValue(outer));
}

bool isStringConstant(const Expression *expr) noexcept {
    return expr->embodiment == EXPR_IS_CONSTANT && expressionGetType(expr) == EXPR_STRING;
}

const SelectableValue *findSelectable(const Operand *operand, const Expression *literal) noexcept {
    if (!operand) {
        langReportError(moduleName, "Operand is null in langConvertStringLiteralToInt");
        return nullptr;
    }
    for (int i = 0; i < operand->numSelectableValues; ++i) {
        const SelectableValue *value = operand->selectableValues[i];
        if (tavStrCmpIgnoreCase(value->string, expressionGetStringValue(literal)) == 0) return value;
    }
    return nullptr;
}

// The integer constant that takes the literal's place, with the literal's context data.
Expression *convertLiteral(const Expression *literal, const SelectableValue *selected) noexcept {
    const ExpressionContext *old = expressionGetContext(literal);
    ExpressionContextPtr ctx(
        expressionContextCreate(EXPR_INT, nullptr, old->passback, old->language, old->depth, old->exprPos, old->exprString));
    Expression *expr = integerConstantExpressionCreate(ctx.get());
    if (!expr) return nullptr;
    ctx.release();
    expressionSetIntegerValue(expr, selectableValueGetIntValue(selected));
    return expr;
}

} // namespace

void LangParser::langReduceCompletely() {
    while (langReduceSinglePass()) level().reduced = true;
}

// TRUE when it replaced something.
bool LangParser::langReduceSinglePass() {
    for (Operator *op : TavListRange<Operator>(language_->operators)) {
        Expression *expr = langTryCreateExpression(op);
        if (!expr) continue;
        replaceTail(static_cast<size_t>(op->numInputElements), expr);
        if (language_->trRec) {
            TR_DEBUG(language_->trCtx, language_->trRec, "tavLanguage: reduced %d elements by %s at depth %d\n", op->numInputElements,
                     op->name, level().depth);
        }
        return true;
    }
    return false;
}

// The operator's expression over the tail of the elements, which stay where they are; null when they do not match.
Expression *LangParser::langTryCreateExpression(Operator *op) {
    const auto length = static_cast<size_t>(op->numInputElements > 0 ? op->numInputElements : 0);
    if (length == 0 || length > elementCount() || !match(op, &elements_[elements_.size() - length])) return nullptr;
    Expression *expr = prepareInputs(op) ? createReduced(op) : nullptr;
    if (!expr) discardInputs();
    return expr;
}

bool LangParser::match(const Operator *op, ElementEntry *first) {
    plan_.clear();
    Operand *operand = nullptr;
    for (int i = 0; i < op->numInputElements; ++i) {
        const InputElement *pattern = op->inputElements[i];
        ElementEntry &element = first[i];
        if (pattern->ie_type == IETYPE_TOKEN) {
            if (!isKeyword(element, pattern)) return false;
            continue;
        }
        if (pattern->ie_type != IETYPE_EXPRTYPE) {
            langReportError(moduleName, "Bad expected type!  expectedEle=%d", static_cast<int>(pattern->ie_type));
            return false;
        }
        const ExpressionType expected = reinterpret_cast<const TypeInputElement *>(pattern)->type;
        if (element.elementType == eet_OperandInstanceInfo) {
            operand = static_cast<OperandInstanceInfo *>(element.object)->operand;
            if (!operandReturnsType(operand, expected)) return false;
            plan_.push_back({&element, expected, nullptr, nullptr, nullptr});
        } else if (element.elementType != eet_Expression || !matchExpression(i == 0, expected, operand, &element)) {
            return false;
        }
    }
    return true;
}

bool LangParser::matchExpression(bool first, ExpressionType expected, Operand *operand, ElementEntry *element) {
    auto *expr = static_cast<Expression *>(element->object);
    if (!first && expected == EXPR_INT && isStringConstant(expr)) {
        const SelectableValue *selected = findSelectable(operand, expr);
        if (selected) plan_.push_back({element, expected, operand, selected, nullptr});
        return selected != nullptr;
    }
    if (!typesAgree(expressionGetType(expr), expected)) {
        expr = peel(expr);
        if (expressionGetType(expr) != expected) return false;
    }
    plan_.push_back({element, expected, operand, nullptr, expr});
    return true;
}

// Makes the expressions that the matched inputs still lack, and shows operands what they meet.
bool LangParser::prepareInputs(Operator *op) {
    for (PlannedInput &planned : plan_) {
        if (planned.input) continue;
        planned.input = planned.selected
                            ? convertLiteral(static_cast<Expression *>(planned.element->object), planned.selected)
                            : createOperandExpression(static_cast<OperandInstanceInfo *>(planned.element->object), planned.expectedType);
        if (!planned.input) return false;
    }
    for (const PlannedInput &planned : plan_) {
        if (planned.operand && planned.operand->validateInput) planned.operand->validateInput(planned.operand, op, planned.input);
    }
    return true;
}

Expression *LangParser::createReduced(Operator *op) noexcept {
    const TavListPtr inputs(tavListCreate(nullptr));
    bool listed = inputs != nullptr;
    for (const PlannedInput &planned : plan_) listed = listed && tavListAddTail(inputs.get(), planned.input);
    OperatorContext *ctx =
        listed ? operatorContextCreate(op, level().depth, language_, passback_, inputs.get(), position_, text_) : nullptr;
    if (!ctx) return nullptr;
    Expression *expr = operatorCreateExpression(op, ctx);
    ctx->expressionContext.exprString = nullptr;
    if (!expr) expressionContextFree(&ctx->expressionContext);
    return expr;
}

// Frees what prepareInputs made; what the elements own stays theirs.
void LangParser::discardInputs() noexcept {
    for (const PlannedInput &planned : plan_) {
        if (planned.selected || planned.element->elementType == eet_OperandInstanceInfo) expressionFree(planned.input);
    }
    plan_.clear();
}

// The inputs now belong to `expr`; what else the matched elements hold goes with them.
void LangParser::replaceTail(size_t count, Expression *expr) noexcept {
    for (const PlannedInput &planned : plan_) {
        if (planned.selected || planned.element->elementType == eet_OperandInstanceInfo) continue;
        if (planned.input == planned.element->object) {
            planned.element->destructor = nullptr;
        } else {
            detachPeeled(static_cast<Expression *>(planned.element->object), planned.input);
        }
    }
    plan_.clear();
    dropElements(elements_.size() - count);
    appendExpression(expr); // into room that was just given up
}
