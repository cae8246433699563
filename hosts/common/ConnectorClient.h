// The library's handle of the way to one controller, whatever transport it is.
#ifndef TAV_HOSTS_CONNECTORCLIENT_H
#define TAV_HOSTS_CONNECTORCLIENT_H

#include <tav/connector.h>

#include <new>
#include <string>

struct EnvConnectorClient {
    std::string url;
    const TavConnectorGroup *group;     // to be recognised; not followed
    EnvConnectorClient *next = nullptr; // among those that are given up
};

namespace tavhost {

// For the library's table: returns new, null without memory.
inline EnvConnectorClient *openClient(TavConnector *connector) noexcept try {
    return new EnvConnectorClient{tavConnectorGetURL(connector), tavConnectorGetGroup(connector)};
} catch (const std::bad_alloc &) {
    return nullptr;
}

} // namespace tavhost

#endif
