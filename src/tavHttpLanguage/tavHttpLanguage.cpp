// Building the language of HTTP rules. The order of registration is fixed: operands (the common ones, then these), then the common
// operators; there are no operators of its own.
#include "tavHttpLanguage/tavHttpLanguage.h"

#include <iterator>

#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavHttpLanguage/tavHttpOperands.h"

struct HttpOperand {
    const char *name;
    const char *argument; // the formal argument's name; null: takes none
    ExpressionType type;
    OperandCreateExpressionFcn create;
    ExpressionDestructorFcn destroy;
    EvaluateFcn evaluate;
    OperandValueFcn value;
    bool offersMethods; // names the usual methods for a rule editor
};

#define FUNCTIONS(x) operandCreateExpression_##x, operandDestroyExpression_##x, operandEvaluate_##x, operandValue_##x
static constexpr HttpOperand HTTP_OPERANDS[] = {
    {"uri", nullptr, EXPR_STRING, FUNCTIONS(uri), false},
    {"queryparm", "name", EXPR_STRING, FUNCTIONS(queryparm), false},
    {"uid", nullptr, EXPR_STRING, FUNCTIONS(userid), false},
    {"gids", "securityRealm", EXPR_LIST, FUNCTIONS(groupids), false}, // the realm is not used
    {"header", "headerName", EXPR_STRING, FUNCTIONS(header), false},
    {"cookie", "cookieName", EXPR_STRING, FUNCTIONS(cookie), false},
    {"HTTPMethod", nullptr, EXPR_STRING, FUNCTIONS(httpmethod), true},
    {"clienthost", nullptr, EXPR_STRING, FUNCTIONS(clienthost), false},
    {"clientipv4", nullptr, EXPR_STRING, FUNCTIONS(clientip), false},
    {"clientipv6", nullptr, EXPR_STRING, FUNCTIONS(clientip), false},
    {"serverhost", nullptr, EXPR_STRING, FUNCTIONS(virtualHost), false},
    {"serveripv4", nullptr, EXPR_STRING, FUNCTIONS(serverip), false},
    {"serveripv6", nullptr, EXPR_STRING, FUNCTIONS(serverip), false},
    {"port", nullptr, EXPR_INT, FUNCTIONS(virtualPort), false},
    {"protocol", nullptr, EXPR_STRING, FUNCTIONS(protocol), false},
    {"virtualhost", nullptr, EXPR_STRING, FUNCTIONS(virtualHost), false},
    {"virtualport", nullptr, EXPR_INT, FUNCTIONS(virtualPort), false},
};
#undef FUNCTIONS

// Null without memory; operandCreate takes what is given to it on failure too.
static Operand *createOperand(const HttpOperand &op) noexcept {
    SelectableValue *methods[4] = {};
    const int numMethods = op.offersMethods ? static_cast<int>(std::size(methods)) : 0;
    if (op.offersMethods) {
        methods[0] = selectableValueStrCreate("GET", "HTTPLang.Operand.HttpGet");
        methods[1] = selectableValueStrCreate("POST", "HTTPLang.Operand.HttpPost");
        methods[2] = selectableValueStrCreate("PUT", "HTTPLang.Operand.HttpPut");
        methods[3] = selectableValueStrCreate("DELETE", "HTTPLang.Operand.HttpDelete");
    }
    FormalArg *args[1] = {op.argument ? formalArgCreate(op.argument, ARG_STRING, nullptr, 0, nullptr) : nullptr};
    Operand *operand =
        operandCreate(op.name, numMethods, methods, op.argument ? 1 : 0, args, op.create, op.destroy, op.evaluate, nullptr, 1, op.type);
    if (operand) operandSetEvaluateInto(operand, op.value);
    return operand;
}

static bool registerHttpOperands(Language *language) noexcept {
    for (const HttpOperand &op : HTTP_OPERANDS) {
        langRegisterOperand(language, createOperand(op));
        if (!langFindOperand(language, op.name)) return false;
    }
    return true;
}

Language *langCreateHttpLanguage(TrContext *trCtx, TrRecord *trRec) noexcept {
    LanguagePtr language(langCreate(trCtx, trRec));
    if (!language || !langRegisterCommonOperands(language.get()) || !registerHttpOperands(language.get()) ||
        !langRegisterCommonOperators(language.get()))
        return nullptr;
    return language.release();
}
