// One library instance for the tool: standalone, one connector group "scenario" with one connector, no network.
//
// Documents are handed in as if the connector had received them. The transport accepts every poll and answers none; what it was given is
// ended when the engine goes. Several engines may live at a time; each is used by one thread.
#ifndef TAVCTL_ENGINE_H
#define TAVCTL_ENGINE_H

#include <tav/tav.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "HostOptions.h"

namespace tavctl {

// What the library refused, skipped or did not take in a document; `pointer` is a JSON pointer into it.
struct DocumentFinding {
    std::string pointer;
    std::string kind; // "document", "object", "property" or "relationship"
    std::string text;
};

// Creates an instance with the trace catalogue that is part of the program. Throws Fault.
Tav *createInstance(EnvCallBacks &env);

class Engine {
public:
    Engine(); // throws Fault
    ~Engine();
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    Tav *tav() const { return tav_; }
    TavConnectorGroup *group() const { return group_; }
    TavConnector *connector() const { return connector_; }

    // Applies a document and returns its version; -1: it was refused as a whole, see refusal().
    long long apply(const std::string &document, std::vector<DocumentFinding> *findings = nullptr);
    // What the library said when it refused the last document.
    const std::string &refusal() const { return refusal_; }
    // The result of tavPropertySet(), validated; no value removes the property.
    int setProperty(const std::string &name, const std::optional<std::string> &value);

private:
    Tav *tav_ = nullptr;
    TavConnectorGroup *group_ = nullptr;
    TavConnector *connector_ = nullptr;
    std::string refusal_;
};

// "NAME=VALUE". Throws Fault.
tavhost::NameValue nameValueOf(const std::string &text);

// --config, --delta and --property, shared by the commands that need a configuration.
struct ConfigurationOptions {
    std::string config;
    std::vector<std::string> deltas;
    std::vector<std::string> properties; // "NAME=VALUE"

    // Throws Fault when a file cannot be read or the library refuses it as a whole.
    void applyTo(Engine &engine) const;
};
// Reads the file and applies it. Throws Fault.
void applyFile(Engine &engine, const std::string &path);

} // namespace tavctl

#endif
