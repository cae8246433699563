#include "FakesForRules.h"

#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavUtil/tavMemory.h"

namespace {

Expression *createOperand(Operand *, OperandContext *) { return static_cast<Expression *>(tavMalloc(sizeof(Expression))); }

void uriValue(Expression *, EvaluationContext *evalCtx, ExpressionValue *result) {
    const FakeText &path = static_cast<TavHttpContext *>(evaluationContextGetObject(evalCtx))->request.path;
    if (path) {
        expressionValueSetText(result, evalCtx, path->c_str());
    } else {
        expressionValueSetMissing(result);
    }
}

} // namespace

void RulesTest::SetUp() {
    ModelTest::SetUp();
    Language *language = tav.httpLanguage = langCreate(nullptr, nullptr);
    langRegisterCommonOperands(language);
    Operand *uri =
        operandCreate("uri", 0, nullptr, 0, nullptr, createOperand, nullptr, operandEvaluateAsCell<uriValue>, nullptr, 1, EXPR_STRING);
    operandSetEvaluateInto(uri, uriValue);
    langRegisterOperand(language, uri);
    langRegisterCommonOperators(language);
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
