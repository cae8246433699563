// tavctl check: tells what the library would refuse, skip or never use.
#include "Commands.h"
#include "check/Check.h"
#include "support/Fault.h"
#include "support/Json.h"
#include "support/Output.h"
#include "support/Progress.h"

namespace tavctl {

namespace {

struct CheckOptions {
    std::vector<std::string> files;
    bool json = false;
};

void printJson(const Check &check, const Finding &finding) {
    json_t *json = json_object();
    json_object_set_new(json, "file", jsonText(check.files()[finding.file].c_str()));
    json_object_set_new(json, "line", json_integer(finding.line));
    json_object_set_new(json, "path", jsonText(finding.pointer.c_str()));
    json_object_set_new(json, "kind", jsonText(finding.kind.c_str()));
    json_object_set_new(json, "text", jsonText(finding.text.c_str()));
    if (!finding.expression.empty()) {
        json_object_set_new(json, "expression", jsonText(finding.expression.c_str()));
        json_object_set_new(json, "indicator", jsonText(finding.indicator.c_str()));
    }
    if (finding.note) json_object_set_new(json, "note", json_true());
    const Json owner(json);
    out("{}\n", jsonLine(json));
}

void printText(const Check &check, const Finding &finding) {
    const std::string &file = check.files()[finding.file];
    out("{} {}\n", paint(Colour::Bold, finding.line > 0 ? fmt::format("{}:{}:", file, finding.line) : file + ":"),
        finding.pointer.empty() ? "/" : finding.pointer);
    out("    {} {}\n", paint(finding.note ? Colour::Dim : Colour::Red, finding.note ? "note:" : finding.kind + ":"), finding.text);
    if (!finding.expression.empty()) out("        {}\n        {}\n", finding.expression, paint(Colour::Red, finding.indicator));
}

void print(const Check &check, const CheckOptions &options) {
    for (const Finding &finding : check.findings()) {
        if (options.json)
            printJson(check, finding);
        else
            printText(check, finding);
    }
    if (options.json) return;
    const size_t count = check.count();
    if (count == 0)
        out("{}\n", paint(Colour::Green, "no findings"));
    else
        out("{}\n", paint(Colour::Red, fmt::format("{} finding{}", count, count == 1 ? "" : "s")));
}

// Returns why a file cannot be read; empty: all of them were.
std::string readAll(Check &check, const std::vector<std::string> &files) {
    Progress progress("check", files.size());
    std::string fault;
    try {
        for (const std::string &file : files) {
            progress.name("check " + file);
            check.addFile(file);
            progress.step();
        }
    } catch (const Fault &unreadable) {
        fault = unreadable.what();
    }
    check.finish();
    return fault;
}

int run(const CheckOptions &options) {
    Check check;
    const std::string fault = readAll(check, options.files);
    if (fault.empty() || !check.findings().empty()) print(check, options);
    if (!fault.empty()) throw Fault(fault);
    return check.count() > 0 ? EXIT_FINDINGS : EXIT_GOOD;
}

} // namespace

void addCheckCommand(CLI::App &app, Run &result) {
    CLI::App *command = app.add_subcommand("check", "Tell what in documents the library would refuse, skip or never use");
    auto options = std::make_shared<CheckOptions>();
    command->add_option("files", options->files, "A complete document and the deltas after it")->required()->type_name("FILE");
    command->add_flag("--json", options->json, "Print one JSON object a finding");
    command->footer(
        "Exit status: 0 clean, 1 findings, 2 a file that cannot be read.\n\nExamples:\n"
        "  tavctl check shop.json\n"
        "  tavctl check shop.json maintenance.json rollout.json");
    command->callback([options, &result] { result = [options] { return run(*options); }; });
}

} // namespace tavctl
