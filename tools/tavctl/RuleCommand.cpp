// tavctl rule: parses a rule, shows its tree or where it fails, and evaluates it for a request.
#include <optional>

#include "Commands.h"
#include "decision/Decision.h"
#include "decision/Request.h"
#include "engine/Inside.h"
#include "support/Fault.h"
#include "support/Json.h"
#include "support/Output.h"
#include "support/Progress.h"

namespace tavctl {

namespace {

struct RuleOptions {
    std::optional<std::string> expression; // may be given empty
    std::string url = "/";
    std::string requestJson;
    std::string file;
    bool json = false;
    RequestOptions request;
};

Json outcomeJson(const RuleOutcome &outcome) {
    json_t *json = json_object();
    json_object_set_new(json, "parses", json_boolean(outcome.parses));
    json_object_set_new(json, "value", outcome.parses ? json_boolean(outcome.value) : json_null());
    json_object_set_new(json, "message", jsonText(outcome.parses ? nullptr : outcome.message.c_str()));
    json_object_set_new(json, "position", json_integer(outcome.position));
    json_object_set_new(json, "indicator", jsonText(outcome.parses ? nullptr : outcome.indicator.c_str()));
    return Json(json);
}

std::string lines(const std::vector<std::string> &list) {
    std::string text;
    for (const std::string &line : list) text += (text.empty() ? "" : "\n") + line;
    return text;
}

void printOutcome(const std::string &expression, const RuleOutcome &outcome, const EnvHttpContext &request) {
    if (!outcome.parses) {
        out("{}\n{}\n{} (position {})\n", expression, paint(Colour::Red, outcome.indicator), paint(Colour::Red, outcome.message),
            outcome.position);
        return;
    }
    out("{}\n", paint(Colour::Bold, expression));
    outField("tree", lines(outcome.tree));
    outField("request", requestTitle(request));
    if (!outcome.steps.empty()) outField("evaluation", lines(outcome.steps));
    outField("value", outcome.value ? "true" : "false", outcome.value ? Colour::Green : Colour::Yellow);
}

bool readOne(Engine &engine, const RuleReader &reader, const std::string &expression, EnvHttpContext request, bool json) {
    const RoutedRequest routed(engine.tav(), std::move(request));
    const RuleOutcome outcome = reader.read(expression, routed.context(), !json);
    if (json)
        out("{}\n", jsonLine(outcomeJson(outcome).get()));
    else
        printOutcome(expression, outcome, routed.request());
    return outcome.parses;
}

EnvHttpContext commandRequest(const RuleOptions &options) {
    if (options.requestJson.empty()) return options.request.request(options.url);
    const bool isFile = options.requestJson[0] == '@';
    const std::string source = isFile ? options.requestJson.substr(1) : "--request";
    const Json json = parseJson(isFile ? readFile(source) : options.requestJson, source);
    try {
        return requestFromJson(json.get());
    } catch (const Fault &fault) {
        throw Fault(source, 0, fault.what());
    }
}

// One {"rule", "request"} a line.
bool readFileOfRules(Engine &engine, const RuleReader &reader, const RuleOptions &options) {
    bool allParse = true;
    Progress progress(options.file);
    forEachJsonLine(readFile(options.file), options.file, [&](int number, const json_t *line) {
        try {
            refuseOtherMembers(line, "rule", {"rule", "request"});
            const json_t *rule = json_object_get(line, "rule");
            const json_t *request = json_object_get(line, "request");
            if (!json_is_string(rule)) throw Fault("\"rule\" must be a text");
            progress.step();
            progress.clear();
            allParse &=
                readOne(engine, reader, json_string_value(rule), request ? requestFromJson(request) : EnvHttpContext(), options.json);
        } catch (const Fault &fault) {
            throw Fault(options.file, number, fault.what());
        }
    });
    return allParse;
}

int run(const RuleOptions &options) {
    if (options.expression.has_value() != options.file.empty()) throw Fault("rule: give either an expression or --file");
    Engine engine;
    const RuleReader reader(engine.tav());
    const bool parses = options.file.empty() ? readOne(engine, reader, *options.expression, commandRequest(options), options.json)
                                             : readFileOfRules(engine, reader, options);
    return parses ? EXIT_GOOD : EXIT_FINDINGS;
}

} // namespace

void addRuleCommand(CLI::App &app, Run &result) {
    CLI::App *command = app.add_subcommand("rule", "Parse a rule, show its tree or where it fails, evaluate it for a request");
    auto options = std::make_shared<RuleOptions>();
    command->add_option("expression", options->expression, "The rule's expression")->type_name("EXPR");
    CLI::Option *url = command->add_option("url", options->url, "The request's URL or path")->capture_default_str()->type_name("URL");
    options->request.addTo(*command);
    CLI::Option *request =
        command->add_option("--request", options->requestJson, "The request as JSON, with a scenario's request members; @FILE reads it")
            ->type_name("JSON");
    request->excludes(url);
    command->add_option("--file", options->file, "Rules to read instead, one {\"rule\", \"request\"} a line")
        ->type_name("RULES.jsonl")
        ->excludes(request);
    command->add_flag("--json", options->json, "Print {\"parses\", \"value\", \"message\", \"position\", \"indicator\"}, one line a rule");
    command->footer(
        "Exit status 1 when a rule does not parse.\n\nExamples:\n"
        "  tavctl rule \"uri LIKE '/shop%' AND header$Region = 'eu'\" -H 'Region: eu' /shop/cart\n"
        "  tavctl rule \"cookie$tier = 'gold'\" --request '{\"cookies\": {\"tier\": \"gold\"}}'\n"
        "  tavctl rule --json --file rules.jsonl");
    command->callback([options, &result] { result = [options] { return run(*options); }; });
}

} // namespace tavctl
