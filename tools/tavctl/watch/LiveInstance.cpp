#include "watch/LiveInstance.h"

#include <fmt/format.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "Engine.h"
#include "Fault.h"
#include "Inside.h"
#include "Json.h"
#include "ScenarioHost.h"
#include "TraceLog.h"

namespace tavctl {

namespace {

constexpr const char *EVENT_TRACE = ":NOTICE,control.json.received:DEBUG,control.json.sent:DEBUG,control.ipc:DEBUG";
constexpr const char *RECEIVED_ID = "TAV0101D", *SENT_ID = "TAV0103D", *STATE_IDS[] = {"TAV0001N", "TAV0002N"};

// The library's callbacks know of no owner: there is one instance, and it tells this log.
EventLog *eventLog = nullptr;
bool traceAll = false;
int documentEvent = -1;

// The library has no name for the last state.
const char *stateName(TavComponentState state) { return state == DELETED ? "DELETED" : tavState2String(state); }

void tellState(const char *what, const char *name, TavComponentState state, const char *reason) {
    const std::string title = *name ? fmt::format("{} {}", what, name) : what;
    eventLog->tell("state", fmt::format("{}: {} ({})", title, stateName(state), reason ? reason : ""),
                   {{"of", what}, {"name", name}, {"state", stateName(state)}, {"reason", reason ? reason : ""}});
}

// ---- documents and posts ----

void documentArrived() {
    const uint64_t one = 1;
    if (write(documentEvent, &one, sizeof one) < 0) return; // already readable
}

void tellReceived(const char *text) {
    const Json document(json_loads(text, 0, nullptr));
    const bool delta = json_is_true(json_object_get(document.get(), "delta"));
    const long long version = json_integer_value(json_object_get(document.get(), "version"));
    const std::string kind = !document ? "not JSON" : delta ? "delta" : "complete";
    const size_t bytes = strlen(text);
    eventLog->tell("document", fmt::format("{}, version {}, {} bytes", kind, version, bytes),
                   {{"kind", kind}, {"version", std::to_string(version), true}, {"bytes", std::to_string(bytes), true}});
    documentArrived();
}

// The interest specification is sent too; it is no JSON.
void tellSent(const char *body) {
    const Json post(json_loads(body, 0, nullptr));
    if (!post) return;
    const std::string line = jsonLine(post.get());
    eventLog->tell("posted", line, {{"body", line}});
}

// A worker's documents come from the daemon.
void tellDaemonMessage(int type) {
    static const struct {
        int type;
        const char *text;
    } messages[] = {{1, "begin of a complete configuration"}, {2, "complete"}, {3, "end of a complete configuration"}, {4, "delta"}};
    for (const auto &message : messages) {
        if (message.type != type) continue;
        eventLog->tell("document", fmt::format("from the daemon: {}", message.text), {{"kind", message.text}});
        documentArrived();
    }
}

// ---- the trace hook ----

std::string formatted(const char *format, va_list args) {
    char *text = nullptr;
    const int length = vasprintf(&text, format, args);
    if (length < 0) return {};
    std::string result(text, static_cast<size_t>(length));
    free(text);
    while (result.ends_with('\n')) result.pop_back();
    return result;
}

bool tellDocuments(const TrContext *ctx, const char *format, va_list args) {
    const std::string_view id = trContextGetMessageId(ctx);
    if (id == RECEIVED_ID) return tellReceived(va_arg(args, const char *)), true;
    if (id == SENT_ID) {
        const std::string text = formatted(format, args);
        const size_t body = text.find('{');
        return body != std::string::npos ? tellSent(text.c_str() + body) : void(), true;
    }
    int type = 0;
    if (sscanf(formatted(format, args).c_str(), "tavClientProcessHandleMessage - message type %d", &type) != 1) return false;
    return tellDaemonMessage(type), true;
}

int tellTrace(const TrContext *ctx, va_list args) {
    if (recordingTrace()) return traceHook(ctx, args);
    if (!eventLog) return 0;
    const char *format = trContextGetFormat(ctx), *level = trContextGetLevel(ctx), *id = trContextGetMessageId(ctx);
    if (!format || !level || std::any_of(std::begin(STATE_IDS), std::end(STATE_IDS), [&](const char *state) { return !strcmp(state, id); }))
        return 0;
    va_list again;
    va_copy(again, args);
    const bool told = tellDocuments(ctx, format, again);
    va_end(again);
    if (told || (!traceAll && trLevelNameToIndex(level) > trLevelNameToIndex("NOTICE"))) return 0;
    const std::string text = formatted(format, args);
    eventLog->tell("library", fmt::format("{} {}{}", level, strcmp(id, "-1") != 0 ? std::string(id) + " " : "", text),
                   {{"level", level}, {"id", id}, {"text", text}});
    return 0;
}

EnvCallBacks callBacks() {
    EnvCallBacks env = scenarioHostCallBacks();
    env.trace.printf = tellTrace;
    env.stateChange.tav = [](Tav *, TavComponentState state, char *reason) { tellState("library", "", state, reason); };
    env.stateChange.tavConnectorGroup = [](TavConnectorGroup *group, TavComponentState state, char *reason) {
        tellState("group", tavConnectorGroupGetName(group), state, reason);
    };
    env.stateChange.tavConnector = [](TavConnector *connector, TavComponentState state, char *reason) {
        tellState("connector", tavConnectorGetURL(connector), state, reason);
    };
    return env;
}

std::pair<std::string, std::string> nameAndValue(const std::string &property) {
    const size_t equals = property.find('=');
    if (equals == std::string::npos) throw Fault(fmt::format("property '{}': write NAME=VALUE", property));
    return {property.substr(0, equals), property.substr(equals + 1)};
}

} // namespace

LiveInstance::LiveInstance(const LiveOptions &options, EventLog &log) {
    traceAll = !options.trace.empty();
    documentEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (documentEvent < 0) throw Fault("no event descriptor is left");
    EnvCallBacks env = callBacks();
    tav_ = createInstance(env);
    try {
        configure(options, &log);
    } catch (...) {
        eventLog = nullptr;
        tavDestroy(tav_);
        close(documentEvent);
        throw;
    }
    tavStart(tav_, -1);
}

LiveInstance::~LiveInstance() {
    tavStop(tav_);
    tavDestroy(tav_);
    eventLog = nullptr;
    close(documentEvent);
}

void LiveInstance::configure(const LiveOptions &options, EventLog *log) {
    const std::string trace = options.trace.empty() ? EVENT_TRACE : std::string(EVENT_TRACE) + "," + options.trace;
    if (tavSetTraceSpec(tav_, trace.c_str()) != 0) throw Fault(fmt::format("trace specification '{}' does not parse", options.trace));
    eventLog = log;
    for (const std::string &property : options.properties) {
        const auto [name, value] = nameAndValue(property);
        if (tavPropertySet(tavGetProperties(tav_), name.c_str(), value.c_str(), TRUE) == -1)
            throw Fault(fmt::format("property '{}': the library refused it", property));
    }
    group_ = tavConnectorGroupCreate(tav_, options.group.c_str());
    if (!group_) throw Fault("the connector group could not be made");
    for (const std::string &property : options.groupProperties) {
        const auto [name, value] = nameAndValue(property);
        if (!tavConnectorGroupSetProperty(group_, name.c_str(), value.c_str()))
            throw Fault(fmt::format("property '{}' is none of a connector group", name));
    }
    if (options.wait > 0) tavConnectorGroupSetWaitTime(group_, options.wait);
    for (const std::string &url : options.controllers) {
        if (!tavConnectorCreate(group_, url.c_str())) throw Fault(fmt::format("controller '{}' could not be added", url));
    }
    std::string socket = options.daemon + options.worker;
    if (!options.daemon.empty() && tavMarkAsServerProcess(tav_, socket.data(), getuid()) != 0)
        throw Fault("the daemon could not be set up");
    if (!options.worker.empty() && tavMarkAsClientProcess(tav_, socket.data()) != 0) throw Fault("the worker could not be set up");
}

int LiveInstance::documentFd() const { return documentEvent; }

void LiveInstance::forgetDocuments() {
    uint64_t count = 0;
    if (read(documentEvent, &count, sizeof count) < 0) return; // there were none
}

long long LiveInstance::version() const { return appliedVersion(group_); }

} // namespace tavctl
