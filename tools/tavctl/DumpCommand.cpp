// tavctl dump and tavctl interests.
#include "Commands.h"
#include "support/Fault.h"
#include "support/Json.h"
#include "support/Output.h"

namespace tavctl {

namespace {

int dump(const ConfigurationOptions &options, bool status) {
    Engine engine;
    options.applyTo(engine);
    const Json state(status ? tavStatusToJSON(engine.tav()) : tavToJSON(engine.tav()));
    const std::unique_ptr<char, decltype(&free)> text(json_dumps(state.get(), JSON_INDENT(3)), free);
    if (!text) throw InternalFault("the state could not be dumped");
    out("{}\n", text.get());
    return EXIT_GOOD;
}

int interests(bool admin) {
    Engine engine;
    TavConnectorGroup *group = tavConnectorGroupCreate(engine.tav(), "interests"); // the text of a group is built once
    if (!group) throw InternalFault("no connector group could be made");
    tavConnectorGroupSetEnableAdminTraffic(group, admin ? TRUE : FALSE);
    const char *text = tavGetInterestSpec(engine.tav(), group);
    if (!text) throw InternalFault("the interest specification could not be built");
    out("{}", text);
    return EXIT_GOOD;
}

} // namespace

void addDumpCommand(CLI::App &app, Run &run) {
    CLI::App *command = app.add_subcommand("dump", "Print the state that a configuration leads to, as JSON");
    auto options = std::make_shared<ConfigurationOptions>();
    auto status = std::make_shared<bool>(false);
    addConfigurationOptions(*command, *options);
    command->add_flag("--status", *status, "What a status page shows: servers with the reason why one gets no requests, editions, rules");
    command->footer("Example:\n  tavctl dump --config shop.json --delta maintenance.json");
    command->callback([options, status, &run] { run = [options, status] { return dump(*options, *status); }; });
}

void addInterestsCommand(CLI::App &app, Run &run) {
    CLI::App *command = app.add_subcommand("interests", "Print the interest specification that is sent to a controller");
    auto admin = std::make_shared<bool>(false);
    command->add_flag("--admin", *admin, "With the clusters of administration servers");
    command->footer("Example:\n  tavctl interests --admin");
    command->callback([admin, &run] { run = [admin] { return interests(*admin); }; });
}

} // namespace tavctl
