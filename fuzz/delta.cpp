// Deltas on the shop, one after the other: lines of JSON when the input begins with "{", else choices that a small grammar makes into
// deltas with right and wrong names, types and values. At the end the snapshot has the objects that a rebuild gives.
#include <set>

#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "tav/tavControl.h"
#include "tavLibUtil/tavObjectName.h"
#include "tavObjects/tavObjectMap.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavUtil/tavMemory.h"

namespace {

// Objects by their names, which tell the types.
const std::vector<std::string> PLACES = fuzzPieces(
    "/cell/c /cell/c/node/n1 /cell/c/node/new /cell/c/node/n1/server/s1-1 /cell/c/node/n1/server/s2-1 /cell/c/node/n1/server/s3 "
    "/cell/c/node/new/server/s1 /cell/c/node/n1/server/s1-1/transport/http /cell/c/node/n1/server/s1-1/transport/https "
    "/cell/c/node/n1/server/s3/transport/t /cell/c/node/n1/server/s1-1/serverApplication/shop-edition1 "
    "/cell/c/node/n1/server/s2-1/serverApplication/shop-edition1 /cell/c/node/n1/server/s3/serverApplication/shop-edition1 "
    "/cell/c/node/n1/server/s1-1/ruleSet/trace /cell/c/node/n1/server/s1-1/ruleSet/trace/rule/1 "
    "/cell/c/node/n1/server/s1-1/ruleSet/trace/rule/9 /cell/c/cluster/k1 /cell/c/cluster/other1 /cell/c/cluster/new "
    "/cell/c/healthPolicy/slow /cell/c/vHostGroup/v1 /cell/c/vHostGroup/v1/vHost/1 /cell/c/vHostGroup/v1/vHost/7 "
    "/cell/c/application/shop-edition1 /cell/c/application/admin1 /cell/c/application/shop-edition1/webRouteWorkClass/Default_HTTP_WC "
    "/cell/c/application/shop-edition1/webRouteWorkClass/Default_HTTP_WC/rule/2 "
    "/cell/c/application/shop-edition1/webRouteWorkClass/Default_HTTP_WC/rule/default "
    "/cell/c/application/shop-edition1/webModule/store1 /cell/c/application/shop-edition1/webModule/new "
    "/cell/c/application/shop-edition1/webModule/store1/uri/*.jsp /cell/c/application/shop-edition1/webModule/new/uri/\\\\/*  /server/x",
    ' ');

std::string typeOf(const std::string &name) {
    const TavText type(tavNameGetType(name.c_str()));
    return type ? type.get() : "server";
}

const std::vector<std::string> PROPERTIES = fuzzPieces(
    "'state': 'STARTED';'state': 'STOPPED';'state': 'QUIESCED';'state': '';'weight': 0;'weight': 3;'weight': -1;'weight': 99999999999;"
    "'id': 'clone9';'id': 'clone1';'id': '';'server.maintenancemode': 'affinity';'server.maintenancemode': 'break';"
    "'cp.node.maintenancemode': 'true';'maxConnections': 0;'sessionAffinityCookies': ',';'sessionAffinityCookies': null;"
    "'type': 'TOMCAT_SERVER';'type': 'ExcessiveRequestTimeout';'threshold': 0;'protocol': 'https';'protocol': 'tcp';"
    "'host': 'elsewhere';'host': '*';'port': 7;'port': '81';'port': -1;'cloneIdSeparator': '';'cloneSeparatorChange': true;"
    "'learnCloneIds': false;'appEditionRolloutState': 'BEGIN';'expression': 'port = 80';'expression': '((';'expression': '';"
    "'action': 'reject:404';'action': ':DEBUG';'action': 'nothing';'contextRoot': '/';'contextRoot': null;'edition': 'B1';"
    "'protocolMap': 'http';'unknown': 1.5;'cp.MaxHttpContextPoolSize': '1';'cp.MaxHttpContextPoolSize': null;"
    "'cp.DefaultRequestTraceSpec': ':DEBUG';'cp.TrustedProxyList': 'a:a:';'cp.disablePrivateHeaders': 'true';'list': [1]",
    ';');

const std::vector<std::string> KINDS = {"cluster:server",   "cluster:webModule",   "vHostGroup:webModule",
                                        "server:webModule", "server:healthPolicy", "webModule:cluster"};

const std::string &choose(FuzzInput &input, const std::vector<std::string> &table) {
    return table[input.pick(static_cast<unsigned>(table.size()))];
}

std::string entry(FuzzInput &input, int depth) {
    const std::string &name = choose(input, PLACES);
    const std::string type = typeOf(input.pick(8) == 7 ? choose(input, PLACES) : name);
    std::string text = "{'name': '" + name + "', 'type': '" + type + "', 'props': {";
    for (unsigned i = 0, n = input.pick(4); i < n; i++) text += (i ? ", " : "") + choose(input, PROPERTIES);
    text += "}";
    if (depth < 4 && input.pick(3) == 2) text += ", 'objects': [" + entry(input, depth + 1) + "]";
    return text + "}";
}

std::string pair(FuzzInput &input) {
    const std::string kind = choose(input, KINDS);
    const size_t colon = kind.find(':');
    std::string text = "'" + kind + "': [";
    for (unsigned i = 0, n = 1 + input.pick(2); i < n; i++)
        text += std::string(i ? ", " : "") + "{'" + kind.substr(0, colon) + "': '" + choose(input, PLACES) + "', '" +
                kind.substr(colon + 1) + "': '" + choose(input, PLACES) + "'}";
    return text + "]";
}

std::string makeDelta(FuzzInput &input, int version) {
    std::string text = "{'version': " + std::to_string(version) + ", 'restVersion': 1, 'delta': true";
    for (const char *op : {"del", "add", "set"}) {
        const unsigned parts = input.pick(4);
        if (parts) text += std::string(", '") + op + "': {";
        if (parts & 1) text += "'objects': [" + entry(input, 0) + (input.pick(2) ? ", " + entry(input, 0) : "") + "]";
        if (parts == 3) text += ", ";
        if (parts & 2) text += "'relationships': {" + pair(input) + "}";
        if (parts) text += "}";
    }
    text += "}";
    for (char &c : text) c = c == '\'' ? '"' : c;
    return text;
}

std::set<std::string> objectNames(Tav *tav) {
    std::set<std::string> names;
    TavRoutingInfo *ri = tavRoutingInfoObtain(tav);
    for (auto [key, wrapper] : TavHashRange<ObjectWrapper>(ri->objectMap))
        if (wrapper->object) names.insert(key);
    tavRoutingInfoRelease(ri);
    return names;
}

void routeSome(Tav *tav) {
    for (const char *path : {"/shop/x.jsp", "/shop/secret", "/admin/"}) {
        EnvHttpContext request = shop::request(path);
        request.cookies["SHOPSESSION"] = "id:clone1:clone9";
        TavHttpContext *ctx = tavHttpContextObtain(tav, &request);
        shop::decisionOf(ctx);
        tavHttpContextSetState(ctx, CONNECT_FAILURE, 0, nullptr);
        shop::decisionOf(ctx);
        tavHttpContextSetState(ctx, RESPONSE_ARRIVED, 0, nullptr);
        tavHttpContextRelease(ctx);
    }
}

} // namespace

FUZZ_TARGET(fuzz_delta) {
    FuzzShop &shop = FuzzShop::get();
    FuzzInput input(data, size);
    const bool asJson = size && data[0] == '{';
    for (int version = 2; !input.empty() && version < 10; version++) {
        shop.give(asJson ? input.line() : makeDelta(input, version));
        routeSome(shop.tav);
    }
    const std::set<std::string> live = objectNames(shop.tav);
    {
        TavControlScope control("fuzz");
        FUZZ_CHECK(tavResetRoutingInfo(shop.tav));
    }
    FUZZ_CHECK(objectNames(shop.tav) == live);
    routeSome(shop.tav);
    shop.reset();
    return 0;
}
