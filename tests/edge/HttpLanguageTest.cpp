// The HTTP operands against a request, alone and inside rules.
#include <gtest/gtest.h>

#include "base/FailEachAllocation.h"
#include "edge/FakeCore.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavHttpLanguage/tavHttpLanguage.h"
#include "tavHttpLanguage/tavHttpOperands.h"
#include "tavTokenizer/tavTokenizer.h"

namespace {

class HttpLanguage : public testing::Test {
protected:
    HttpLanguage() {
        tav.routingInfo = &ri;
        ctx = tavHttpContextObtain(&tav, &host);
        evaluationContextInit(&evalCtx, nullptr, nullptr, ctx);
    }
    ~HttpLanguage() override {
        evaluationContextClear(&evalCtx);
        tavHttpContextRelease(ctx);
    }

    ExpressionPtr parse(const char *text) {
        Tokenizer *tokenizer = tokenizerCreate(text);
        ExpressionPtr expr(langParse(tav.language, tokenizer, 0, EXPR_BOOLEAN, nullptr));
        tokenizerFree(tokenizer);
        return expr;
    }

    // "(no cell)", "(null)" or the text or number that all ways of evaluation give.
    std::string valueOf(const char *operand) {
        ExpressionPtr expr = parse(operand);
        if (!expr) return "(no expression)";
        const bool number = expressionGetValueKind(expr.get()) == VALUE_WORD;
        intptr_t *cell = expressionEvaluate(expr.get(), &evalCtx);
        std::string byCell = !cell ? "(no cell)" : show(number, *cell);
        expressionCellFree(expr.get(), cell);
        ExpressionValue value;
        expressionEvaluateInto(expr.get(), &evalCtx, &value);
        EXPECT_EQ(value.kind == VALUE_MISSING ? "(no cell)" : show(number, value.word), byCell) << operand;
        expressionValueClear(&value);
        const auto *operandCtx = reinterpret_cast<const OperandContext *>(expressionGetContext(expr.get()));
        intptr_t word = 0;
        if (OperandPeekFcn peek = operandCtx->operand->peek) {
            const Boolean shown = peek(operandContextGetArgument(operandCtx, 0), &evalCtx, &word);
            EXPECT_EQ(shown ? show(number, word) : "(no cell)", byCell) << operand;
        }
        return byCell;
    }

    static std::string show(bool number, intptr_t word) {
        if (number) return std::to_string(word);
        return word ? reinterpret_cast<const char *>(word) : "(null)";
    }

