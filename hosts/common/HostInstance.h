// A library instance set up from a host's configuration.
#ifndef TAV_HOSTS_HOSTINSTANCE_H
#define TAV_HOSTS_HOSTINSTANCE_H

#include <tav/tav.h>

#include "HostFault.h"
#include "HostOptions.h"

namespace tavhost {

inline constexpr const char *FILE_GROUP = "file"; // of a configuration file

// Sets the transport that the options ask for; createInstance() does it by itself. Throws HostFault.
void chooseTransport(EnvCallBacks &env, const HostOptions &options, Process process);

// Creates the instance with its groups, properties and process type, in state STOPPED. Returns new (tavDestroy()). Throws HostFault.
// With `configFile` the instance has one group of its own that asks nobody: the file is applied by startInstance().
Tav *createInstance(EnvCallBacks env, const HostOptions &options, Process process);

// The same for an instance that exists already, as yet without groups.
void configureInstance(Tav *tav, const HostOptions &options, Process process);

// Tries the options out with an instance that asks nobody and marks no process; a configuration file is applied. Throws HostFault.
void checkOptions(EnvCallBacks env, const HostOptions &options);

// Starts the instance. With a configuration file applies that; otherwise waits at most `seconds` for the first configuration (0: does not
// wait). Throws HostFault when the file is refused.
void startInstance(Tav *tav, const HostOptions &options, int seconds);

// Stops and destroys it. `silentGroup`: the group whose requests a silent transport holds.
void endInstance(Tav *tav, const char *silentGroup = FILE_GROUP);

} // namespace tavhost

#endif
