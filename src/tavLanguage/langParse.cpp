// The parser: tokens to elements, levels of parentheses, lists.
//
// Idea: one list of elements for all open levels, each level knowing where its own begin, and a stack of levels instead of recursion.
// After each token the tail of the list is reduced as far as it goes (langReduce.cpp). Closing a level turns what is left of it into one
// expression, or into a list, and hands that to the level around it.
// Consequences that look odd and are meant: operands that stand alone in parentheses or last in a list are made for the expected type
// EXPR_LIST, the other list members for none, so that they rarely fit anything; a group without an operator is always a list; a group
// that yields nothing is passed over; the type of the whole is never compared with the expected one.
// Ownership: the parser owns elements and comma lists until they move into an expression. Texts of tokens are borrowed and not used after
// an error was recorded.
#include <cstdlib>
#include <cstring>
#include <new>

#include "tavLanguage/langParser.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

constexpr const char *moduleName = "tavLanguage";

void freeExpressionObject(void *expr) noexcept { expressionFree(static_cast<Expression *>(expr)); }

// The list's members are only looked at.
bool isHomogeneous(const TavList *list) noexcept {
    const TavListEle *head = tavListGetHead(list);
    if (!head) return false;
    const ExpressionType type = expressionGetType(static_cast<const Expression *>(head->object));
    for (const Expression *member : TavListRange<Expression>(list)) {
        if (expressionGetType(member) != type) return false;
    }
    return true;
}

} // namespace

const char *elementEntryTypeToString(ElementEntryType type) noexcept {
    switch (type) {
        case eet_Unknown:
            return "eet_Unknown";
        case eet_OperandInstanceInfo:
            return "eet_OperandInstanceInfo";
        case eet_Identifier:
            return "eet_Identifier";
        case eet_Expression:
            return "eet_Expression";
    }
    return "Unknown";
}

Expression *langParse(Language *language, Tokenizer *tokenizer, int depth, ExpressionType expectedType, void *passback) noexcept {
    if (!language || tokenizerIsError(tokenizer)) return nullptr;
    const unsigned failures = tavAllocationFailures();
    try {
        ExpressionPtr result(LangParser(language, tokenizer, passback).parse(depth, expectedType));
        // Where memory ran out, an operator may have been passed over: even a tree is then not the text's.
        if (tavAllocationFailures() == failures) return result.release();
    } catch (const std::bad_alloc &) {
        tavNoteAllocationFailure();
    }
    tokenizerSetOutOfMemory(tokenizer);
    return nullptr;
}

LangParser::~LangParser() {
    dropElements(0);
    for (Level &open : levels_) tavListDestroy(open.commaList);
    expressionFree(result_);
}

Expression *LangParser::parse(int depth, ExpressionType expectedType) {
    openLevel(depth, expectedType);
    while (!levels_.empty()) {
        if (!step()) return nullptr;
    }
    Expression *result = result_;
    result_ = nullptr;
    return result;
}

bool LangParser::step() {
    const Token *token = consume();
    if (!token) {
        const char *expression = tokenizerGetExpressionString(tokenizer_);
        return fail("INTERNAL TAV_ERROR - Ran out of tokens before EOF", static_cast<int>(std::strlen(expression)));
    }
    switch (token->type) {
        case TOKEN_EOF:
            return level().depth > 0 ? fail("Expecting right parentheses") : closeLevel();
        case TOKEN_INTEGER:
        case TOKEN_LONG:
        case TOKEN_LITERAL:
            if (!appendConstant(token->type)) return false;
            break;
        case TOKEN_LT_PAREN:
            openLevel(level().depth + 1, EXPR_LIST);
            return true;
        case TOKEN_RT_PAREN:
            if (level().depth <= 0) return fail("Unmatched right parentheses");
            if (!level().commaList && !level().reduced && !startCommaList()) return false;
            return closeLevel();
        case TOKEN_COMMA:
            return closeListElement();
        case TOKEN_SUBEXPRESSION:
            if (!appendWord()) return false;
            break;
        default:
            return fail("Unrecognized token");
    }
    langReduceCompletely();
    return true;
}

void LangParser::openLevel(int depth, ExpressionType expectedType) {
    levels_.push_back({depth, expectedType, elements_.size(), nullptr, false});
}

bool LangParser::closeLevel() {
    if (level().commaList && level().reduced) {
        langReportError(moduleName, " Syntax error: Found an operator when expecting a list.");
        return fail("Found an operator when expecting a list.", 0);
    }
    Expression *result = takeResult(level().expectedType);
    if (elementCount() > 0) {
        langReportError(moduleName, "elements(%p) is not empty!  Cleaning it now.", static_cast<void *>(&elements_));
        dropElements(level().firstElement);
    }
    if (level().commaList && !takeList(result, &result)) return false;

    levels_.pop_back();
    if (levels_.empty()) {
        result_ = result;
    } else if (result) {
        appendExpression(result);
        langReduceCompletely();
    }
    return true;
}

