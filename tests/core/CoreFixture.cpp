#include "core/CoreFixture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"

namespace {

std::mutex traceMutex;
std::vector<std::string> traceLines;

int keepTrace(const TrContext *ctx, va_list args) {
    const char *format = trContextGetFormat(ctx);
    if (!format) return 0;
    char line[4096];
    std::vsnprintf(line, sizeof line, format, args);
    const std::lock_guard<std::mutex> guard(traceMutex);
    traceLines.emplace_back(line);
    return 0;
}

char client;
EnvConnectorClient *openClient(TavConnector *) { return reinterpret_cast<EnvConnectorClient *>(&client); }
void closeClient(EnvConnectorClient *) {}
void freeResponse(TavHttpResponse *) {}

int ownersBefore;

std::string textOf(json_t *json) {
    char *text = json ? json_dumps(json, JSON_SORT_KEYS | JSON_INDENT(1)) : nullptr;
    std::string result = text ? text : "";
    free(text);
    return result;
}

// A copy without the nulls that deleted elements leave in arrays.
json_t *withoutHoles(json_t *json) {
    if (json_is_array(json)) {
        json_t *copy = json_array();
        for (size_t i = 0; i < json_array_size(json); i++) {
            json_t *element = json_array_get(json, i);
            if (!json_is_null(element)) json_array_append_new(copy, withoutHoles(element));
        }
        return copy;
    }
    if (!json_is_object(json)) return json_incref(json);
    json_t *copy = json_object();
    for (void *it = json_object_iter(json); it; it = json_object_iter_next(json, it))
        json_object_set_new(copy, json_object_iter_key(it), withoutHoles(json_object_iter_value(it)));
    return copy;
}

} // namespace

std::vector<CoreFixture::Pending> &CoreFixture::pending() {
    static std::vector<Pending> requests;
    return requests;
}

CoreFixture::CoreFixture() : env(fakeHostCallBacks()) {
    env.version = TAV_ENV_VERSION;
    env.http.connector.open = openClient;
    env.http.connector.close = closeClient;
    env.http.connector.freeResponse = freeResponse;
    env.http.connector.sendRequest = [](EnvConnectorClient *, const char *method, const char *uri, const char *body, int,
                                        TavHttpResponseCallBack callback, TavHttpResponseContext *passback) {
        pending().push_back({callback, passback, method, uri, body ? body : ""});
        return 0;
    };
    env.alarm = [](void (*)(void *), void *, int) { return -1; };
    env.trace.printf = keepTrace;
}

CoreFixture::~CoreFixture() = default;

void CoreFixture::SetUp() {
    static char catalogue[] = TAV_SOURCE_DIR "/share/tav-trace.xml";
    ownersBefore = tavGetMemCount();
    tav = tavCreate(&env, nullptr, catalogue);
    ASSERT_NE(tav, nullptr);
    group = tavConnectorGroupCreate(tav, "g");
    connector = tavConnectorCreate(group, "http://127.0.0.1:1");
    ASSERT_EQ(tavStart(tav, -1), 0);
    takeTrace();
}

// Late answers find that nobody waits for them, and everything has gone back.
void CoreFixture::TearDown() {
    tavDestroy(tav);
    for (size_t i = 0; i < pending().size(); i++) pending()[i].callback(nullptr, pending()[i].passback);
    pending().clear();
    trDestroy();
    takeTrace();
    EXPECT_EQ(tavGetMemCount(), ownersBefore);
}

std::string CoreFixture::dump() {
    TavRoutingInfo *ri = tavRoutingInfoObtain(tav);
    json_t *applications = rmToJSON(ri->requestMapper);
    json_t *clusters = tsToJSON(ri->targetSelector);
    const std::string text =
        textOf(applications) + "\n" + textOf(clusters) + "\nrules " + std::to_string(tavRulesGetCount(tav->requestTraceRules));
    json_decref(applications);
    json_decref(clusters);
    tavRoutingInfoRelease(ri);
    return text;
}

std::string CoreFixture::storedText() const {
    json_t *copy = connector->json ? withoutHoles(connector->json) : nullptr;
    const std::string text = textOf(copy);
    json_decref(copy);
    return text;
}

void CoreFixture::traceOn(const char *spec) {
    tavSetTraceSpec(tav, spec);
    takeLines();
}

std::vector<std::string> CoreFixture::takeLines() {
    const std::lock_guard<std::mutex> guard(traceMutex);
    return std::exchange(traceLines, {});
}

std::string CoreFixture::takeTrace() {
    std::string text;
    for (const std::string &line : takeLines()) text += line + (line.ends_with('\n') ? "" : "\n");
    return text;
}

int CoreFixture::traced(const std::string &part) {
    const std::lock_guard<std::mutex> guard(traceMutex);
    const auto has = [&](const std::string &line) { return line.find(part) != std::string::npos; };
    return static_cast<int>(std::count_if(traceLines.begin(), traceLines.end(), has));
}

std::string quoted(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}
