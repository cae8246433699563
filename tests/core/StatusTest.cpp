// What an operator sees of the shop example while it is drained, changed and failing.
#include <gmock/gmock.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "core/RecordingTransport.h"

namespace {

TavTime now = 1000000;

std::string fileText(const std::string &name) {
    std::ostringstream text;
    text << std::ifstream(TAV_SOURCE_DIR "/examples/" + name).rdbuf();
    return text.str();
}

class Status : public RecordingTransport {
protected:
    void SetUp() override {
        CoreFixture::SetUp();
        tavSetClock([] { return now; });
        ASSERT_EQ(give(fileText("shop/shop.json")), 1);
        read();
    }
    void TearDown() override {
        status.reset();
        tavSetClock(nullptr);
        RecordingTransport::TearDown();
    }

    void read() { status.reset(tavStatusToJSON(tav)); }
    // The value at "clusters 0 servers", as JSON; "-" when there is none.
    std::string at(const std::string &path) const {
        json_t *json = status.get();
        std::istringstream steps(path);
        for (std::string step; steps >> step;)
            json = json_is_array(json) ? json_array_get(json, std::stoul(step)) : json_object_get(json, step.c_str());
        const std::unique_ptr<char, decltype(&free)> text(json_dumps(json, JSON_ENCODE_ANY | JSON_COMPACT), free);
        return text ? text.get() : "-";
    }
    std::string setServer(const char *props) {
        return "'set': {'objects': [{'name': '/cell/main/node/alpha/server/web1', 'type': 'server', 'props': {" + std::string(props) +
               "}}]}";
    }