    Tav tav;
    TavRoutingInfo ri{&tav, nullptr, nullptr};
    EnvHttpContext host;
    TavHttpContext *ctx;
    EvaluationContext evalCtx;
};

using Host = EnvHttpContext;
const struct OperandCase {
    const char *operand;
    void (*setUp)(Host &host);
    const char *expected;
} OPERANDS[] = {
    {"uri", [](Host &h) { h.path = "/shop;jsessionid=1"; }, "/shop;jsessionid=1"},
    {"URI", [](Host &h) { h.path = ""; }, ""},
    {"uri", [](Host &h) { h.path.reset(); }, "(no cell)"},
    {"uid", [](Host &h) { h.userName = "eve"; }, "eve"},
    {"HTTPMethod", [](Host &h) { h.method = "PATCH"; }, "PATCH"},
    {"port", [](Host &h) { h.port = 8443; }, "8443"},
    {"virtualport", [](Host &h) { h.port = -1; }, "-1"},
    {"serverhost", [](Host &h) { h.host = "www"; }, "www"},
    {"virtualhost", [](Host &h) { h.host = "www"; }, "www"},
    {"clientipv4", [](Host &h) { h.clientIp = "::1"; }, "::1"},
    {"clientipv6", [](Host &h) { h.clientIp = "10.0.0.1"; }, "10.0.0.1"},
    {"serveripv4", [](Host &h) { h.localAddress = "10.0.0.2"; }, "10.0.0.2"},
    {"serveripv6", [](Host &h) { h.localAddress = "10.0.0.2"; }, "10.0.0.2"},
    {"protocol", [](Host &h) { h.protocol = "HTTPS"; }, "HTTPS"},
    {"protocol", [](Host &h) { h.protocol.reset(); }, "(null)"},
    {"header(X-One)",
     [](Host &h) {
         h.headers["x-one"].assign({"1", "2"});
     },
     "1"},
    {"header$Accept", [](Host &h) { h.headers["Accept"] = {""}; }, ""},
    {"header(Missing)", [](Host &) {}, "(no cell)"},
    {"cookie(Id)", [](Host &h) { h.cookies["Id"] = "a=b", h.cookies["id"] = "c"; }, "a=b"},
    {"cookie(ID)", [](Host &h) { h.cookies["Id"] = "a"; }, "(no cell)"},
    {"clienthost", [](Host &h) { h.clientHost = "pc", h.headers["$ZVRH"] = {"front"}; }, "front"},
    {"clienthost", [](Host &h) { h.clientHost = "pc", h.headers["$ZVRH"] = {""}; }, "pc"},
    {"clienthost", [](Host &h) { h.clientHost = "pc"; }, "pc"},
    {"gids(realm)",
     [](Host &h) {
         h.groups = std::vector<std::string>{"admins", "users", "o'x"};
     },
     "('admins','users','o'x')"},
    {"gids(realm)", [](Host &h) { h.groups.emplace(); }, "(null)"},
    {"queryparm(b)", [](Host &h) { h.query = "a=1&b=2"; }, "2"},
    {"queryparm(flag)", [](Host &h) { h.query = "x=1&flag"; }, "flag"},
    {"queryparm(flag)", [](Host &h) { h.query = "flagged"; }, "flagged"},
    {"queryparm(b)", [](Host &h) { h.query = "xb=5"; }, "5"},
    {"queryparm(b)", [](Host &h) { h.query = "a=b&c=3"; }, "b"},
    {"queryparm(name)", [](Host &h) { h.query = "username=x&name=y"; }, "x"},
    {"queryparm(a)", [](Host &h) { h.query = "a=&b=2"; }, ""},
    {"queryparm(a)", [](Host &h) { h.query = "a=x=y%20z"; }, "x=y%20z"},
    {"queryparm(B)", [](Host &h) { h.query = "b=1"; }, "(null)"},
    {"queryparm(b)", [](Host &h) { h.query = ""; }, "(null)"},
};

TEST_F(HttpLanguage, OperandsGiveTheRequestsProperties) {
    for (const OperandCase &c : OPERANDS) {
        host = EnvHttpContext();
        c.setUp(host);
        EXPECT_EQ(valueOf(c.operand), c.expected) << c.operand << " of " << (&c - OPERANDS);
    }
    host = EnvHttpContext();
    for (const char *operand : {"uid", "serveripv4", "clienthost", "gids(realm)", "queryparm(b)"}) EXPECT_EQ(valueOf(operand), "(no cell)");
    host.path = std::string(5000, 'p'); // more than the evaluation keeps at hand
    EXPECT_EQ(valueOf("uri"), *host.path);
}

TEST_F(HttpLanguage, ASlotThatTheHostLacksHasNoValue) {
    host.clientHost = "pc";
    tav.env.http.request.getHeaderValue = nullptr;
    EXPECT_EQ(valueOf("clienthost"), "pc");
    tav.env.http.request = {};
    for (const OperandCase &c : OPERANDS)
        EXPECT_EQ(valueOf(c.operand), std::string(c.operand) == "protocol" ? "(null)" : "(no cell)") << c.operand;
}

TEST_F(HttpLanguage, RulesDecideByTheRequest) {
    host.path = "/shop/cart";
    host.query = "size=10&debug";
    host.headers["Accept"] = {"text/html"};
    host.cookies["lang"] = "de";
    host.groups = {"admins"};
    for (const char *rule :
         {"uri LIKE '/shop/%' AND HTTPMethod = 'GET'", "port = 80 OR uri = 'x'", "queryparm(size) = '10' AND cookie(lang) = 'de'",
          "queryparm(name=size) = '10'", "queryparm(absent) IS NULL", "protocol IS NOT NULL",
          "header(Accept) + cookie(lang) = 'text/htmlde'", "gids(r) IS NOT NULL", "virtualport BETWEEN 80 AND 90"}) {
        ExpressionPtr expr = parse(rule);
        EXPECT_TRUE(expr && expressionIsTrue(expr.get(), &evalCtx)) << rule;
    }
    // Of no value at all no operator holds; the groups are a text, not a list.
    for (const char *rule : {"uri = '/shop/cart' AND port = 81", "header(absent) IS NULL", "header(absent) IS NOT NULL", "uid IS NULL",
                             "'admins' IN gids(r)", "gids(r) IS NULL", "NOT serverhost = 'localhost'"}) {
        ExpressionPtr expr = parse(rule);
        EXPECT_TRUE(expr) << rule;
        EXPECT_FALSE(expr && expressionIsTrue(expr.get(), &evalCtx)) << rule;
    }
}

TEST_F(HttpLanguage, RegistersItsOperandsBehindTheCommonOnes) {
    std::string names;
    for (Operand *operand : TavListRange<Operand>(tav.language->operands)) names += std::string(operandGetName(operand)) + " ";
    EXPECT_EQ(
        names,
        "true false percentage time rampup nulloperand uri queryparm uid gids header cookie HTTPMethod clienthost clientipv4 clientipv6 "
        "serverhost serveripv4 serveripv6 port protocol virtualhost virtualport ");
    EXPECT_TRUE(operandReturnsType(langFindOperand(tav.language, "gids"), EXPR_LIST));
}

TEST_F(HttpLanguage, ReportsWhatShouldNotHappen) {
    for (const std::string name : {"queryparm", "header", "cookie"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(parse((name + "() = 'x'").c_str()), nullptr) << name;
        const std::string expected =
            "\n** TAV_ERROR(tavHttpLangauge): In operandCreateExpression_" + name + " - invalid number of inputs (0) - expecting 1.\n";
        EXPECT_NE(testing::internal::GetCapturedStderr().find(expected), std::string::npos) << name;
    }
    ExpressionPtr expr = parse("uri");
    EvaluationContext empty;
    evaluationContextInit(&empty, nullptr, nullptr, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(operandEvaluate_uri(expr.get(), &empty), nullptr);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("\n** TAV_ERROR(tavHttpLangauge): tavHttpCtx is NULL at file "),
              std::string::npos);
    evaluationContextClear(&empty);
    EXPECT_EQ(operandEvaluate_uri(expr.get(), nullptr), nullptr);
}

TEST_F(HttpLanguage, GivesUpCleanlyWithoutMemory) {
    failEachAllocation([](auto failed) {
        Language *language = langCreateHttpLanguage(nullptr, nullptr);
        EXPECT_EQ(language == nullptr, failed());
        langFree(language);
    });
    host.path = std::string(5000, 'p');
    host.groups = {std::string(600, 'g')};
    ExpressionPtr uri = parse("uri"), groups = parse("gids(r)");
    failEachAllocation([&](auto failed) {
        for (Expression *expr : {uri.get(), groups.get()}) {
            const bool before = failed();
            intptr_t *cell = expressionEvaluate(expr, &evalCtx);
            EXPECT_EQ(cell == nullptr, failed() && !before);
            expressionCellFree(expr, cell);
        }
    });
}

} // namespace
