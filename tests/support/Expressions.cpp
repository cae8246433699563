#include "support/Expressions.h"

#include <gtest/gtest.h>

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
    if (!parsed.expr) return parsed.error();
    EvaluationContext evalCtx;
    evaluationContextInit(&evalCtx, nullptr, nullptr, object);

    ExpressionValue value;
    expressionEvaluateInto(parsed.expr.get(), &evalCtx, &value);
    const std::string byValue = describe(value);
    const bool truth = value.word != 0;
    EXPECT_EQ(expressionIsTrue(parsed.expr.get(), &evalCtx), truth) << text;
    expressionValueClear(&value);

    intptr_t *cell = expressionEvaluate(parsed.expr.get(), &evalCtx);
    EXPECT_EQ(describe({cell ? *cell : 0, cell ? expressionGetValueKind(parsed.expr.get()) : VALUE_MISSING, false}), byValue) << text;
    expressionCellFree(parsed.expr.get(), cell);

    Expression *alone = parsed.expr.get();
    ConditionProgram *program = conditionProgramCreate(&alone, 1);
    EXPECT_EQ(conditionProgramFirst(program, &evalCtx), truth ? 0 : -1) << text;
    conditionProgramFree(program);
    evaluationContextClear(&evalCtx);
    return byValue;
}
