#include "LanguageFixture.h"

namespace {

TestRequest *requestOf(EvaluationContext *evalCtx) { return static_cast<TestRequest *>(evaluationContextGetObject(evalCtx)); }
const char *argumentOf(const Expression *expr, int index) {
    return operandContextGetArgument(reinterpret_cast<const OperandContext *>(expressionGetContext(expr)), index);
}

Expression *createPlain(Operand *operand, OperandContext *ctx) {
    return operandContextGetNumArguments(ctx) == operand->numFormalArgs ? tavNewRecord<Expression>() : nullptr;
}

void nameValue(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) {
    ++requestOf(evalCtx)->asked;
    if (!requestOf(evalCtx)->name) return expressionValueSetMissing(result);
    expressionValueSetText(result, evalCtx, requestOf(evalCtx)->name);
}

Boolean nameShown(const char *, const EvaluationContext *evalCtx, intptr_t *word) {
    auto *request = static_cast<TestRequest *>(evaluationContextGetObject(evalCtx));
    ++request->asked;
    *word = reinterpret_cast<intptr_t>(request->name);
    return request->name != nullptr;
}

void joinedArguments(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) {
    std::string joined = argumentOf(expr, 0);
    if (argumentOf(expr, 1)) joined += std::string("|") + argumentOf(expr, 1);
    expressionValueSetTextView(result, evalCtx, joined);
}

intptr_t *portCell(Expression *, EvaluationContext *evalCtx) { return expressionCellCreate(requestOf(evalCtx)->port); }
intptr_t *groupsCell(Expression *, EvaluationContext *evalCtx) { return expressionCellCreateText(requestOf(evalCtx)->groups); }
intptr_t *levelCell(Expression *, EvaluationContext *) { return expressionCellCreate(9); }
intptr_t *twofoldCell(Expression *expr, EvaluationContext *) {
    return expressionGetType(expr) == EXPR_INT ? expressionCellCreate(2) : expressionCellCreateText("two");
}

struct TestOperand {
    const char *name;
    const char *args[2];
    EvaluateFcn evaluate;
    OperandValueFcn evaluateInto;
    int numTypes;
    ExpressionType types[2];
};

const TestOperand testOperands[] = {
    {"name", {}, operandEvaluateAsCell<nameValue>, nameValue, 1, {EXPR_STRING}},
    {"port", {}, portCell, nullptr, 1, {EXPR_INT}},
    {"groups", {"realm"}, groupsCell, nullptr, 1, {EXPR_LIST}},
    {"echo", {"text"}, operandEvaluateAsCell<joinedArguments>, joinedArguments, 1, {EXPR_STRING}},
    {"pair", {"left", "right"}, operandEvaluateAsCell<joinedArguments>, joinedArguments, 1, {EXPR_STRING}},
    {"twofold", {}, twofoldCell, nullptr, 2, {EXPR_STRING, EXPR_INT}},
};

bool registerTestOperand(Language *language, const TestOperand &row) {
    FormalArg *args[2];
    int count = 0;
    for (const char *name : row.args) {
        if (name) args[count++] = formalArgCreate(name, ARG_STRING, "none", 0, nullptr);
    }
    Operand *operand = operandCreate(row.name, 0, nullptr, count, args, createPlain, nullptr, row.evaluate, nullptr, row.numTypes,
                                     row.types[0], row.types[1]);
    operandSetEvaluateInto(operand, row.evaluateInto);
    if (row.evaluateInto == nameValue) operandSetPeek(operand, nameShown);
    langRegisterOperand(language, operand);
    return langFindOperand(language, row.name) != nullptr;
}

bool registerLevel(Language *language) {
    SelectableValue *values[] = {selectableValueCreate("low", 1), selectableValueCreate("high", 9)};
    langRegisterOperand(language, operandCreate("level", 2, values, 0, nullptr, createPlain, nullptr, levelCell, nullptr, 1, EXPR_INT));
    return langFindOperand(language, "level") != nullptr;
}

} // namespace

Language *createTestLanguage() {
    LanguagePtr language(langCreate(nullptr, nullptr));
    bool complete = language && langRegisterCommonOperands(language.get()) && langRegisterCommonOperators(language.get());
    for (const TestOperand &row : testOperands) complete = complete && registerTestOperand(language.get(), row);
    complete = complete && registerLevel(language.get());
    return complete ? language.release() : nullptr;
}
