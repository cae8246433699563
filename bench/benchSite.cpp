#include "benchSite.h"

#include <cstdlib>
#include <cstring>

namespace {

char kAddress[] = "127.0.0.1";
char kVersion[] = "HTTP/1.1";
char kHost[] = "www.example.com";
char kProtocol[] = "http";
char kMethod[] = "GET";

EnvCallBacks hostTable() {
    EnvCallBacks env = {};
    env.version = TAV_ENV_VERSION;
    auto &connector = env.http.connector;
    connector.open = [](TavConnector *) { return reinterpret_cast<EnvConnectorClient *>(kAddress); };
    connector.sendRequest = [](EnvConnectorClient *, const char *, const char *, const char *, int, TavHttpResponseCallBack,
                               TavHttpResponseContext *) { return 0; };
    connector.freeResponse = [](TavHttpResponse *) {};
    connector.close = [](EnvConnectorClient *) {};
    auto &request = env.http.request;
    request.getClientIpAddr = [](EnvHttpContext *) { return kAddress; };
    request.getProtocolVersion = [](EnvHttpContext *) { return kVersion; };
    request.getListeningPort = [](EnvHttpContext *) { return 80; };
    request.getVirtualHost = [](EnvHttpContext *) { return kHost; };
    request.getVirtualPort = [](EnvHttpContext *) { return 80; };
    request.getProtocol = [](EnvHttpContext *) { return kProtocol; };
    request.getMethod = [](EnvHttpContext *) { return kMethod; };
    request.getPath = [](EnvHttpContext *ctx) { return ctx->path; };
    request.getAuthType = request.getUserName = request.getClientCertificate = request.getSSLCipherSuite =
        request.getSSLSessionId = [](EnvHttpContext *) { return static_cast<char *>(nullptr); };
    request.getHeaderValue = [](EnvHttpContext *, char *) { return static_cast<char *>(nullptr); };
    request.setHeaderValue = [](EnvHttpContext *ctx, char *, char *) { return ++ctx->headersSet, 0; };
    request.getCookieValue = [](EnvHttpContext *ctx, char *name) { return strcmp(name, "JSESSIONID") == 0 ? ctx->cookie : nullptr; };
    return env;
}

std::string number(int n) { return std::to_string(n); }

std::string serverName(int cluster, int server) { return "/cell/c/node/n/server/s" + number(cluster) + "x" + number(server); }

std::string serverEntry(const SiteSize &size, int cluster, int server) {
    const std::string name = serverName(cluster, server);
    std::string text = "{\"type\":\"server\",\"name\":\"" + name + "\",\"props\":{\"type\":\"APPLICATION_SERVER\",\"weight\":2,\"id\":\"c" +
                       number(cluster) + "x" + number(server) +
                       "\",\"state\":\"STARTED\"},\"objects\":[{\"type\":\"transport\",\"name\":\"" + name +
                       "/transport/http\",\"props\":{\"protocol\":\"http\",\"host\":\"10.0.0.1\",\"port\":9080}}";
    for (int app = cluster; app < size.applications; app += size.clusters)
        text += ",{\"type\":\"serverApplication\",\"name\":\"" + name + "/serverApplication/app" + number(app) +
                "\",\"props\":{\"state\":\"STARTED\"}}";
    return text + "]}";
}

std::string ruleEntry(const std::string &workClass, const std::string &name, const std::string &expression, const std::string &action) {
    return "{\"type\":\"rule\",\"name\":\"" + workClass + "/rule/" + name + "\",\"props\":{\"expression\":\"" + expression +
           "\",\"action\":\"" + action + "\"}}";
}

std::string applicationEntry(int app) {
    const std::string id = "app" + number(app), name = "/cell/c/application/" + id;
    const std::string module = name + "/webModule/" + id, workClass = name + "/webRouteWorkClass/" + id + "_Default_HTTP_WC";
    return "{\"type\":\"application\",\"name\":\"" + name + "\",\"objects\":[{\"type\":\"webModule\",\"name\":\"" + module +
           "\",\"props\":{\"contextRoot\":\"/" + id + "\"},\"objects\":[{\"type\":\"uri\",\"name\":\"" + module +
           "/uri/\\\\/*\"}]},{\"type\":\"webRouteWorkClass\",\"name\":\"" + workClass + "\",\"objects\":[" +
           ruleEntry(workClass, "1", "header(X-Beta) = 'yes'", "reject:403") + "," +
           ruleEntry(workClass, "2", "cookie(tier) = 'gold'", "reject:402") + "," +
           ruleEntry(workClass, "3", "uri LIKE '/admin/%'", "reject:404") + "," +
           ruleEntry(workClass, "4", "clientipv4 LIKE '192.168.%' AND HTTPMethod = 'PUT'", "reject:405") + "," +
           ruleEntry(workClass, "default", "true", "permit:" + id) + "]}]}";
}

template <typename Fn>
std::string joined(int count, Fn entry) {
    std::string text;
    for (int i = 0; i < count; ++i) text += (i ? "," : "") + entry(i);
    return text;
}

std::string pair(const char *first, const std::string &a, const char *second, const std::string &b) {
    return std::string("{\"") + first + "\":\"" + a + "\",\"" + second + "\":\"" + b + "\"}";
}

std::string clusterName(int cluster) { return "/cell/c/cluster/k" + number(cluster); }
std::string moduleName(int app) { return "/cell/c/application/app" + number(app) + "/webModule/app" + number(app); }

std::string relationships(const SiteSize &size) {
    const int servers = size.clusters * size.serversPerCluster;
    const auto server = [&](int i) { return serverName(i / size.serversPerCluster, i % size.serversPerCluster); };
    return "\"cluster:server\":[" +
           joined(servers, [&](int i) { return pair("cluster", clusterName(i / size.serversPerCluster), "server", server(i)); }) +
           "],\"cluster:webModule\":[" +
           joined(size.applications, [&](int i) { return pair("cluster", clusterName(i % size.clusters), "webModule", moduleName(i)); }) +
           "],\"server:webModule\":[" +
           joined(size.applications * size.serversPerCluster,
                  [&](int i) {
                      const int app = i / size.serversPerCluster;
                      return pair("server", serverName(app % size.clusters, i % size.serversPerCluster), "webModule", moduleName(app));
                  }) +
           "],\"vHostGroup:webModule\":[" +
           joined(size.applications, [&](int i) { return pair("vHostGroup", "/cell/c/vHostGroup/all", "webModule", moduleName(i)); }) + "]";
}

} // namespace

