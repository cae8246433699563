#include "engine/Engine.h"

#include <fmt/format.h>

#include <cstdio>

#include "HostInstance.h"
#include "SilentTransport.h"
#include "engine/Inside.h"
#include "engine/ScenarioHost.h"
#include "engine/TraceLog.h"
#include "support/Fault.h"
#include "support/Json.h"
#include "support/Progress.h"

// The trace catalogue, generated from share/tav-trace.xml.
extern "C" const unsigned char tavctlCatalogue[];
extern "C" const size_t tavctlCatalogueSize;

namespace tavctl {

namespace {

EnvCallBacks callBacks() {
    EnvCallBacks env = scenarioHostCallBacks();
    tavhost::useSilentTransport(env);
    env.trace.printf = traceHook;
    return env;
}

// The last text that is an error or a warning.
std::string refusalText(const TraceLines &lines) {
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const int level = trLevelNameToIndex(line->level.c_str());
        if (level >= 0 && level <= trLevelNameToIndex("WARNING")) return line->text;
    }
    return "the library refused the document";
}

} // namespace

Tav *createInstance(EnvCallBacks &env) {
    FILE *catalogue = fmemopen(const_cast<unsigned char *>(tavctlCatalogue), tavctlCatalogueSize, "r");
    if (!catalogue) throw InternalFault("the trace catalogue cannot be opened");
    Tav *tav = tavCreate(&env, catalogue, nullptr);
    fclose(catalogue);
    if (!tav) throw InternalFault("the library could not be started");
    return tav;
}

Engine::Engine() {
    EnvCallBacks env = callBacks();
    tav_ = createInstance(env);
    group_ = tavConnectorGroupCreate(tav_, "scenario");
    connector_ = group_ ? tavConnectorCreate(group_, "http://scenario.invalid/") : nullptr;
    if (connector_ && tavStart(tav_, -1) == 0) return;
    tavDestroy(tav_);
    throw InternalFault("the library could not be started");
}

Engine::~Engine() { tavhost::endInstance(tav_, tavConnectorGroupGetName(group_)); }

long long Engine::apply(const std::string &document, std::vector<DocumentFinding> *findings) {
    TraceLines lines;
    long long version = 0;
    {
        const TraceRecording recording(lines);
        version = findings ? applyObserved(connector_, document, *findings) : tavHandleJsonFromRestService(document.c_str(), connector_);
    }
    refusal_ = version == -1 ? refusalText(lines) : "";
    return version;
}

int Engine::setProperty(const std::string &name, const std::optional<std::string> &value) {
    return tavPropertySet(tavGetProperties(tav_), name.c_str(), value ? value->c_str() : nullptr, TRUE);
}

void applyFile(Engine &engine, const std::string &path) {
    const Progress progress(path);
    const std::string text = readFile(path);
    parseJson(text, path); // for the line of a syntax error
    if (engine.apply(text) == -1) throw Fault(path, 0, engine.refusal());
}

tavhost::NameValue nameValueOf(const std::string &text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) throw Fault(fmt::format("property '{}': write NAME=VALUE", text));
    return {text.substr(0, equals), text.substr(equals + 1)};
}

void ConfigurationOptions::applyTo(Engine &engine) const {
    for (const std::string &property : properties) {
        const auto [name, value] = nameValueOf(property);
        if (engine.setProperty(name, value) == -1) throw Fault(fmt::format("property '{}': the library refused it", property));
    }
    if (!config.empty()) applyFile(engine, config);
    for (const std::string &delta : deltas) applyFile(engine, delta);
}

} // namespace tavctl
