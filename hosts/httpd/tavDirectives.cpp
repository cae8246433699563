// The directives and what they say together.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "CurlOptions.h"
#include "tavModule.h"

namespace modtav {

ServerConfig *serverConfig(server_rec *server) {
    return static_cast<ServerConfig *>(ap_get_module_config(server->module_config, &tav_module));
}

void *createServerConfig(apr_pool_t *pool, server_rec *) { return poolNew<ServerConfig>(pool); }

void *mergeServerConfig(apr_pool_t *pool, void *base, void *added) {
    auto *merged = poolNew<ServerConfig>(pool, *static_cast<ServerConfig *>(base));
    const auto *host = static_cast<ServerConfig *>(added);
    if (host->enabled != -1) merged->enabled = host->enabled;
    return merged;
}

bool anyServerEnabled(server_rec *mainServer) {
    for (server_rec *server = mainServer; server; server = server->next) {
        if (serverConfig(server)->enabled == 1) return true;
    }
    return false;
}

const char *socketFault(apr_pool_t *pool, const std::string &path) {
    constexpr size_t room = sizeof ".status.4194304.new" - 1; // the longest name that a process makes of it
    if (path.size() + room <= tavhost::LONGEST_SOCKET_PATH) return nullptr;
    return apr_psprintf(pool, "the path of the socket, '%s', is longer than %d bytes", path.c_str(),
                        static_cast<int>(tavhost::LONGEST_SOCKET_PATH - room));
}

namespace {

// Everything but TavEnable belongs to the process and so to the main server.
const char *inMainServer(cmd_parms *cmd) { return ap_check_cmd_context(cmd, GLOBAL_ONLY); }

const char *setEnabled(cmd_parms *cmd, void *, int on) {
    serverConfig(cmd->server)->enabled = on;
    return nullptr;
}

tavhost::ControllerGroup *findGroup(cmd_parms *cmd, const char *name) {
    for (tavhost::ControllerGroup &group : serverConfig(cmd->server)->host.groups) {
        if (group.name == name) return &group;
    }
    return nullptr;
}

const char *addController(cmd_parms *cmd, void *, const char *name, const char *url) {
    if (const char *fault = inMainServer(cmd)) return fault;
    if (!tavhost::isControllerUrl(url))
        return apr_psprintf(cmd->pool, "TavController: '%s' is no URL such as http://controller.example:8700", url);
    tavhost::ControllerGroup *group = findGroup(cmd, name);
    if (!group) group = &serverConfig(cmd->server)->host.groups.emplace_back(tavhost::ControllerGroup{name, {}, {}, 0});
    group->urls.emplace_back(url);
    return nullptr;
}

// A number of seconds in the range; -1: it is none.
int secondsOf(const char *text, int least, int most) {
    char *end = nullptr;
    const long seconds = strtol(text, &end, 10);
    return end == text || *end || seconds < least || seconds > most ? -1 : static_cast<int>(seconds);
}

const char *setGroupProperty(cmd_parms *cmd, void *, const char *name, const char *property, const char *value) {
    if (const char *fault = inMainServer(cmd)) return fault;
    tavhost::ControllerGroup *group = findGroup(cmd, name);
    if (!group) return apr_psprintf(cmd->pool, "TavControllerProperty: no TavController above it names the group '%s'", name);
    if (strcasecmp(property, "wait") != 0) {
        group->properties.push_back({property, value});
        return nullptr;
    }
    group->wait = secondsOf(value, 1, 86400);
    return group->wait != -1 ? nullptr : "TavControllerProperty: wait takes a number of seconds from 1 to 86400";
}

const char *setProperty(cmd_parms *cmd, void *, const char *name, const char *value) {
    if (const char *fault = inMainServer(cmd)) return fault;
    serverConfig(cmd->server)->host.properties.push_back({name, value});
    return nullptr;
}

// A text of the way to the controllers.
template <std::string tavhost::TransportOptions::*MEMBER>
const char *setTransport(cmd_parms *cmd, void *, const char *value) {
    if (const char *fault = inMainServer(cmd)) return fault;
    serverConfig(cmd->server)->host.transport.*MEMBER = value;
    return nullptr;
}

const char *checkReadable(cmd_parms *cmd, const std::string &path) {
    if (access(path.c_str(), R_OK) == 0) return nullptr;
    return apr_psprintf(cmd->pool, "%s: '%s' cannot be read: %s", cmd->cmd->name, path.c_str(), strerror(errno));
}

// A file of it that must be there, relative to ServerRoot.
template <std::string tavhost::TransportOptions::*MEMBER>
const char *setTransportFile(cmd_parms *cmd, void *dir, const char *name) {
    const char *path = ap_server_root_relative(cmd->pool, name);
    if (const char *fault = setTransport<MEMBER>(cmd, dir, path ? path : name)) return fault;
    return checkReadable(cmd, path ? path : name);
}

const char *setVerify(cmd_parms *cmd, void *, int on) {
    if (const char *fault = inMainServer(cmd)) return fault;
    serverConfig(cmd->server)->host.transport.verifyServer = on != 0;
    return nullptr;
}

// A file name, relative to ServerRoot, into the member that the directive sets.
template <std::string tavhost::HostOptions::*MEMBER>
const char *setFile(cmd_parms *cmd, void *, const char *name) {
    if (const char *fault = inMainServer(cmd)) return fault;
    const char *path = ap_server_root_relative(cmd->pool, name);
    if (!path) return apr_psprintf(cmd->pool, "%s: '%s' is no file name", cmd->cmd->name, name);
    serverConfig(cmd->server)->host.*MEMBER = path;
    return nullptr;
}

// The same for a file that must be there.
template <std::string tavhost::HostOptions::*MEMBER>
const char *setReadableFile(cmd_parms *cmd, void *dir, const char *name) {
    if (const char *fault = setFile<MEMBER>(cmd, dir, name)) return fault;
    return checkReadable(cmd, serverConfig(cmd->server)->host.*MEMBER);
}

const char *setSocket(cmd_parms *cmd, void *dir, const char *name) {
    if (const char *fault = setFile<&tavhost::HostOptions::socketPath>(cmd, dir, name)) return fault;
    return socketFault(cmd->pool, serverConfig(cmd->server)->host.socketPath);
}

const char *setTraceSpec(cmd_parms *cmd, void *, const char *spec) {
    if (const char *fault = inMainServer(cmd)) return fault;
    serverConfig(cmd->server)->host.traceSpec = spec;
    return nullptr;
}

const char *setStartTimeout(cmd_parms *cmd, void *, const char *text) {
    if (const char *fault = inMainServer(cmd)) return fault;
    const int seconds = secondsOf(text, 0, 3600);
    serverConfig(cmd->server)->startTimeout = seconds;
    return seconds != -1 ? nullptr : "TavStartTimeout takes a number of seconds from 0 to 3600";
}

using tavhost::HostOptions;
using tavhost::TransportOptions;

} // namespace

const command_rec directives[] = {
    AP_INIT_FLAG("TavEnable", setEnabled, nullptr, RSRC_CONF, "On: the library decides on this server's requests (default Off)"),
    AP_INIT_ITERATE2("TavController", addController, nullptr, RSRC_CONF,
                     "name of a controller group and the URLs through which its controller is reached"),
    AP_INIT_TAKE3("TavControllerProperty", setGroupProperty, nullptr, RSRC_CONF,
                  "name of a controller group, property (retryInterval, uri, maxWaitOffset, wait, ...) and value"),
    AP_INIT_TAKE1("TavControllerCA", setTransportFile<&TransportOptions::authorities>, nullptr, RSRC_CONF,
                  "file of the CA certificates that a controller's must be signed by"),
    AP_INIT_TAKE1("TavControllerCertificate", setTransportFile<&TransportOptions::certificate>, nullptr, RSRC_CONF,
                  "file of the client certificate for controllers by https"),
    AP_INIT_TAKE1("TavControllerKey", setTransportFile<&TransportOptions::key>, nullptr, RSRC_CONF, "file of its private key"),
    AP_INIT_TAKE1("TavControllerProxy", setTransport<&TransportOptions::proxy>, nullptr, RSRC_CONF, "URL of the proxy to the controllers"),
    AP_INIT_FLAG("TavControllerVerify", setVerify, nullptr, RSRC_CONF, "Off: a controller's certificate is not verified (default On)"),
    AP_INIT_TAKE2("TavProperty", setProperty, nullptr, RSRC_CONF,
                  "property of the library instance (webserverName, TrustedProxyEnable, ...) and value"),
    AP_INIT_TAKE1("TavTraceCatalogue", setReadableFile<&HostOptions::catalogue>, nullptr, RSRC_CONF, "file of trace messages"),
    AP_INIT_TAKE1("TavTraceSpec", setTraceSpec, nullptr, RSRC_CONF,
                  "trace specification, such as :NOTICE,control:DEBUG (default: what LogLevel asks for)"),
    AP_INIT_TAKE1("TavSocket", setSocket, nullptr, RSRC_CONF, "socket between the daemon and the children"),
    AP_INIT_TAKE1("TavConfigFile", setReadableFile<&HostOptions::configFile>, nullptr, RSRC_CONF,
                  "a fixed configuration document instead of a controller"),
    AP_INIT_TAKE1("TavStartTimeout", setStartTimeout, nullptr, RSRC_CONF,
                  "seconds that a new child waits for its first configuration (default 10)"),
    {nullptr, {.no_args = nullptr}, nullptr, 0, RAW_ARGS, nullptr}};

} // namespace modtav
