#include "support/Expressions.h"

#include "tavLanguage/conditionProgram.h"

static std::string describe(const ExpressionValue &value) {
    if (value.kind == VALUE_MISSING) return "missing";
    if (value.kind == VALUE_LIST) return "(list)";
    if (value.kind == VALUE_WORD) return value.word ? "TRUE" : "FALSE";
    const char *text = expressionValueGetText(&value);
    return text ? "'" + std::string(text) + "'" : "null";
}

Parsed::Parsed(Language *language, const std::string &text)
    : tokenizer(tokenizerCreate(text.c_str())), expr(langParse(language, tokenizer.get(), 0, EXPR_BOOLEAN, nullptr)) {}

std::string Parsed::error() const {
    if (expr) return "";
    if (!tokenizerIsError(tokenizer.get())) return "unreduced";
    return std::string(tokenizerGetErrorMessage(tokenizer.get())) + "@" + std::to_string(tokenizerGetErrorPosition(tokenizer.get()));
}

std::string Parsed::tree() const {
    const TavStringBufferPtr sb(sbCreate(16));
    return expressionDescribe(expr.get(), sb.get()) ? sbStr(sb.get()) : "(none)";
}

std::string valueOf(Language *language, const std::string &text, void *object) {
    const Parsed parsed(language, text);
    return parsed.expr ? valueOf(parsed.expr.get(), object) : parsed.error();
}

std::string valueOf(Expression *expr, void *object) {
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, object);

    ExpressionValue value;
    expressionEvaluateInto(expr, &evalCtx, &value);
    const std::string byValue = describe(value);
    const bool truth = value.word != 0, isTrue = expressionIsTrue(expr, &evalCtx);
    expressionValueClear(&value);

    intptr_t *cell = expressionEvaluate(expr, &evalCtx);
    const std::string byCell = describe({cell ? *cell : 0, cell ? expressionGetValueKind(expr) : VALUE_MISSING, false});
    expressionCellFree(expr, cell);

    ConditionProgram *program = conditionProgramCreate(&expr, 1);
    const bool byProgram = conditionProgramFirst(program, &evalCtx) == 0;
    conditionProgramFree(program);
    evaluationContextClear(&evalCtx);
    if (isTrue == truth && byCell == byValue && byProgram == truth) return byValue;
    return "differs: " + byValue + (isTrue ? ", is true, " : ", is not true, ") + byCell + (byProgram ? ", holds" : ", does not hold");
}
