// tavctl: what the library does, from the command line.
//
// The library runs with a host of this program's own (ScenarioHost) and documents from files (Engine); only `explain`, `watch` and
// `controller` use a network.
#include <tav/tav.h>

#include "Commands.h"
#include "support/Fault.h"
#include "support/Output.h"

namespace {

constexpr const char *FOOTER = R"(Examples:
  tavctl route --config shop.json http://shop.example/shop/cart
  tavctl route --config shop.json --explain -b 'JSESSIONID=0000abc:w1' http://shop.example/shop/
  tavctl explain --status http://localhost/tav-status http://shop.example/shop/cart
  tavctl check shop.json maintenance.json
  tavctl test --coverage shop.jsonl
  tavctl rule "uri LIKE '/shop%'" /shop/cart

Exit status: 0 good; 1 findings, misses or a rule that does not parse; 2 wrong usage or
a file that is not understood; 3 the library could not be started.
`tavctl COMMAND --help` tells a command's options; `man tavctl` tells all.)";

int runCommand(const tavctl::Run &run) {
    int status = tavctl::EXIT_INTERNAL;
    try {
        status = run();
    } catch (const tavctl::InternalFault &fault) {
        tavctl::complain(fault.what());
    } catch (const tavctl::Fault &fault) {
        tavctl::complain(fault.what());
        status = tavctl::EXIT_UNREADABLE;
    } catch (const std::exception &error) {
        tavctl::complain(error.what());
    }
    trDestroy();
    if (tavctl::outputFlush()) return status;
    tavctl::complain("standard output cannot be written");
    return tavctl::EXIT_UNREADABLE;
}

} // namespace

int main(int argc, char **argv) {
    tavctl::outputInit();
    CLI::App app(
        "Routes HTTP requests through tavlib, checks and serves its documents, runs its scenarios and rules, watches a controller.",
        "tavctl");
    app.footer(FOOTER);
    app.require_subcommand(1);
    app.set_version_flag("--version", fmt::format("tavctl ({})", tavGetVersion()));
    app.get_formatter()->column_width(34);
    tavctl::Run run;
    tavctl::addRouteCommand(app, run);
    tavctl::addExplainCommand(app, run);
    tavctl::addCheckCommand(app, run);
    tavctl::addTestCommand(app, run);
    tavctl::addRuleCommand(app, run);
    tavctl::addDumpCommand(app, run);
    tavctl::addInterestsCommand(app, run);
    tavctl::addWatchCommand(app, run);
    tavctl::addControllerCommand(app, run);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &help) {
        std::ostringstream text;
        app.exit(help, text, text);
        tavctl::out("{}", text.str());
        return tavctl::outputFlush() ? tavctl::EXIT_GOOD : tavctl::EXIT_UNREADABLE;
    } catch (const CLI::ParseError &error) {
        const std::vector<std::string> unknown = app.remaining(true); // CLI11 tells first of what is missing
        tavctl::complain(unknown.empty() ? error.what() : fmt::format("'{}' is not expected here", unknown.front()));
        fmt::print(stderr, "`tavctl --help` tells how to use it.\n");
        return tavctl::EXIT_UNREADABLE;
    }
    return runCommand(run);
}
