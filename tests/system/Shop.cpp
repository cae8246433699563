#include "system/Shop.h"

#include <fstream>
#include <iterator>

namespace shop {

namespace {

void replaceAll(std::string &text, char from, const std::string &to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) text.replace(at, 1, to);
}

std::string orEmpty(const char *text) { return text ? text : ""; }

} // namespace

std::string contentOf(const std::string &path) {
    std::ifstream file(TAV_SOURCE_DIR "/" + path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string fill(const std::string &text, int generation) {
    std::string filled = text;
    replaceAll(filled, '\'', "\"");
    replaceAll(filled, '`', "'");
    replaceAll(filled, '\\', "\\\\");
    replaceAll(filled, '@', std::to_string(generation));
    return filled;
}

std::string document(int generation, long long version) {
    // In it "@" is the generation and "$" the version.
    static const std::string shop = contentOf("tests/system/shop.json.in");
    std::string text = shop;
    replaceAll(text, '@', std::to_string(generation));
    replaceAll(text, '$', std::to_string(version));
    return text;
}

std::string delta(int generation, long long version, const std::string &operations) {
    return fill("{'version': " + std::to_string(version) + ", 'restVersion': 1, 'delta': true, " + operations + "}", generation);
}

std::string entry(const std::string &name, const std::string &type, const std::string &props) {
    return "{'name': '" + name + "', 'type': '" + type + (props.empty() ? "'}" : "', 'props': {" + props + "}}");
}

std::string objects(const std::string &op, const std::string &entries) { return "'" + op + "': {'objects': [" + entries + "]}"; }

std::string pair(const std::string &op, const std::string &kind, const std::string &first, const std::string &second) {
    const size_t colon = kind.find(':');
    return "'" + op + "': {'relationships': {'" + kind + "': [{'" + kind.substr(0, colon) + "': '" + first + "', '" +
           kind.substr(colon + 1) + "': '" + second + "'}]}}";
}

const std::vector<Change> &changes() {
    const auto set = [](const std::string &name, const char *type, const char *there, const char *back) {
        return Change{objects("set", entry(name, type, there)), objects("set", entry(name, type, back))};
    };
    const auto link = [](const char *kind, const std::string &first, const std::string &second) {
        return Change{pair("add", kind, first, second), pair("del", kind, first, second)};
    };
    const auto come = [](const std::string &name, const char *type, const char *props = "") {
        return Change{objects("add", entry(name, type, props)), objects("del", entry(name, type))};
    };
    const std::string extra = NODE + "/server/extra", application = "/serverApplication/shop-edition@";
    const std::string slow = "/cell/c/healthPolicy/slow", rule = WORK_CLASS + "/rule/";
    static const std::vector<Change> all = {
        come(extra, "server", "'state': 'STARTED', 'weight': 1, 'id': 'clone5'"),
        come(extra + "/transport/t", "transport", "'protocol': 'http', 'host': 'a', 'port': 1"),
        come(extra + application, "serverApplication", "'state': 'STARTED'"),
        link("cluster:server", CLUSTER, extra),
        link("server:webModule", extra, STORE),
        link("server:healthPolicy", extra, slow),
        link("cluster:server", OTHER_CLUSTER, S1),
        link("server:healthPolicy", S2, slow),
        set(S1, "server", "'state': 'STOPPED', 'weight': 0", "'state': 'STARTED', 'weight': 2"),
        set(S2, "server", "'server.maintenancemode': 'break', 'maxConnections': 1",
            "'server.maintenancemode': 'false', 'maxConnections': 50"),
        set(NODE, "node", "'cp.node.maintenancemode': 'true'", "'cp.node.maintenancemode': 'false'"),
        set(S1 + "/transport/http", "transport", "'host': 'other-@', 'port': 9081", "'host': 'h1-@', 'port': 9080"),
        set(S2 + application, "serverApplication", "'state': 'QUIESCED'", "'state': 'STARTED'"),
        {objects("del", entry(S2 + application, "serverApplication")),
         objects("add", entry(S2 + application, "serverApplication", "'state': 'STARTED'"))},
        {objects("del", entry(S1 + "/ruleSet/trace/rule/1", "rule")),
         objects("add", entry(S1 + "/ruleSet/trace/rule/1", "rule", "'expression': 'port = 80', 'action': ':INFO'"))},
        set(rule + "1", "rule", "'action': 'redirect:http://new/@'", "'expression': 'uri LIKE `/shop/ol%` AND port > 1'"),
        come(rule + "7", "rule", "'expression': 'uri = `/shop/cart`', 'action': 'permit:shop-edition@'"),
        set(CELL, "cell", "'cp.DefaultRequestTraceSpec': ':NOTICE,http.request:INFO', 'cp.MaxHttpContextPoolSize': '2'",
            "'cp.DefaultRequestTraceSpec': null, 'cp.TrustedProxyList': '127.0.0.1:10.0.0.9'"),
        come("/cell/c/cluster/brief@", "cluster"),
        set(slow, "healthPolicy", "'threshold': 0", "'threshold': 2"),
        link("vHostGroup:webModule", GROUP, BETA),
    };
    return all;
}

Decision decisionOf(TavHttpContext *ctx) {
    Decision decision;
    decision.handled = tavHttpContextShouldHandle(ctx);
    decision.edition = orEmpty(tavHttpContextGetApplicationEditionName(ctx));
    TavTargetEndpoint *endpoint = tavHttpContextGetTargetEndpoint(ctx);
    decision.action = tavHttpContextGetAction(ctx);
    decision.errorCode = tavHttpContextGetErrorCode(ctx);
    decision.application = orEmpty(tavHttpContextGetApplicationName(ctx));
    decision.module = orEmpty(tavHttpContextGetModuleName(ctx));
    decision.group = orEmpty(tavHttpContextGetMatchedVHostName(ctx));
    decision.redirect = orEmpty(tavHttpContextGetRedirectURL(ctx));
    decision.error = orEmpty(tavHttpContextGetErrorMessage(ctx));
    if (!endpoint) return decision;
    decision.server = orEmpty(tavTargetEndpointGetServerName(endpoint));
    decision.cluster = orEmpty(tavTargetEndpointGetClusterName(endpoint));
    decision.host = orEmpty(tavTargetEndpointGetHostName(endpoint));
    decision.port = tavTargetEndpointGetPort(endpoint);
    return decision;
}

Decision decide(Tav *tav, EnvHttpContext &request) {
    TavHttpContext *ctx = tavHttpContextObtain(tav, &request);
    if (!ctx) return {};
    const Decision decision = decisionOf(ctx);
    tavHttpContextRelease(ctx);
    return decision;
}

std::string serverFor(Tav *tav, const std::string &path) {
    EnvHttpContext host = request(path);
    return decide(tav, host).server;
}

std::string Decision::text() const {
    return std::to_string(handled) + " " + std::to_string(action) + " " + std::to_string(errorCode) + " edition=" + edition +
           " application=" + application + " module=" + module + " group=" + group + " redirect=" + redirect + " error=" + error +
           " server=" + server + " cluster=" + cluster + " at " + host + ":" + std::to_string(port);
}

// A name's last number is the generation; -1 without one.
static int generationOf(const std::string &name) {
    const size_t end = name.find_last_of("0123456789"), before = name.find_last_not_of("0123456789", end);
    return end == std::string::npos ? -1 : atoi(name.c_str() + (before == std::string::npos ? 0 : before + 1));
}

int Decision::generation() const {
    int common = -1;
    for (const std::string *name : {&edition, &application, &module, &group, &server, &cluster, &redirect}) {
        const int own = generationOf(*name);
        if (own < 0 || own == common) continue;
        if (common >= 0) return -2;
        common = own;
    }
    return common;
}

EnvHttpContext request(const std::string &path) {
    EnvHttpContext request;
    request.host = "shop.example.com";
    request.path = path;
    return request;
}

} // namespace shop
