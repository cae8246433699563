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

    // "(no cell)", "(null)" or the text or number that both ways of evaluation give.
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

const struct OperandCase {
    const char *operand;
    void (*setUp)(EnvHttpContext &host);
    const char *expected;
} OPERANDS[] = {
    {"uri", [](auto &h) { h.path = "/shop;jsessionid=1"; }, "/shop;jsessionid=1"},
    {"URI", [](auto &h) { h.path = ""; }, ""},
    {"uri", [](auto &h) { h.path.reset(); }, "(no cell)"},
    {"uid", [](auto &h) { h.userName = "eve"; }, "eve"},
    {"uid", [](auto &) {}, "(no cell)"},
    {"HTTPMethod", [](auto &h) { h.method = "PATCH"; }, "PATCH"},
    {"port", [](auto &h) { h.port = 8443; }, "8443"},
    {"virtualport", [](auto &h) { h.port = -1; }, "-1"},
    {"serverhost", [](auto &h) { h.host = "www"; }, "www"},
    {"virtualhost", [](auto &h) { h.host = "www"; }, "www"},
    {"clientipv4", [](auto &h) { h.clientIp = "::1"; }, "::1"},
    {"clientipv6", [](auto &h) { h.clientIp = "10.0.0.1"; }, "10.0.0.1"},
    {"serveripv4", [](auto &h) { h.localAddress = "10.0.0.2"; }, "10.0.0.2"},
    {"serveripv6", [](auto &h) { h.localAddress = "10.0.0.2"; }, "10.0.0.2"},
    {"serveripv4", [](auto &) {}, "(no cell)"},
    {"protocol", [](auto &h) { h.protocol = "HTTPS"; }, "HTTPS"},
    {"protocol", [](auto &h) { h.protocol.reset(); }, "(null)"},
    {"header(X-One)",
     [](auto &h) {
         h.headers["x-one"] = {"1", "2"};
     },
     "1"},
    {"header$Accept", [](auto &h) { h.headers["Accept"] = {""}; }, ""},
    {"header(Missing)", [](auto &) {}, "(no cell)"},
    {"cookie(Id)",
     [](auto &h) {
         h.cookies = {{"Id", "a=b"}, {"id", "c"}};
     },
     "a=b"},
    {"cookie(ID)",
     [](auto &h) {
         h.cookies = {{"Id", "a"}};
     },
     "(no cell)"},
    {"clienthost",
     [](auto &h) {
         h.clientHost = "pc";
         h.headers["$ZVRH"] = {"front"};
     },
     "front"},
    {"clienthost",
     [](auto &h) {
         h.clientHost = "pc";
         h.headers["$ZVRH"] = {""};
     },
     "pc"},
    {"clienthost", [](auto &h) { h.clientHost = "pc"; }, "pc"},
    {"clienthost", [](auto &) {}, "(no cell)"},
    {"gids(realm)",
     [](auto &h) {
         h.groups = {"admins", "users", "o'x"};
     },
     "('admins','users','o'x')"},
    {"gids(realm)", [](auto &h) { h.groups = {"one"}; }, "('one')"},
    {"gids(realm)", [](auto &h) { h.groups.emplace(); }, "(null)"},
    {"gids(realm)", [](auto &) {}, "(no cell)"},
    {"queryparm(b)", [](auto &h) { h.query = "a=1&b=2"; }, "2"},
    {"queryparm(a)", [](auto &h) { h.query = "a=1&b=2"; }, "1"},
    {"queryparm(flag)", [](auto &h) { h.query = "flag&b=2"; }, "flag"},
    {"queryparm(flag)", [](auto &h) { h.query = "x=1&flag"; }, "flag"},
    {"queryparm(flag)", [](auto &h) { h.query = "flagged"; }, "flagged"},
    {"queryparm(b)", [](auto &h) { h.query = "xb=5"; }, "5"},
    {"queryparm(b)", [](auto &h) { h.query = "a=b&c=3"; }, "b"},
    {"queryparm(name)", [](auto &h) { h.query = "username=x&name=y"; }, "x"},
    {"queryparm(a)", [](auto &h) { h.query = "a=&b=2"; }, ""},
    {"queryparm(a)", [](auto &h) { h.query = "a=x=y%20z"; }, "x=y%20z"},
    {"queryparm(B)", [](auto &h) { h.query = "b=1"; }, "(null)"},
    {"queryparm(b)", [](auto &h) { h.query = ""; }, "(null)"},
    {"queryparm(b)", [](auto &) {}, "(no cell)"},
};

