// Why a host cannot do what it is configured for, in words for the person who wrote the configuration.
#ifndef TAV_HOSTS_HOSTFAULT_H
#define TAV_HOSTS_HOSTFAULT_H

#include <stdexcept>

namespace tavhost {

class HostFault : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace tavhost

#endif