std::string siteDocument(const SiteSize &size) {
    const int servers = size.clusters * size.serversPerCluster;
    return "{\"version\":1,\"restVersion\":1,\"add\":{\"objects\":[{\"type\":\"cell\",\"name\":\"/cell/c\",\"objects\":[" +
           joined(size.clusters,
                  [](int i) {
                      return "{\"type\":\"cluster\",\"name\":\"" + clusterName(i) + "\",\"props\":{\"serverType\":\"APPLICATION_SERVER\"}}";
                  }) +
           ",{\"type\":\"node\",\"name\":\"/cell/c/node/n\",\"objects\":[" +
           joined(servers, [&](int i) { return serverEntry(size, i / size.serversPerCluster, i % size.serversPerCluster); }) +
           "]},{\"type\":\"vHostGroup\",\"name\":\"/cell/c/vHostGroup/all\",\"objects\":[{\"type\":\"vHost\",\"name\":"
           "\"/cell/c/vHostGroup/all/vHost/1\",\"props\":{\"host\":\"*\",\"port\":80}}]}," +
           joined(size.applications, applicationEntry) + "]}],\"relationships\":{" + relationships(size) + "}}}";
}

BenchSite::BenchSite(const std::string &document, void (*beforeStart)(Tav *tav)) {
    EnvCallBacks env = hostTable();
    char catalogue[] = TAV_SOURCE_DIR "/share/tav-trace.xml";
    tav = tavCreate(&env, nullptr, catalogue);
    connector = tavConnectorCreate(tavConnectorGroupCreate(tav, "bench"), "http://bench.invalid:80/");
    if (beforeStart) beforeStart(tav);
    tavStart(tav, -1);
    if (!document.empty() && give(document) < 0) abort();
}

BenchSite::~BenchSite() { tavDestroy(tav); }

bool driveRequest(Tav *tav, EnvHttpContext *request) {
    TavHttpContext *ctx = tavHttpContextObtain(tav, request);
    TavTargetEndpoint *endpoint = nullptr;
    if (tavHttpContextShouldHandle(ctx) == 1 && tavHttpContextGetAction(ctx) == PERMIT) endpoint = tavHttpContextGetTargetEndpoint(ctx);
    if (endpoint) {
        for (TavHttpContextState state : {CONNECT_SUCCESS, REQUEST_SENDING, REQUEST_SENT, RESPONSE_ARRIVED, RESPONSE_SENT})
            tavHttpContextSetState(ctx, state, 0, nullptr);
    }
    tavHttpContextRelease(ctx);
    return endpoint != nullptr;
}
