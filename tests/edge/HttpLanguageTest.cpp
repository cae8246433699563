// The HTTP operands against a request, alone and inside rules.
#include "edge/Site.h"
#include "support/Expressions.h"
#include "tavHttpLanguage/tavHttpLanguage.h"
#include "tavHttpLanguage/tavHttpOperands.h"

namespace {

class HttpLanguage : public Site {
protected:
    std::string value(const std::string &text) { return valueOf(tav->httpLanguage, text, obtain()); }
};

using Host = EnvHttpContext;
const struct OperandCase {
    const char *expression;
    void (*setUp)(Host &host);
    const char *expected;
} OPERANDS[] = {
    {"uri", [](Host &h) { h.path = "/shop;jsessionid=1"; }, "'/shop;jsessionid=1'"},
    {"URI", [](Host &h) { h.path = ""; }, "''"},
    {"uri", [](Host &h) { h.path.reset(); }, "missing"},
    {"uid", [](Host &h) { h.userName = "eve"; }, "'eve'"},
    {"uid", [](Host &) {}, "missing"},
    {"HTTPMethod", [](Host &h) { h.method = "PATCH"; }, "'PATCH'"},
    {"port = 8443", [](Host &h) { h.port = 8443; }, "TRUE"},
    {"virtualport BETWEEN 80 AND 90", [](Host &h) { h.port = 91; }, "FALSE"},
    {"serverhost", [](Host &h) { h.host = "www"; }, "'www'"},
    {"virtualhost", [](Host &h) { h.host = "www"; }, "'www'"},
    {"clientipv4", [](Host &h) { h.clientIp = "::1"; }, "'::1'"},
    {"clientipv6", [](Host &h) { h.clientIp = "10.0.0.1"; }, "'10.0.0.1'"},
    {"serveripv4", [](Host &h) { h.localAddress = "10.0.0.2"; }, "'10.0.0.2'"},
    {"serveripv6", [](Host &h) { h.localAddress = "10.0.0.2"; }, "'10.0.0.2'"},
    {"serveripv4", [](Host &) {}, "missing"},
    {"protocol", [](Host &h) { h.protocol = "HTTPS"; }, "'HTTPS'"},
    {"protocol", [](Host &h) { h.protocol.reset(); }, "null"}, // the only one that always has a value
    {"header(X-One)",
     [](Host &h) {
         h.headers["x-one"] = {"1", "2"};
     },
     "'1'"},
    {"header$Accept", [](Host &h) { h.headers["Accept"] = {""}; }, "''"},
    {"header(Missing)", [](Host &) {}, "missing"},
    {"header(absent) IS NULL", [](Host &) {}, "FALSE"}, // of no value at all no operator holds
    {"cookie(Id)", [](Host &h) { h.cookies["Id"] = "a=b", h.cookies["id"] = "c"; }, "'a=b'"},
    {"cookie(ID)", [](Host &h) { h.cookies["Id"] = "a"; }, "missing"},
    {"clienthost", [](Host &h) { h.clientHost = "pc", h.headers["$ZVRH"] = {"front"}; }, "'front'"},
    {"clienthost", [](Host &h) { h.clientHost = "pc", h.headers["$ZVRH"] = {""}; }, "'pc'"},
    {"clienthost", [](Host &h) { h.clientHost = "pc"; }, "'pc'"},
    {"clienthost", [](Host &) {}, "missing"},
    {"gids(realm)",
     [](Host &h) {
         h.groups = {"admins", "users", "o'x"};
     },
     "'('admins','users','o'x')'"},
    {"'admins' IN gids(r)", [](Host &h) { h.groups = {"admins"}; }, "FALSE"}, // a text, not a list
    {"gids(r) IS NOT NULL", [](Host &h) { h.groups = {"admins"}; }, "TRUE"},
    {"gids(realm)", [](Host &h) { h.groups.emplace(); }, "null"},
    {"gids(realm)", [](Host &) {}, "missing"},
    {"queryparm(b)", [](Host &h) { h.query = "a=1&b=2"; }, "'2'"},
    {"queryparm(name=size)", [](Host &h) { h.query = "size=10&debug"; }, "'10'"},
    {"queryparm(flag)", [](Host &h) { h.query = "x=1&flag"; }, "'flag'"},
    {"queryparm(flag)", [](Host &h) { h.query = "flagged"; }, "'flagged'"},
    {"queryparm(b)", [](Host &h) { h.query = "xb=5"; }, "'5'"},
    {"queryparm(b)", [](Host &h) { h.query = "a=b&c=3"; }, "'b'"},
    {"queryparm(name)", [](Host &h) { h.query = "username=x&name=y"; }, "'x'"},
    {"queryparm(a)", [](Host &h) { h.query = "a=&b=2"; }, "''"},
    {"queryparm(a)", [](Host &h) { h.query = "a=x=y%20z"; }, "'x=y%20z'"},
    {"queryparm(B)", [](Host &h) { h.query = "b=1"; }, "null"},
    {"queryparm(b) IS NULL", [](Host &h) { h.query = ""; }, "TRUE"},
    {"queryparm(b)", [](Host &) {}, "missing"},
};

TEST_F(HttpLanguage, OperandsGiveTheRequestsProperties) {
    for (const OperandCase &c : OPERANDS) {
        host = EnvHttpContext();
        c.setUp(host);
        EXPECT_EQ(value(c.expression), c.expected) << c.expression << ", row " << (&c - OPERANDS);
        // The comparison of a rule set, which looks at the host's own text.
        if (*c.expected != '\'' || strchr(c.expected + 1, '\'') != strrchr(c.expected, '\''))
            continue; // a quote inside has no place in a rule
        EXPECT_EQ(value(std::string(c.expression) + " = " + c.expected), "TRUE") << c.expression;
    }
    host.path = std::string(5000, 'p'); // more than the evaluation keeps at hand
    EXPECT_EQ(value("uri"), "'" + *host.path + "'");
    host.clientHost = "pc";
    tav->env.http.request.getHeaderValue = nullptr;
    EXPECT_EQ(value("clienthost"), "'pc'");
    tav->env.http.request = {}; // a slot that the host lacks has no value
    for (const OperandCase &c : OPERANDS) {
        const std::string name = c.expression;
        if (name.find(' ') != std::string::npos) continue;
        EXPECT_EQ(value(name), name == "protocol" ? "null" : "missing") << name;
    }
}

TEST_F(HttpLanguage, ReportsWhatShouldNotHappen) {
    for (const std::string name : {"queryparm", "header", "cookie"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(value(name + "() = 'x'"), "unreduced") << name;
        const std::string expected =
            "\n** TAV_ERROR(tavHttpLangauge): In operandCreateExpression_" + name + " - invalid number of inputs (0) - expecting 1.\n";
        EXPECT_NE(testing::internal::GetCapturedStderr().find(expected), std::string::npos) << name;
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(valueOf(tav->httpLanguage, "uri", nullptr), "missing");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("\n** TAV_ERROR(tavHttpLangauge): tavHttpCtx is NULL at file "),
              std::string::npos);
}

} // namespace
