#include "watch/LiveInstance.h"

#include <fmt/format.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "HostInstance.h"
#include "TraceText.h"
#include "engine/Engine.h"
#include "engine/Inside.h"
#include "engine/ScenarioHost.h"
#include "engine/TraceLog.h"
#include "support/Fault.h"
#include "support/Json.h"

namespace tavctl {

namespace {

constexpr const char *EVENT_TRACE = ":NOTICE,control.json.received:DEBUG,control.json.sent:DEBUG,control.ipc:DEBUG";
constexpr std::string_view RECEIVED_ID = "TAV0101D", SENT_ID = "TAV0103D", STATE_IDS[] = {"TAV0001N", "TAV0002N"};

// The library's callbacks know of no owner: there is one instance, and it tells this log.
EventLog *eventLog = nullptr;
bool traceAll = false;
int documentEvent = -1;

// The library has no name for the last state.
const char *stateName(TavComponentState state) { return state == DELETED ? "DELETED" : tavState2String(state); }

void tellState(const char *what, const char *name, TavComponentState state, const char *reason) {
    if (!eventLog) return; // it is being set up or was refused
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

// TRUE when the message is told as an event of its own.
bool tellDocuments(const TrContext *ctx, va_list args) {
    const std::string_view id = trContextGetMessageId(ctx);
    if (id == RECEIVED_ID) {
        tellReceived(va_arg(args, const char *));
        return true;
    }
    const std::string text = tavhost::traceText(ctx, args).text;
    int type = 0;
    if (id == SENT_ID) {
        if (const size_t body = text.find('{'); body != std::string::npos) tellSent(text.c_str() + body);
    } else if (sscanf(text.c_str(), "tavClientProcessHandleMessage - message type %d", &type) == 1) {
        tellDaemonMessage(type);
    } else {
        return false;
    }
    return true;
}

int tellTrace(const TrContext *ctx, va_list args) {
    if (tavhost::recordTrace(ctx, args)) return 0;
    if (!eventLog || !trContextGetFormat(ctx)) return 0;
    va_list again;
    va_copy(again, args);
    const bool told = tellDocuments(ctx, again);
    va_end(again);
    if (told) return 0;
    const auto [level, id, text] = tavhost::traceText(ctx, args);
    if (std::find(std::begin(STATE_IDS), std::end(STATE_IDS), id) != std::end(STATE_IDS)) return 0;
    if (!traceAll && level > trLevelNameToIndex("NOTICE")) return 0;
    const std::string name = trLevelIndexToName(level);
    eventLog->tell("library", fmt::format("{} {}{}{}", name, id, id.empty() ? "" : " ", text),
                   {{"level", name}, {"id", id}, {"text", text}});
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

tavhost::Process processOf(const LiveOptions &options) {
    if (!options.daemon.empty()) return tavhost::Process::Daemon;
    return options.worker.empty() ? tavhost::Process::Standalone : tavhost::Process::Worker;
}

std::vector<tavhost::NameValue> nameValues(const std::vector<std::string> &properties) {
    std::vector<tavhost::NameValue> result;
    for (const std::string &property : properties) result.push_back(nameValueOf(property));
    return result;
}

tavhost::HostOptions hostOptions(const LiveOptions &options) {
    tavhost::HostOptions host;
    host.properties = nameValues(options.properties);
    host.groups = {{options.group, options.controllers, nameValues(options.groupProperties), options.wait}};
    host.transport = options.transport;
    host.socketPath = options.daemon + options.worker;
    host.socketUid = getuid();
    host.traceSpec = options.trace.empty() ? EVENT_TRACE : std::string(EVENT_TRACE) + "," + options.trace;
    return host;
}

} // namespace

LiveInstance::LiveInstance(const LiveOptions &options, EventLog &log) {
    const tavhost::HostOptions host = hostOptions(options);
    traceAll = !options.trace.empty();
    documentEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (documentEvent < 0) throw InternalFault("no event descriptor is left");
    EnvCallBacks env = callBacks();
    tavhost::chooseTransport(env, host, processOf(options));
    tav_ = createInstance(env);
    try {
        tavhost::configureInstance(tav_, host, processOf(options));
    } catch (const tavhost::HostFault &fault) {
        tavDestroy(tav_);
        close(documentEvent);
        throw Fault(fault.what());
    }
    eventLog = &log;
    tavhost::startInstance(tav_, host, options.daemon.empty() ? 0 : 5); // the daemon listens when it has something to tell
}

LiveInstance::~LiveInstance() {
    tavhost::endInstance(tav_);
    eventLog = nullptr;
    close(documentEvent);
}

int LiveInstance::documentFd() const { return documentEvent; }

void LiveInstance::forgetDocuments() {
    uint64_t count = 0;
    if (read(documentEvent, &count, sizeof count) < 0) return; // there were none
}

long long LiveInstance::version() const { return appliedVersion(tav_); }

} // namespace tavctl
