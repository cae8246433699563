#include "system/Instance.h"

#include <jansson.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <future>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "tavRequestMapper/tavRequestMapper.h"
#include "tavSnapshot/tavRoutingInfo.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"

struct EnvTargetEndpoint {
    char content;
};

namespace {

struct Pending {
    TavHttpResponseCallBack callback;
    TavHttpResponseContext *passback;
    bool report;
};

// An array, so that a test may count what the library allocates.
constexpr size_t MOST_PENDING = 65536;
std::mutex mutex;
Pending pending[MOST_PENDING];
size_t pendingCount;
struct Alarm {
    void (*fn)(void *);
    void *arg;
};
std::vector<Alarm> alarms; // that nobody has let ring yet
std::atomic<int> endpoints;
char client;

EnvConnectorClient *openClient(TavConnector *) { return reinterpret_cast<EnvConnectorClient *>(&client); }
void closeClient(EnvConnectorClient *) {}
void freeResponse(TavHttpResponse *) {}

int keepRequest(EnvConnectorClient *, const char *, const char *, const char *body, int, TavHttpResponseCallBack callback,
                TavHttpResponseContext *passback) {
    const bool report = body && (strstr(body, "Routes\"") || strstr(body, "healthPolicyName"));
    const std::lock_guard<std::mutex> guard(mutex);
    if (pendingCount == MOST_PENDING) return -1;
    pending[pendingCount++] = {callback, passback, report};
    return 0;
}

// Takes what is pending, all or the reports only.
std::vector<Pending> takePending(bool reportsOnly) {
    std::vector<Pending> taken;
    const std::lock_guard<std::mutex> guard(mutex);
    const size_t count = std::exchange(pendingCount, 0);
    for (size_t i = 0; i < count; i++)
        if (reportsOnly && !pending[i].report)
            pending[pendingCount++] = pending[i];
        else
            taken.push_back(pending[i]);
    return taken;
}

EnvTargetEndpoint *createEndpoint(TavTargetEndpoint *) {
    auto *endpoint = new (std::nothrow) EnvTargetEndpoint;
    if (endpoint) endpoints++;
    return endpoint;
}
int deleteEndpoint(EnvTargetEndpoint *endpoint) {
    endpoints--;
    delete endpoint;
    return 0;
}

} // namespace

std::string takeText(json_t *json) {
    char *text = json ? json_dumps(json, JSON_SORT_KEYS | JSON_INDENT(1)) : nullptr;
    std::string result = text ? text : "";
    free(text);
    json_decref(json);
    return result;
}

EnvCallBacks systemCallBacks() {
    EnvCallBacks env = fakeHostCallBacks();
    env.version = TAV_ENV_VERSION;
    env.http.connector.open = openClient;
    env.http.connector.close = closeClient;
    env.http.connector.freeResponse = freeResponse;
    env.http.connector.sendRequest = keepRequest;
    env.targetEndpoint.create = createEndpoint;
    env.targetEndpoint.delete_ = deleteEndpoint;
    env.alarm = [](void (*fn)(void *), void *arg, int) {
        const std::lock_guard<std::mutex> guard(mutex);
        alarms.push_back({fn, arg});
        return 0;
    };
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

int systemPolls() {
    const std::lock_guard<std::mutex> guard(mutex);
    int polls = 0;
    for (size_t i = 0; i < pendingCount; i++) polls += !pending[i].report;
    return polls;
}

bool systemAnswerPoll(int code, const std::string &body) {
    Pending poll{};
    {
        const std::lock_guard<std::mutex> guard(mutex);
        size_t i = 0;
        while (i < pendingCount && pending[i].report) i++;
        if (i == pendingCount) return false;
        poll = pending[i];
        pending[i] = pending[--pendingCount];
    }
    std::string copy = body;
    TavHttpResponse response{};
    response.responseCode = code;
    response.body = copy.data();
    poll.callback(&response, poll.passback);
    return true;
}

void systemAnswerNone() {
    for (std::vector<Pending> taken; !(taken = takePending(false)).empty();)
        for (const Pending &each : taken) each.callback(nullptr, each.passback);
    systemRing();
}

void systemRing() {
    std::vector<Alarm> ringing;
    {
        const std::lock_guard<std::mutex> guard(mutex);
        ringing.swap(alarms);
    }
    for (const Alarm &alarm : ringing) alarm.fn(alarm.arg);
}

int systemHostEndpoints() { return endpoints; }

int systemThreads() {
    // With the first thread a sanitizer starts one of its own.
    static const bool started = (std::thread([] {}).join(), true);
    int count = started ? 0 : 1;
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

SystemParts systemCreate(const EnvCallBacks &env, const std::string &url) {
    EnvCallBacks table = env;
    SystemParts made;
    made.tav = tavCreate(&table, nullptr, systemCatalogue);
    made.group = tavConnectorGroupCreate(made.tav, "g");
    made.connector = tavConnectorCreate(made.group, url.c_str());
    return made;
}

int systemSettle(Tav *tav) {
    int blocks = 0;
    for (int i = 0; i < 3; i++) { // an answer may be work for the thread again
        std::promise<int> done;
        const auto report = [](Tav *, void *promise) { static_cast<std::promise<int> *>(promise)->set_value(tavGetMemCount() - 1); };
        tavProcessAsync(tav, &done, report, nullptr);
        blocks = done.get_future().get();
        systemAnswerReports();
    }
    return blocks;
}

bool systemBlocksBackTo(int count) {
    for (int turn = 0; tavGetMemCount() > count; turn++) {
        if (turn == 1000000) return false;
        std::this_thread::yield();
    }
    return true;
}

SystemInstance::SystemInstance(const EnvCallBacks &env, void (*beforeStart)(Tav *tav)) : SystemParts(systemCreate(env)) {
    if (beforeStart) beforeStart(tav);
    tavStart(tav, -1);
}

SystemInstance::~SystemInstance() {
    tavDestroy(tav);
    systemAnswerNone();
}

std::string systemDump(Tav *tav) {
    TavRoutingInfo *ri = tavRoutingInfoObtain(tav);
    if (!ri) return "";
    const std::string text = takeText(rmToJSON(ri->requestMapper)) + takeText(tsToJSON(ri->targetSelector));
    tavRoutingInfoRelease(ri);
    return text;
}
