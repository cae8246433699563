// Documents: a complete one against the parser alone, a one-property delta on a small and a large document, and what a snapshot costs.
#include <jansson.h>
#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <tav/tav.h>

#include "tav/tavRecord.h"
#include "tav/tavRoutingInfo.h"

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) { return std::chrono::duration<double, std::milli>(Clock::now() - start).count(); }

char *noText(EnvHttpContext *) { return nullptr; }
char *noNamed(EnvHttpContext *, char *) { return nullptr; }
int noPort(EnvHttpContext *) { return 80; }

Tav *createInstance() {
    EnvCallBacks env{};
    env.version = TAV_ENV_VERSION;
    auto &request = env.http.request;
    request.getClientIpAddr = request.getProtocolVersion = request.getVirtualHost = request.getProtocol = request.getPath = noText;
    request.getAuthType = request.getUserName = request.getClientCertificate = request.getSSLCipherSuite = request.getSSLSessionId = noText;
    request.getListeningPort = request.getVirtualPort = noPort;
    request.getCookieValue = noNamed;
    request.setHeaderValue = [](EnvHttpContext *, char *, char *) { return 0; };
    static char catalogue[] = TAV_SOURCE_DIR "/share/tav-trace.xml";
    return tavCreate(&env, nullptr, catalogue);
}

// `objects` in all: of every ten, one server, two transports, seven server applications; and the servers' cluster.
std::string makeDocument(int objects) {
    std::string text =
        R"({"version":1,"restVersion":1,"add":{"objects":[{"name":"/cell/main","type":"cell","objects":[{"name":"/cell/main/cluster/web","type":"cluster","props":{"serverType":"APPLICATION_SERVER"}})";
    std::string pairs;
    const int servers = objects / 10;
    for (int i = 0; i < servers; i++) {
        const std::string node = "/cell/main/node/node" + std::to_string(i / 10);
        if (i % 10 == 0) text += std::string(i ? "]}" : "") + ",{\"name\":\"" + node + "\",\"type\":\"node\",\"objects\":[";
        const std::string server = node + "/server/server" + std::to_string(i);
        text += std::string(i % 10 ? "," : "") + "{\"name\":\"" + server + "\",\"type\":\"server\",\"props\":{\"id\":\"id" +
                std::to_string(i) + R"(","state":"STARTED","weight":2,"type":"APPLICATION_SERVER","connectTimeout":5},"objects":[)";
        for (const char *protocol : {"http", "https"})
            text += "{\"name\":\"" + server + "/transport/" + protocol + R"(","type":"transport","props":{"protocol":")" + protocol +
                    R"(","host":"10.1.2.3","port":9080}},)";
        for (int a = 0; a < 7; a++)
            text += std::string(a ? "," : "") + "{\"name\":\"" + server + "/serverApplication/application" + std::to_string(a) +
                    R"(","type":"serverApplication","props":{"state":"STARTED"}})";
        text += "]}";
        pairs += std::string(i ? "," : "") + R"({"cluster":"/cell/main/cluster/web","server":")" + server + "\"}";
    }
    return text + R"(]}]}],"relationships":{"cluster:server":[)" + pairs + "]}}}";
}

std::string oneProperty(int version, int server) {
    const std::string node = "/cell/main/node/node" + std::to_string(server / 10);
    return R"({"version":)" + std::to_string(version) + R"(,"restVersion":1,"delta":true,"set":{"objects":[{"name":")" + node +
           "/server/server" + std::to_string(server) + R"(","type":"server","props":{"weight":)" + std::to_string(version % 9 + 1) +
           "}}]}}";
}

double bestOf(int rounds, double (*measure)(const std::string &, TavConnector *), const std::string &text, TavConnector *c) {
    double best = 1e9;
    for (int i = 0; i < rounds; i++) best = std::min(best, measure(text, c));
    return best;
}

double parse(const std::string &text, TavConnector *) {
    const auto start = Clock::now();
    json_t *json = json_loads(text.c_str(), 0, nullptr);
    const double taken = since(start);
    json_decref(json);
    return taken;
}

double give(const std::string &text, TavConnector *c) {
    const auto start = Clock::now();
    if (tavHandleJsonFromRestService(text.c_str(), c) < 0) std::abort();
    return since(start);
}

double deltaMicroseconds(TavConnector *c, int objects) {
    const std::string document = makeDocument(objects);
    give(document, c);
    const int rounds = 2000;
    double total = 0;
    for (int i = 0; i < rounds; i++) total += give(oneProperty(i + 2, i * 7919 % (objects / 10)), c);
    return total / rounds * 1000;
}

// The heap that one more snapshot of the document in place takes, in bytes.
size_t snapshotBytes(Tav *tav) {
    const size_t before = mallinfo2().uordblks;
    tavControlLock("bench");
    TavRoutingInfo *ri = tavCreateAndPopulateNewRoutingInfo(tav);
    tavControlUnlock();
    const size_t bytes = mallinfo2().uordblks - before;
    tavRoutingInfoRelease(ri);
    return bytes;
}

} // namespace

int main() {
    Tav *tav = createInstance();
    if (!tav) return 1;
    TavConnector *c = tavConnectorCreate(tavConnectorGroupCreate(tav, "g"), "http://127.0.0.1:1");
    const std::string text = makeDocument(100000);
    const double parsing = bestOf(5, parse, text, nullptr);
    const double first = give(text, c);
    const double applying = bestOf(5, give, text, c);
    std::printf(
        "complete document, %.1f MB, 100000 objects: json_loads %.1f ms, first snapshot %.1f ms (ratio %.2f), replacement %.1f ms (ratio "
        "%.2f)\n",
        static_cast<double>(text.size()) / 1e6, parsing, first, first / parsing, applying, applying / parsing);
    const size_t bytes = snapshotBytes(tav);
    std::printf("snapshot: %.1f MB, %.2f of its document's text\n", static_cast<double>(bytes) / 1e6,
                static_cast<double>(bytes) / static_cast<double>(text.size()));
    const double small = deltaMicroseconds(c, 1000), large = deltaMicroseconds(c, 100000);
    std::printf("one-property delta: %.1f us on 1000 objects, %.1f us on 100000 (ratio %.2f)\n", small, large, large / small);
    tavDestroy(tav);
    return 0;
}
