// The subcommands: each adds itself to the program and returns an exit status when it is run.
#ifndef TAVCTL_COMMANDS_H
#define TAVCTL_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>

#include "engine/Engine.h"

namespace tavctl {

// What the chosen subcommand does; throws Fault.
using Run = std::function<int()>;

void addRouteCommand(CLI::App &app, Run &run);
void addExplainCommand(CLI::App &app, Run &run);
void addCheckCommand(CLI::App &app, Run &run);
void addTestCommand(CLI::App &app, Run &run);
void addRuleCommand(CLI::App &app, Run &run);
void addDumpCommand(CLI::App &app, Run &run);
void addInterestsCommand(CLI::App &app, Run &run);
void addWatchCommand(CLI::App &app, Run &run);
void addControllerCommand(CLI::App &app, Run &run);

inline void addConfigurationOptions(CLI::App &command, ConfigurationOptions &options) {
    command.add_option("-c,--config", options.config, "Configuration document (complete)")->required()->type_name("FILE");
    command.add_option("-d,--delta", options.deltas, "Delta to apply after it (repeatable)")->type_name("FILE")->allow_extra_args(false);
    command.add_option("-p,--property", options.properties, "Instance property NAME=VALUE (repeatable)")
        ->type_name("PROPERTY")
        ->allow_extra_args(false);
}

// `whose`: "the server's", "a controller's" certificate.
inline void addTlsOptions(CLI::App &command, tavhost::TransportOptions &options, const std::string &whose) {
    command.add_option("--ca", options.authorities, "CA certificates that " + whose + " must be signed by")->type_name("FILE");
    command.add_option("--cert", options.certificate, "Client certificate for https")->type_name("FILE");
    command.add_option("--key", options.key, "Its private key")->type_name("FILE");
}

} // namespace tavctl

#endif
