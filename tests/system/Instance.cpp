#include "system/Instance.h"

#include <jansson.h>

#include <atomic>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <vector>

#include "tav/tavRoutingInfo.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"

struct EnvTargetEndpoint {
    std::string name;
};

namespace {

struct Pending {
    TavHttpResponseCallBack callback;
    TavHttpResponseContext *passback;
    bool report;
};

std::mutex mutex;
std::vector<Pending> pending;
std::atomic<int> endpoints;
char client;

EnvConnectorClient *openClient(TavConnector *) { return reinterpret_cast<EnvConnectorClient *>(&client); }
void closeClient(EnvConnectorClient *) {}
void freeResponse(TavHttpResponse *) {}

int keepRequest(EnvConnectorClient *, const char *, const char *, const char *body, int, TavHttpResponseCallBack callback,
                TavHttpResponseContext *passback) {
    const bool report = body && (strstr(body, "Routes\"") || strstr(body, "healthPolicyName"));
    const std::lock_guard<std::mutex> guard(mutex);
    pending.push_back({callback, passback, report});
    return 0;
}

// Takes what is pending, all or the reports only.
std::vector<Pending> takePending(bool reportsOnly) {
    std::vector<Pending> taken, rest;
    const std::lock_guard<std::mutex> guard(mutex);
    for (const Pending &each : pending) (!reportsOnly || each.report ? taken : rest).push_back(each);
    pending = rest;
    return taken;
}

EnvTargetEndpoint *createEndpoint(TavTargetEndpoint *endpoint) {
    endpoints++;
    return new EnvTargetEndpoint{tavTargetEndpointGetName(endpoint)};
}
int deleteEndpoint(EnvTargetEndpoint *endpoint) {
    endpoints--;
    delete endpoint;
    return 0;
}

std::string takeText(json_t *json) {
    char *text = json ? json_dumps(json, JSON_SORT_KEYS | JSON_INDENT(1)) : nullptr;
    std::string result = text ? text : "";
    free(text);
    json_decref(json);
    return result;
}

} // namespace

EnvCallBacks systemCallBacks() {
    EnvCallBacks env = fakeHostCallBacks();
    env.version = TAV_ENV_VERSION;
    env.http.connector.open = openClient;
    env.http.connector.close = closeClient;
    env.http.connector.freeResponse = freeResponse;
    env.http.connector.sendRequest = keepRequest;
    env.targetEndpoint.create = createEndpoint;
    env.targetEndpoint.delete_ = deleteEndpoint;
    env.alarm = [](void (*)(void *), void *, int) { return -1; };
    env.trace.printf = [](const TrContext *, va_list) { return 0; };
    return env;
}

void systemAnswerReports() {
    static char body[] = "{}";
    for (const Pending &each : takePending(true)) {
        TavHttpResponse response{};
        response.responseCode = 200;
        response.body = body;
        each.callback(&response, each.passback);
    }
}

void systemAnswerNone() {
    for (std::vector<Pending> taken; !(taken = takePending(false)).empty();)
        for (const Pending &each : taken) each.callback(nullptr, each.passback);
}

int systemHostEndpoints() { return endpoints; }

int systemThreads() {
    int count = 0;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) count += task.exists();
    return count;
}

bool systemThreadsBackTo(int count) {
    for (int i = 0; i < 60000; i++) {
        if (systemThreads() <= count) return true;
        const timespec moment{0, 1000000};
        nanosleep(&moment, nullptr);
    }
    return false;
}

SystemInstance::SystemInstance(const EnvCallBacks &env) {
    static char catalogue[] = TAV_SOURCE_DIR "/share/tav-trace.xml";
    EnvCallBacks table = env;
    tav = tavCreate(&table, nullptr, catalogue);
    if (!tav) return;
    group = tavConnectorGroupCreate(tav, "g");
    connector = group ? tavConnectorCreate(group, "http://127.0.0.1:1") : nullptr;
    tavStart(tav, -1);
}

SystemInstance::~SystemInstance() {
    tavDestroy(tav);
    systemAnswerNone();
}

std::string SystemInstance::dump() const {
    TavRoutingInfo *ri = tavRoutingInfoObtain(tav);
    if (!ri) return "";
    const std::string text = takeText(rmToJSON(ri->requestMapper)) + takeText(tsToJSON(ri->targetSelector));
    tavRoutingInfoRelease(ri);
    return text;
}
