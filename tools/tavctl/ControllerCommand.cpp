// tavctl controller: serves a directory of documents to polling libraries.
#include "Commands.h"
#include "Controller.h"
#include "support/Fault.h"

namespace tavctl {

void addControllerCommand(CLI::App &app, Run &result) {
    CLI::App *command = app.add_subcommand("controller", "Serve a directory of documents to polling libraries");
    auto options = std::make_shared<controller::ControllerOptions>();
    command->add_option("--dir", options->directory, "Directory of complete documents, NAME.json")->required()->type_name("DIR");
    command->add_option("--listen", options->front.listen, "Address and port to listen at; port 0 chooses one")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    command->add_option("--wait", options->front.longestWait, "Longest hold of a poll, in seconds")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    command->add_flag("--strict", options->strict, "Refuse documents with something that is never used, too");
    command->add_flag("--json", options->json, "Print one JSON object an event");
    command->add_flag("-q,--quiet", options->quiet, "Print the address and refusals only");
    command->footer(
        "Exit status: 0 ended by SIGINT or SIGTERM, 2 the directory or the address cannot be used.\n\nExamples:\n"
        "  tavctl controller --dir /etc/routing\n"
        "  tavctl controller --dir examples/shop --listen 127.0.0.1:0 --json");
    command->callback([options, &result] {
        result = [options] {
            controller::Controller(*options).run();
            return EXIT_GOOD;
        };
    });
}

} // namespace tavctl
