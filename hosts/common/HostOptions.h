// How a host runs the library: what its own configuration says, whatever server it is.
#ifndef TAV_HOSTS_HOSTOPTIONS_H
#define TAV_HOSTS_HOSTOPTIONS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace tavhost {

struct NameValue {
    std::string name, value;
};

// A controller's REST service and the URLs through which it is reached.
struct ControllerGroup {
    std::string name;
    std::vector<std::string> urls;
    std::vector<NameValue> properties; // see tavConnectorGroupSetProperty()
    int wait = 0;                      // s that the controller may hold a poll; 0: the library's default
};

// To controllers by https. Empty texts: libcurl's own defaults (the system's certificate authorities, proxies of the environment).
struct TransportOptions {
    std::string authorities;  // file of CA certificates (PEM)
    std::string certificate;  // the client's, file (PEM)
    std::string key;          // its private key, file (PEM); empty: it stands in `certificate`
    std::string proxy;        // URL
    int connectTimeout = 10;  // s
    bool verifyServer = true; // its certificate and its name
};

inline constexpr size_t LONGEST_SOCKET_PATH = 107; // bytes; of a Unix socket's address

enum class Process { Standalone, Daemon, Worker };

struct HostOptions {
    std::string catalogue;             // file of trace messages
    std::string traceSpec;             // empty: the library's default
    std::vector<NameValue> properties; // of the instance, see tavGetProperties()
    std::vector<ControllerGroup> groups;
    TransportOptions transport;
    std::string configFile; // a fixed configuration document instead of controllers; empty: none
    std::string socketPath; // between the daemon and the workers
    uid_t socketUid = 0;    // the socket's owner when the daemon runs as root
};

} // namespace tavhost

#endif