// Takes what a level left over, as an expression: null when that is not exactly one element that can be one.
Expression *LangParser::takeResult(ExpressionType expectedType) {
    if (elementCount() != 1) {
        langReportError(moduleName, "langGetExpression returned NULL; Unable to reduce expression. %d elements.",
                        static_cast<int>(elementCount()));
        return nullptr;
    }
    ElementEntry &element = elements_.back();
    Expression *result = nullptr;
    if (element.elementType == eet_OperandInstanceInfo) {
        result = createOperandExpression(static_cast<OperandInstanceInfo *>(element.object), expectedType);
    } else if (element.elementType == eet_Expression) {
        result = static_cast<Expression *>(element.object);
        element.destructor = nullptr;
    } else {
        langReportError(moduleName, "Did not understand what type of element this was, so can't make an expression. elementType=%x",
                        static_cast<unsigned>(element.elementType));
        return nullptr;
    }
    dropElements(elements_.size() - 1);
    return result;
}

// Turns the level's comma list, with `last` (may be null) at its end, into a list expression.
bool LangParser::takeList(Expression *last, Expression **result) {
    TavList *list = level().commaList;
    *result = nullptr;
    if (last && !tavListAddTail(list, last)) return false;
    if (!isHomogeneous(list)) return fail("List types must be homogeneous.", 0);
    ExpressionContextPtr ctx(createContext(EXPR_LIST));
    Expression *expr = listExpressionCreate(ctx.get());
    if (!expr) return false;
    ctx.release()->exprString = nullptr;
    expressionSetListValue(expr, list);
    level().commaList = nullptr;
    *result = expr;
    return true;
}

bool LangParser::closeListElement() {
    if (elementCount() != 1) return fail("Unresolved list element");
    if (!level().commaList && !startCommaList()) return false;
    Expression *member = takeResult(EXPR_UNKNOWN);
    if (elementCount() > 0) {
        const auto address = static_cast<unsigned>(reinterpret_cast<uintptr_t>(&elements_));
        langReportError(moduleName, "elements(%x) is not empty!  Cleaning it now.", address);
        dropElements(level().firstElement);
    }
    if (!member) return fail("Empty expression before comma");
    return tavListAddTail(level().commaList, member) != nullptr;
}

bool LangParser::startCommaList() noexcept {
    level().commaList = tavListCreate(freeExpressionObject);
    return level().commaList != nullptr;
}

bool LangParser::appendConstant(TOKEN_TYPE type) {
    ExpressionContextPtr ctx(createContext(EXPR_UNKNOWN));
    Expression *expr = nullptr;
    bool stored = true;
    if (type == TOKEN_LITERAL) {
        expr = stringConstantExpressionCreate(ctx.get());
        stored = expressionSetStringValue(expr, text_);
    } else if (type == TOKEN_LONG) {
        expr = longConstantExpressionCreate(ctx.get());
        expressionSetLongValue(expr, static_cast<long>(std::strtoll(text_, nullptr, 10)));
    } else {
        expr = integerConstantExpressionCreate(ctx.get());
        expressionSetIntegerValue(expr, static_cast<int32_t>(std::strtoll(text_, nullptr, 10)));
    }
    if (!expr) return false;
    ctx.release()->exprString = nullptr;
    appendExpression(expr);
    return stored;
}

ExpressionContext *LangParser::createContext(ExpressionType type) noexcept {
    return expressionContextCreate(type, nullptr, passback_, language_, level().depth, position_, text_);
}

Expression *LangParser::createOperandExpression(const OperandInstanceInfo *info, ExpressionType expectedType) noexcept {
    OperandContext *ctx = operandContextCreate(expectedType, level().depth, language_, passback_, info->numActualArguments,
                                               info->actualArguments, position_, text_);
    if (!ctx) return nullptr;
    Expression *expr = operandCreateExpression(info->operand, ctx);
    ctx->expressionContext.exprString = nullptr;
    if (!expr) expressionContextFree(&ctx->expressionContext);
    return expr;
}

void LangParser::appendExpression(Expression *expr) { append(eet_Expression, freeExpressionObject, expr); }

void LangParser::append(ElementEntryType type, void (*destructor)(void *), void *object) {
    try {
        elements_.push_back({type, destructor, object});
    } catch (const std::bad_alloc &) {
        destructor(object);
        throw;
    }
    if (language_->trRec) {
        TR_DEBUG(language_->trCtx, language_->trRec, "tavLanguage: %s at depth %d, position %d\n", elementEntryTypeToString(type),
                 level().depth, position_);
    }
}

void LangParser::dropElements(size_t from) noexcept {
    for (; elements_.size() > from; elements_.pop_back()) {
        const ElementEntry &element = elements_.back();
        if (element.destructor) element.destructor(element.object);
    }
}

Token *LangParser::consume() noexcept {
    Token *token = tokenizerConsumeNextToken(tokenizer_);
    if (token) {
        position_ = token->position;
        text_ = token->string;
    }
    return token;
}

bool LangParser::fail(const char *message) noexcept { return fail(message, position_); }

bool LangParser::fail(const char *message, int position) noexcept {
    syntaxError(tokenizer_, message, position);
    return false;
}
