#include "HostInstance.h"

#include <strings.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "CurlOptions.h"
#include "CurlTransport.h"
#include "SilentTransport.h"

namespace tavhost {

namespace {

constexpr const char *FILE_URL = "http://file.invalid/";

void applyProperties(Tav *tav, const HostOptions &options) {
    for (const auto &[name, value] : options.properties) {
        if (tavPropertySet(tavGetProperties(tav), name.c_str(), value.c_str(), TRUE) == -1)
            throw HostFault("the property '" + name + "' is not known, or its value '" + value + "' is refused");
    }
}

TavConnectorGroup *createGroup(Tav *tav, const std::string &name) {
    TavConnectorGroup *group = tavConnectorGroupCreate(tav, name.c_str());
    if (!group) throw HostFault("the controller group '" + name + "' cannot be created");
    return group;
}

void addController(TavConnectorGroup *group, const std::string &url) {
    if (!isControllerUrl(url)) throw HostFault("the controller '" + url + "' is no URL such as http://controller.example:8700");
    if (!tavConnectorCreate(group, url.c_str())) throw HostFault("the controller '" + url + "' cannot be added");
}

// The library takes the number that a text begins with, and 0 for none.
void requireNumber(const std::string &name, const std::string &value) {
    for (const char *number : {"maxRetries", "retryInterval", "maxWaitOffset"}) {
        if (strcasecmp(name.c_str(), number) != 0) continue;
        if (value.empty() || value.size() > 9 || value.find_first_not_of("0123456789") != std::string::npos)
            throw HostFault("'" + name + "' of a controller group takes a number, not '" + value + "'");
    }
}

void addGroup(Tav *tav, const ControllerGroup &configured) {
    TavConnectorGroup *group = createGroup(tav, configured.name);
    for (const auto &[name, value] : configured.properties) {
        requireNumber(name, value);
        if (!tavConnectorGroupSetProperty(group, name.c_str(), value.c_str()))
            throw HostFault("'" + name + "' is no property of a controller group");
    }
    if (configured.wait > 0) tavConnectorGroupSetWaitTime(group, configured.wait);
    for (const std::string &url : configured.urls) addController(group, url);
}

bool needsCurl(const HostOptions &options) {
    if (!options.transport.proxy.empty()) return true;
    return std::any_of(options.groups.begin(), options.groups.end(), [](const ControllerGroup &group) {
        return std::any_of(group.urls.begin(), group.urls.end(),
                           [](const std::string &url) { return strncasecmp(url.c_str(), "https:", 6) == 0; });
    });
}

void markProcess(Tav *tav, const HostOptions &options, Process process) {
    if (process != Process::Standalone && options.socketPath.size() > LONGEST_SOCKET_PATH)
        throw HostFault("the socket's path '" + options.socketPath + "' is longer than " + std::to_string(LONGEST_SOCKET_PATH) + " bytes");
    std::string socket = options.socketPath;
    if (process == Process::Daemon && tavMarkAsServerProcess(tav, socket.data(), options.socketUid) != 0)
        throw HostFault("the daemon cannot be set up");
    if (process == Process::Worker && tavMarkAsClientProcess(tav, socket.data()) != 0) throw HostFault("the worker cannot be set up");
}

std::string readFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    const bool empty = file.peek() == std::ifstream::traits_type::eof(); // of which nothing can be copied
    if (file.bad() || !file.is_open() || (!empty && !(text << file.rdbuf())))
        throw HostFault("the configuration file '" + path + "' cannot be read");
    return text.str();
}

void applyFile(Tav *tav, const HostOptions &options) {
    const std::string text = readFile(options.configFile);
    TavConnector *connector = tavConnectorGroupFindConnector(tavFindConnectorGroup(tav, FILE_GROUP), FILE_URL);
    if (text.find('\0') != std::string::npos || tavHandleJsonFromRestService(text.c_str(), connector) == -1)
        throw HostFault("the configuration file '" + options.configFile + "' is no configuration document");
}

} // namespace

void configureInstance(Tav *tav, const HostOptions &options, Process process) {
    if (!options.traceSpec.empty() && tavSetTraceSpec(tav, options.traceSpec.c_str()) != 0)
        throw HostFault("the trace specification '" + options.traceSpec + "' does not parse");
    if (!options.transport.proxy.empty() && !isProxyUrl(options.transport.proxy))
        throw HostFault("the proxy '" + options.transport.proxy + "' is no URL such as http://proxy.example:3128");
    applyProperties(tav, options);
    for (const ControllerGroup &group : options.groups) addGroup(tav, group);
    if (!options.configFile.empty()) addController(createGroup(tav, FILE_GROUP), FILE_URL);
    markProcess(tav, options, process);
}

// A transport that asks the controllers. The library has one of its own for plain HTTP without a proxy; a worker needs none.
void chooseTransport(EnvCallBacks &env, const HostOptions &options, Process process) {
    if (!options.configFile.empty()) return useSilentTransport(env);
    if (process != Process::Worker && needsCurl(options)) useCurlTransport(env, options.transport);
}

namespace {

Tav *createConfigured(EnvCallBacks env, const HostOptions &options, Process process) {
    std::string catalogue = options.catalogue;
    Tav *tav = tavCreate(&env, nullptr, catalogue.data());
    if (!tav) throw HostFault("the library cannot be started with the trace catalogue '" + options.catalogue + "'");
    try {
        configureInstance(tav, options, process);
    } catch (...) {
        tavDestroy(tav);
        throw;
    }
    return tav;
}

} // namespace

Tav *createInstance(EnvCallBacks env, const HostOptions &options, Process process) {
    chooseTransport(env, options, process);
    try {
        return createConfigured(env, options, process);
    } catch (...) {
        endCurlRequests();
        throw;
    }
}

void startInstance(Tav *tav, const HostOptions &options, int seconds) {
    if (!options.configFile.empty()) {
        tavStart(tav, -1);
        return applyFile(tav, options);
    }
    tavStart(tav, seconds > 0 ? seconds + 1 : -1);
}

void endInstance(Tav *tav, const char *silentGroup) {
    const TavConnectorGroup *group = tavFindConnectorGroup(tav, silentGroup);
    tavStop(tav);
    endSilentRequests(group);
    endCurlRequests();
    tavDestroy(tav);
    endSilentRequests(group);
}

void checkOptions(EnvCallBacks env, const HostOptions &options) {
    useSilentTransport(env);
    env.stateChange = {};
    env.targetEndpoint = {};
    if (options.groups.empty() == options.configFile.empty())
        throw HostFault(options.groups.empty() ? "neither a controller nor a configuration file is given"
                                               : "a configuration file and a controller exclude each other");
    Tav *tav = createConfigured(env, options, Process::Standalone);
    try {
        if (!options.configFile.empty()) startInstance(tav, options, 0);
    } catch (...) {
        endInstance(tav);
        throw;
    }
    endInstance(tav);
}

} // namespace tavhost
