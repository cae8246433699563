/* A host in plain C, with the library's own transport: configures an instance from a document and drives one request from obtain to release. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tav/tav.h>

struct EnvHttpContext {
    char host[32], path[64], cookie[64];
    char clone[64];
    int headersSet;
};

static char *text(const char *value) {
    static char buffers[8][128];
    static int next;
    char *buffer = buffers[next++ % 8];
    snprintf(buffer, sizeof buffers[0], "%s", value);
    return buffer;
}

static char *clientIp(EnvHttpContext *r) { (void)r; return text("127.0.0.1"); }
static char *protocolVersion(EnvHttpContext *r) { (void)r; return text("HTTP/1.1"); }
static int port(EnvHttpContext *r) { (void)r; return 80; }
static char *virtualHost(EnvHttpContext *r) { return text(r->host); }
static char *protocol(EnvHttpContext *r) { (void)r; return text("http"); }
static char *path(EnvHttpContext *r) { return text(r->path); }
static char *none(EnvHttpContext *r) { (void)r; return NULL; }
static char *cookieValue(EnvHttpContext *r, char *name) { return strcmp(name, "JSESSIONID") == 0 && r->cookie[0] ? text(r->cookie) : NULL; }
static int setHeader(EnvHttpContext *r, char *name, char *value) {
    (void)name;
    (void)value;
    ++r->headersSet;
    return 0;
}

#define CHECK(condition) \
    do { \
        if (!(condition)) { \
            fprintf(stderr, "consumer: line %d: %s\n", __LINE__, #condition); \
            exit(1); \
        } \
    } while (0)

/* The text of a file; the caller frees it. */
static char *contentOf(const char *name) {
    FILE *file = fopen(name, "r");
    char *content = calloc(1, 1 << 20);
    CHECK(file && content && fread(content, 1, (1 << 20) - 1, file) > 0);
    fclose(file);
    return content;
}

static void routeOne(Tav *tav) {
    EnvHttpContext request = {"shop.example", "/shop/cart", "0000abc:w1", "", 0};
    TavHttpContext *ctx = tavHttpContextObtain(tav, &request);
    TavTargetEndpoint *endpoint;
    CHECK(ctx);
    CHECK(tavHttpContextShouldHandle(ctx) == 1);
    CHECK(tavHttpContextGetAction(ctx) == PERMIT);
    CHECK(strcmp(tavHttpContextGetApplicationName(ctx), "shop-edition1.0") == 0);
    endpoint = tavHttpContextGetTargetEndpoint(ctx);
    CHECK(endpoint);
    CHECK(tavTargetEndpointGetPort(endpoint) == 9080);
    CHECK(strcmp(tavTargetEndpointGetCloneId(endpoint), "w1") == 0);
    CHECK(!tavHttpContextGetPerformedLoadBalancing(ctx));
    CHECK(request.headersSet > 10);
    tavHttpContextSetState(ctx, CONNECT_SUCCESS, 0, NULL);
    tavHttpContextSetState(ctx, REQUEST_SENT, 0, NULL);
    tavHttpContextSetState(ctx, RESPONSE_ARRIVED, 0, NULL);
    tavHttpContextSetState(ctx, RESPONSE_SENT, 0, NULL);
    tavHttpContextRelease(ctx);
}

static void refuseOne(Tav *tav) {
    EnvHttpContext request = {"shop.example", "/other", "", "", 0};
    TavHttpContext *ctx = tavHttpContextObtain(tav, &request);
    CHECK(tavHttpContextShouldHandle(ctx) == 0);
    CHECK(tavHttpContextGetErrorCode(ctx) == 404);
    CHECK(!tavHttpContextGetTargetEndpoint(ctx));
    tavHttpContextRelease(ctx);
}

int main(int argc, char **argv) {
    EnvCallBacks env;
    Tav *tav;
    TavConnector *connector;
    char *document, *dump;
    CHECK(argc == 3);
    document = contentOf(argv[2]);
    memset(&env, 0, sizeof env);
    env.version = TAV_ENV_VERSION;
    env.http.request.getClientIpAddr = clientIp;
    env.http.request.getProtocolVersion = protocolVersion;
    env.http.request.getListeningPort = port;
    env.http.request.getVirtualHost = virtualHost;
    env.http.request.getVirtualPort = port;
    env.http.request.getProtocol = protocol;
    env.http.request.getPath = path;
    env.http.request.getAuthType = none;
    env.http.request.getUserName = none;
    env.http.request.getClientCertificate = none;
    env.http.request.getSSLCipherSuite = none;
    env.http.request.getSSLSessionId = none;
    env.http.request.setHeaderValue = setHeader;
    env.http.request.getCookieValue = cookieValue;

    tav = tavCreate(&env, NULL, argv[1]);
    CHECK(tav);
    connector = tavConnectorCreate(tavConnectorGroupCreate(tav, "main"), "http://127.0.0.1:1/");
    CHECK(connector);
    CHECK(tavStart(tav, -1) == 0);
    CHECK(tavHandleJsonFromRestService(document, connector) == 1);
    CHECK(tavHandleJsonFromRestService("not JSON", connector) == -1);
    CHECK(tavGetConfigVersion(tav) == 1);
    free(document);
    routeOne(tav);
    refuseOne(tav);
    dump = tavToJSONString(tav);
    CHECK(dump && strstr(dump, "w1"));
    tavMemFree(tav, dump);
    tavDestroy(tav);
    trDestroy();
    puts("consumer: one request driven through the installed library");
    return 0;
}