    std::unique_ptr<json_t, decltype(&json_decref)> status{nullptr, json_decref};
};

TEST_F(Status, TellsWhatThereIs) {
    const std::pair<const char *, const char *> rows[] = {
        {"process", "\"StandaloneProcess\""},
        {"server", "\"tavlib\""},
        {"state", "\"STARTING\""},
        {"version", "1"},
        {"groups", R"([{"name":"g","state":"STARTING","connectors":[{"url":"http://127.0.0.1:1","state":"STARTING","version":1}]}])"},
        {"clusters 0 name", "\"/cell/main/cluster/storefront\""},
        {"clusters 0 servers 2",
         R"({"name":"/cell/main/node/beta/server/web3","node":"beta","state":"STARTED","maintenance":"false","weight":1,"outstanding":0,)"
         R"("selectable":true,"endpoints":[{"protocol":"http","host":"beta.internal","port":9081,"available":true}]})"},
        {"clusters 0 servers 3", "-"},
        {"clusters 1 servers 1 name", "\"/cell/main/node/beta/server/pay2\""},
        {"applications 0 name", "\"/cell/main/application/backoffice\""},
        {"applications 1 editions 0 name", "\"\""},
        {"applications 2 editions 1",
         R"({"name":"2.0","modules":[{"name":"store.war","contextRoot":"/shop","virtualHost":"public","uris":["/*"],)"
         R"("cluster":"/cell/main/cluster/storefront"}],"servers":[{"name":"/cell/main/node/beta/server/web3","selectable":true}]})"},
        {"rules 3 action", "\"permit edition 2.0, sticky\""},
        {"rules 7",
         R"({"set":"request trace","kind":"trace","order":1,"expression":"header$X-Trace = 'on'","action":"trace the request"})"},
    };
    for (const auto &[path, expected] : rows) EXPECT_EQ(at(path), expected) << path;
    EXPECT_EQ(tavStatusToJSON(nullptr), nullptr);
}

// Each change on the ones before.
TEST_F(Status, TellsWhyAServerGetsNothing) {
    const std::string web1 = "clusters 0 servers 0 ", edition = "applications 2 editions 0 ";
    const struct {
        const char *name;
        std::string document;
        std::string path, expected; // what has changed
        std::string reason;         // of web1, where edition 1.0 runs
    } rows[] = {
        {"drained", setServer("'server.maintenancemode': 'affinity'"), web1 + "maintenance", "\"affinity\"",
         "server is in affinity maintenance mode"},
        {"rule in error",
         "'set': {'objects': [{'name': '/cell/main/application/shop-edition1.0/webRouteWorkClass/shop_Default_HTTP_WC/rule/20', 'type': "
         "'rule', 'props': {'expression': 'uri LIKE'}}]}",
         "rules 1 error", "\"tavRule: Internal Error - no expression created.\"", "server is in affinity maintenance mode"},
        {"full", setServer("'server.maintenancemode': 'false', 'maxConnections': 0"), web1 + "outstanding", "0",
         "number of outstanding requests '0' exceeded maximum connections '0' for the server /cell/main/node/alpha/server/web1"},
        {"no port for http",
         setServer("'maxConnections': -1") +
             ", 'add': {'objects': [{'name': '/cell/main/node/alpha/server/web1/transport/none', 'type': 'transport',"
             "'props': {'protocol': 'https', 'host': 'h'}}]}",
         web1 + "endpoints 2", R"({"protocol":"https","host":"h","port":-1,"available":false,"reason":"transport is not valid"})", ""},
        {"application stopped",
         "'set': {'objects': [{'name': '/cell/main/node/alpha/server/web1/serverApplication/shop-edition1.0', 'type': 'serverApplication',"
         "'props': {'state': 'QUIESCED'}}]}",
         web1 + "state", "\"STARTED\"", "in QUIESCE state"},
        {"server gone", "'del': {'objects': [{'name': '/cell/main/node/alpha/server/web1', 'type': 'server'}]}", web1 + "name",
         "\"/cell/main/node/beta/server/web2\"", ""},
    };
    int version = 100;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_GT(give(quoted("{'version': " + std::to_string(++version) + ", 'delta': true, " + row.document + "}")), 0);
        read();
        EXPECT_EQ(at(row.path), row.expected);
        EXPECT_EQ(at(web1 + "selectable"), row.reason.empty() ? "true" : "false");
        EXPECT_EQ(at(web1 + "reason"), row.reason.empty() ? "-" : "\"" + row.reason + "\"");
        EXPECT_EQ(at(edition + "servers 0 reason"), at(web1 + "reason"));
        EXPECT_EQ(at(edition + "servers 0 selectable"), at(web1 + "selectable"));
        EXPECT_EQ(at("version"), std::to_string(tavGetConfigVersion(tav)));
    }
}

TEST_F(Status, TellsWhyAControllerIsNotReached) {
    const std::string first = "groups 0 connectors 0 ";
    answer(size_t{0}, nullptr); // the poll; behind it waits the report of routes
    read();
    EXPECT_EQ(at(first + "error"), "\"no response was received from http://127.0.0.1:1 for request type init\"");
    EXPECT_EQ(at("groups 0 state"), "\"FAILED\"");
    fire();
    read();
    EXPECT_NE(at(first + "error"), "-") << "still trying";
    answer(200, "{\"version\": 8}");
    read();
    EXPECT_EQ(at(first + "state") + at(first + "version") + at(first + "error"), "\"STARTED\"8-");
}

TEST_F(Status, TellsOfConnectFailuresAndLoad) {
    EnvHttpContext request;
    request.host = "shop.example";
    request.path = "/shop/cart";
    request.cookies["JSESSIONID"] = "id:w1";
    TavHttpContext *ctx = tavHttpContextObtain(tav, &request);
    ASSERT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    read();
    const std::string web1 = "clusters 0 servers 0 ";
    EXPECT_EQ(at(web1 + "outstanding"), "1");
    EXPECT_EQ(at(web1 + "responseTime"), "-");
    tavHttpContextSetState(ctx, REQUEST_SENDING, 0, nullptr);
    now += 12;
    tavHttpContextSetState(ctx, RESPONSE_ARRIVED, 0, nullptr);
    read();
    EXPECT_EQ(at(web1 + "responseTime"), "12.0");
    tavHttpContextSetState(ctx, CONNECT_FAILURE, 0, nullptr);
    tavHttpContextRelease(ctx);
    for (const bool over : {false, true}) {
        read();
        EXPECT_EQ(at(web1 + "reason"), over ? "-" : "\"connect failure\"");
        EXPECT_EQ(at(web1 + "endpoints 0 reason"), over ? "-" : "\"connect failure\"");
        EXPECT_EQ(at(web1 + "endpoints 1 available"), over ? "true" : "false");
        now += 51;
    }
}

} // namespace
