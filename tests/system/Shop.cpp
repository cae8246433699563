#include "system/Shop.h"

namespace shop {

namespace {

// "$" is the version.
const char *const DOCUMENT = R"({'version': $, 'restVersion': 1, 'add': {'objects': [
{'name': '/cell/c', 'type': 'cell', 'props': {'cp.MaxSecondsToWaitDuringAtomicRollout': '0', 'cp.TrustedProxyEnable': 'true',
  'cp.TrustedProxyList': '10.0.0.1:10.0.0.2'}, 'objects': [
 {'name': '/cell/c/node/n@', 'type': 'node', 'props': {'cp.node.maintenancemode': 'false'}, 'objects': [
  {'name': '/cell/c/node/n@/server/s1-@', 'type': 'server', 'props': {'id': 'clone1', 'state': 'STARTED', 'weight': 2,
    'type': 'APPLICATION_SERVER', 'maxConnections': -1, 'sessionAffinityCookies': 'JSESSIONID', 'waitForContinue': true}, 'objects': [
   {'name': '/cell/c/node/n@/server/s1-@/transport/http', 'type': 'transport', 'props': {'protocol': 'http', 'host': 'h1-@', 'port': 9080}},
   {'name': '/cell/c/node/n@/server/s1-@/transport/https', 'type': 'transport', 'props': {'protocol': 'https', 'host': 'h1-@',
     'port': 9443, 'namedEndpoint': 'secure'}},
   {'name': '/cell/c/node/n@/server/s1-@/serverApplication/shop-edition@', 'type': 'serverApplication', 'props': {'state': 'STARTED'}},
   {'name': '/cell/c/node/n@/server/s1-@/serverApplication/admin@', 'type': 'serverApplication', 'props': {'state': 'STARTED'}},
   {'name': '/cell/c/node/n@/server/s1-@/ruleSet/trace', 'type': 'ruleSet', 'objects': [
    {'name': '/cell/c/node/n@/server/s1-@/ruleSet/trace/rule/1', 'type': 'rule', 'props': {
      'expression': 'uri LIKE `/shop/traced%` AND HTTPMethod = `GET`', 'action': ':NOTICE,http.request:INFO'}}]}]},
  {'name': '/cell/c/node/n@/server/s2-@', 'type': 'server', 'props': {'id': 'clone2', 'state': 'STARTED', 'weight': 1,
    'type': 'TOMCAT_SERVER'}, 'objects': [
   {'name': '/cell/c/node/n@/server/s2-@/transport/http', 'type': 'transport', 'props': {'protocol': 'http', 'host': 'h2-@', 'port': 9080}},
   {'name': '/cell/c/node/n@/server/s2-@/serverApplication/shop-edition@', 'type': 'serverApplication', 'props': {'state': 'STARTED'}},
   {'name': '/cell/c/node/n@/server/s2-@/serverApplication/shop-editionB@', 'type': 'serverApplication', 'props': {'state': 'STARTED'}}]}]},
 {'name': '/cell/c/cluster/k@', 'type': 'cluster', 'props': {'cloneIdSeparator': ':', 'cookieNames': 'SHOPSESSION,JSESSIONID',
   'learnCloneIds': true, 'serverType': 'APPLICATION_SERVER', 'appEditionRolloutState': 'END', 'ioTimeoutRetry': 1}},
 {'name': '/cell/c/cluster/other@', 'type': 'cluster'},
 {'name': '/cell/c/healthPolicy/slow', 'type': 'healthPolicy', 'props': {'type': 'ExcessiveResponseTime', 'threshold': 1}},
 {'name': '/cell/c/vHostGroup/v@', 'type': 'vHostGroup', 'objects': [
  {'name': '/cell/c/vHostGroup/v@/vHost/1', 'type': 'vHost', 'props': {'host': 'shop.example.com', 'port': 80}},
  {'name': '/cell/c/vHostGroup/v@/vHost/2', 'type': 'vHost', 'props': {'host': '*', 'port': '8080'}}]},
 {'name': '/cell/c/application/shop-edition@', 'type': 'application', 'props': {'edition': '@', 'state': 'STARTED'}, 'objects': [
  {'name': '/cell/c/application/shop-edition@/webRouteWorkClass/Default_HTTP_WC', 'type': 'webRouteWorkClass', 'objects': [
   {'name': '/cell/c/application/shop-edition@/webRouteWorkClass/Default_HTTP_WC/rule/1', 'type': 'rule', 'props': {
     'expression': 'uri LIKE `/shop/old%`', 'action': 'redirect:http://moved/@'}},
   {'name': '/cell/c/application/shop-edition@/webRouteWorkClass/Default_HTTP_WC/rule/2', 'type': 'rule', 'props': {
     'expression': 'uri = `/shop/secret` OR clientipv4 IN (`10.9.9.9`, `10.9.9.8`)', 'action': 'reject:403'}},
   {'name': '/cell/c/application/shop-edition@/webRouteWorkClass/Default_HTTP_WC/rule/3', 'type': 'rule', 'props': {
     'expression': 'header(beta) = `yes` AND NOT (port = 81)', 'action': 'permitsticky:shop-editionB@'}},
   {'name': '/cell/c/application/shop-edition@/webRouteWorkClass/Default_HTTP_WC/rule/default', 'type': 'rule', 'props': {
     'expression': 'port > 0', 'action': 'permit:shop-edition@'}}]},
  {'name': '/cell/c/application/shop-edition@/webModule/store@', 'type': 'webModule', 'props': {'contextRoot': '/shop',
    'protocolMap': 'direct', 'fileServingEnabled': false}, 'objects': [
   {'name': '/cell/c/application/shop-edition@/webModule/store@/uri/\/*', 'type': 'uri'},
   {'name': '/cell/c/application/shop-edition@/webModule/store@/uri/*.jsp', 'type': 'uri'}]}]},
 {'name': '/cell/c/application/shop-editionB@', 'type': 'application', 'props': {'edition': 'B@'}, 'objects': [
  {'name': '/cell/c/application/shop-editionB@/webModule/beta@', 'type': 'webModule', 'props': {'contextRoot': '/shop'}, 'objects': [
   {'name': '/cell/c/application/shop-editionB@/webModule/beta@/uri/\/*', 'type': 'uri'}]}]},
 {'name': '/cell/c/application/admin@', 'type': 'application', 'props': {'sessionAffinityCookies': 'ADMINSESSION'}, 'objects': [
  {'name': '/cell/c/application/admin@/webModule/console@', 'type': 'webModule', 'props': {'contextRoot': '/admin',
    'protocolMap': 'https'}, 'objects': [
   {'name': '/cell/c/application/admin@/webModule/console@/uri/\/*', 'type': 'uri'}]}]}]}],
'relationships': {
 'cluster:server': [{'cluster': '/cell/c/cluster/k@', 'server': '/cell/c/node/n@/server/s1-@'},
                    {'cluster': '/cell/c/cluster/k@', 'server': '/cell/c/node/n@/server/s2-@'}],
 'cluster:webModule': [{'cluster': '/cell/c/cluster/k@', 'webModule': '/cell/c/application/shop-edition@/webModule/store@'},
                       {'cluster': '/cell/c/cluster/k@', 'webModule': '/cell/c/application/shop-editionB@/webModule/beta@'},
                       {'cluster': '/cell/c/cluster/k@', 'webModule': '/cell/c/application/admin@/webModule/console@'}],
 'vHostGroup:webModule': [{'vHostGroup': '/cell/c/vHostGroup/v@', 'webModule': '/cell/c/application/shop-edition@/webModule/store@'},
                          {'vHostGroup': '/cell/c/vHostGroup/v@', 'webModule': '/cell/c/application/admin@/webModule/console@'}],
 'server:webModule': [{'server': '/cell/c/node/n@/server/s1-@', 'webModule': '/cell/c/application/shop-edition@/webModule/store@'},
                      {'server': '/cell/c/node/n@/server/s2-@', 'webModule': '/cell/c/application/shop-edition@/webModule/store@'},
                      {'server': '/cell/c/node/n@/server/s2-@', 'webModule': '/cell/c/application/shop-editionB@/webModule/beta@'},
                      {'server': '/cell/c/node/n@/server/s1-@', 'webModule': '/cell/c/application/admin@/webModule/console@'}],
 'server:healthPolicy': [{'server': '/cell/c/node/n@/server/s1-@', 'healthPolicy': '/cell/c/healthPolicy/slow'}]}}})";

void replaceAll(std::string &text, char from, const std::string &to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) text.replace(at, 1, to);
}

std::string orEmpty(const char *text) { return text ? text : ""; }

} // namespace

std::string fill(const std::string &text, int generation) {
    std::string filled = text;
    replaceAll(filled, '\'', "\"");
    replaceAll(filled, '`', "'");
    replaceAll(filled, '\\', "\\\\");
    replaceAll(filled, '@', std::to_string(generation));
    return filled;
}

std::string document(int generation, long long version) {
    std::string text = fill(DOCUMENT, generation);
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

std::string Decision::text() const {
    return std::to_string(handled) + " " + std::to_string(action) + " " + std::to_string(errorCode) + " edition=" + edition +
           " application=" + application + " module=" + module + " group=" + group + " redirect=" + redirect + " error=" + error +
           " server=" + server + " cluster=" + cluster + " at " + host + ":" + std::to_string(port);
}

EnvHttpContext request(const std::string &path) {
    EnvHttpContext request;
    request.host = "shop.example.com";
    request.path = path;
    return request;
}

} // namespace shop
