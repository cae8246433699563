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
    OperandPeekFcn peek; // null: no short form
    bool offersMethods;  // names the usual methods for a rule editor
};

#define FUNCTIONS(x) operandCreateExpression_##x, operandDestroyExpression_##x, operandEvaluate_##x, operandValue_##x
static constexpr HttpOperand HTTP_OPERANDS[] = {
    {"uri", nullptr, EXPR_STRING, FUNCTIONS(uri), operandPeek_uri, false},
    {"queryparm", "name", EXPR_STRING, FUNCTIONS(queryparm), nullptr, false},
    {"uid", nullptr, EXPR_STRING, FUNCTIONS(userid), operandPeek_userid, false},
    {"gids", "securityRealm", EXPR_LIST, FUNCTIONS(groupids), nullptr, false}, // the realm is not used
    {"header", "headerName", EXPR_STRING, FUNCTIONS(header), operandPeek_header, false},
    {"cookie", "cookieName", EXPR_STRING, FUNCTIONS(cookie), operandPeek_cookie, false},
    {"HTTPMethod", nullptr, EXPR_STRING, FUNCTIONS(httpmethod), operandPeek_httpmethod, true},
    {"clienthost", nullptr, EXPR_STRING, FUNCTIONS(clienthost), nullptr, false},
    {"clientipv4", nullptr, EXPR_STRING, FUNCTIONS(clientip), operandPeek_clientip, false},
    {"clientipv6", nullptr, EXPR_STRING, FUNCTIONS(clientip), operandPeek_clientip, false},
    {"serverhost", nullptr, EXPR_STRING, FUNCTIONS(virtualHost), operandPeek_virtualHost, false},
    {"serveripv4", nullptr, EXPR_STRING, FUNCTIONS(serverip), operandPeek_serverip, false},
    {"serveripv6", nullptr, EXPR_STRING, FUNCTIONS(serverip), operandPeek_serverip, false},
    {"port", nullptr, EXPR_INT, FUNCTIONS(virtualPort), operandPeek_virtualPort, false},
    {"protocol", nullptr, EXPR_STRING, FUNCTIONS(protocol), operandPeek_protocol, false},
    {"virtualhost", nullptr, EXPR_STRING, FUNCTIONS(virtualHost), operandPeek_virtualHost, false},
    {"virtualport", nullptr, EXPR_INT, FUNCTIONS(virtualPort), operandPeek_virtualPort, false},
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
    operandSetEvaluateInto(operand, op.value);
    operandSetPeek(operand, op.peek);
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