TEST_F(HttpLanguage, OperandsGiveTheRequestsProperties) {
    for (const OperandCase &c : OPERANDS) {
        host = EnvHttpContext();
        c.setUp(host);
        EXPECT_EQ(valueOf(c.operand), c.expected) << c.operand << " of " << (&c - OPERANDS);
    }
    host = EnvHttpContext();
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
    const struct {
        const char *rule;
        bool expected;
    } cases[] = {
        {"uri LIKE '/shop/%' AND HTTPMethod = 'GET'", true},
        {"uri = '/shop/cart' AND port = 81", false},
        {"port = 80 OR uri = 'x'", true},
        {"queryparm(size) = '10' AND cookie(lang) = 'de'", true},
        {"queryparm(name=size) = '10'", true},
        {"queryparm(absent) IS NULL", true}, // there is a query
        {"header(absent) IS NULL", false},   // no value at all: no operator holds
        {"header(absent) IS NOT NULL", false},
        {"uid IS NULL", false},
        {"protocol IS NOT NULL", true},
        {"header(Accept) + cookie(lang) = 'text/htmlde'", true},
        {"'admins' IN gids(r)", false}, // a text, not a list
        {"gids(r) IS NULL", false},
        {"gids(r) IS NOT NULL", true},
        {"virtualport BETWEEN 80 AND 90", true},
        {"NOT serverhost = 'localhost'", false},
    };
    for (const auto &c : cases) {
        ExpressionPtr expr = parse(c.rule);
        EXPECT_EQ(expr && expressionIsTrue(expr.get(), &evalCtx), c.expected) << c.rule;
    }
}

TEST_F(HttpLanguage, RegistersItsOperandsBehindTheCommonOnes) {
    std::string names;
    for (Operand *operand : TavListRange<Operand>(tav.language->operands)) names += std::string(operandGetName(operand)) + " ";
    EXPECT_EQ(
        names,
        "true false percentage time rampup nulloperand uri queryparm uid gids header cookie HTTPMethod clienthost clientipv4 clientipv6 "
        "serverhost serveripv4 serveripv6 port protocol virtualhost virtualport ");
    std::string methods;
    const Operand *method = langFindOperand(tav.language, "httpmethod");
    for (int i = 0; i < method->numSelectableValues; i++)
        methods += std::string(method->selectableValues[i]->string) + "=" + method->selectableValues[i]->key + " ";
    EXPECT_EQ(
        methods,
        "GET=HTTPLang.Operand.HttpGet POST=HTTPLang.Operand.HttpPost PUT=HTTPLang.Operand.HttpPut DELETE=HTTPLang.Operand.HttpDelete ");
    EXPECT_TRUE(operandReturnsType(langFindOperand(tav.language, "gids"), EXPR_LIST));
    EXPECT_EQ(tavListGetCount(tav.language->operators), 25);
}

TEST_F(HttpLanguage, ReportsWhatShouldNotHappen) {
    const struct {
        const char *rule, *expected;
    } cases[] = {
        {"queryparm() = 'x'", "In operandCreateExpression_queryparm - invalid number of inputs (0) - expecting 1.\n"},
        {"header() = 'x'", "In operandCreateExpression_header - invalid number of inputs (0) - expecting 1.\n"},
        {"cookie() = 'x'", "In operandCreateExpression_cookie - invalid number of inputs (0) - expecting 1.\n"},
    };
    for (const auto &c : cases) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(parse(c.rule), nullptr) << c.rule;
        const std::string error = testing::internal::GetCapturedStderr();
        EXPECT_NE(error.find(std::string("\n** TAV_ERROR(tavHttpLangauge): ") + c.expected), std::string::npos) << error;
    }
    EXPECT_EQ(operandCreateExpression_uri(nullptr, nullptr), nullptr);

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
