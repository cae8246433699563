#include "FakesForRules.h"

#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavUtil/tavMemory.h"

namespace {

Expression *createOperand(Operand *, OperandContext *) { return static_cast<Expression *>(tavMalloc(sizeof(Expression))); }

EnvHttpContext *requestOf(EvaluationContext *evalCtx) {
    return tavHttpContextGetEnvContext(static_cast<TavHttpContext *>(evaluationContextGetObject(evalCtx)));
}

const EnvCallBacks &callbacksOf(EvaluationContext *evalCtx) {
    return *tavGetEnvCallBacks(tavHttpContextGetTav(static_cast<TavHttpContext *>(evaluationContextGetObject(evalCtx))));
}

void uriValue(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) {
    const char *path = callbacksOf(evalCtx).http.request.getPath(requestOf(evalCtx));
    if (path) {
        expressionValueSetText(result, evalCtx, path);
    } else {
        expressionValueSetMissing(result);
    }
}

void portValue(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) {
    expressionValueSetWord(result, callbacksOf(evalCtx).http.request.getVirtualPort(requestOf(evalCtx)));
}

template <OperandValueFcn valueFcn>
void registerOperand(Language *language, const char *name, ExpressionType type) {
    Operand *operand =
        operandCreate(name, 0, nullptr, 0, nullptr, createOperand, nullptr, operandEvaluateAsCell<valueFcn>, nullptr, 1, type);
    operandSetEvaluateInto(operand, valueFcn);
    langRegisterOperand(language, operand);
}

} // namespace

Language *fakeHttpLanguageCreate() {
    Language *language = langCreate(nullptr, nullptr);
    langRegisterCommonOperands(language);
    registerOperand<uriValue>(language, "uri", EXPR_STRING);
    registerOperand<portValue>(language, "port", EXPR_INT);
    langRegisterCommonOperators(language);
    return language;
}

void RulesTest::SetUp() {
    ModelTest::SetUp();
    tav.httpLanguage = fakeHttpLanguageCreate();
}

void RulesTest::TearDown() {
    langFree(tav.httpLanguage);
    ModelTest::TearDown();
}

TavHttpContext RulesTest::request(const char *path) {
    TavHttpContext ctx;
    ctx.tav = &tav;
    ctx.trContext = trMgrGetDefaultContext(tav.mgr);
    ctx.request.path = fakeText(path);
    return ctx;
}
