// tavctl explain: what a running server would decide for requests.
#include <fmt/format.h>

#include "Commands.h"
#include "CurlExchange.h"
#include "HostInstance.h"
#include "decision/Decision.h"
#include "decision/Explanation.h"
#include "decision/Request.h"
#include "decision/RoutePrint.h"
#include "support/Fault.h"
#include "support/Json.h"
#include "support/Output.h"
#include "support/Progress.h"

namespace tavctl {

namespace {

struct ExplainOptions {
    std::string status; // URL of the status handler
    RequestOptions request;
    std::vector<std::string> urls;
    tavhost::TransportOptions transport;
    bool insecure = false;
    int timeout = 10; // s
    bool json = false;
};

std::string questionUrl(const std::string &status) {
    const std::string url = status.substr(0, status.find('#'));
    if (url.find('?') != std::string::npos) throw Fault(fmt::format("'{}': write the status handler's URL without a query", status));
    return url + "?explain";
}

[[noreturn]] void refuse(const ExplainOptions &options, const std::string &why) { throw Fault(fmt::format("{}: {}", options.status, why)); }

// What the server says in words; else what its status means here.
std::string refusalText(const tavhost::HttpAnswer &answer, const json_t *json) {
    if (const std::string text = memberText(json, "error"); !text.empty()) return text;
    switch (answer.status) {
        case 401:
        case 403:
            return fmt::format("access denied (status {}): the server says who may see its status", answer.status);
        case 404:
        case 405:
            return fmt::format("no status handler there (status {})", answer.status);
        default:
            return fmt::format("the server answers with status {}", answer.status);
    }
}

Json ask(const ExplainOptions &options, const EnvHttpContext &request) {
    const std::string question = jsonLine(Json(tavhost::requestToJson(request)).get());
    tavhost::HttpAnswer answer{};
    const Progress progress(options.status);
    try {
        answer = tavhost::postJson(questionUrl(options.status), question, options.transport, options.timeout);
    } catch (const tavhost::HostFault &fault) {
        refuse(options, fault.what());
    }
    Json json(json_loadb(answer.body.data(), answer.body.size(), 0, nullptr));
    if (answer.status != 200) refuse(options, refusalText(answer, json.get()));
    if (!json_is_integer(json_object_get(json.get(), "handled"))) refuse(options, "no status handler there: the answer is no decision");
    return json;
}

TraceLines traceOf(const json_t *trace) {
    TraceLines lines;
    for (size_t i = 0; i < json_array_size(trace); i++) {
        const json_t *line = json_array_get(trace, i);
        lines.push_back({memberText(line, "level"), memberText(line, "text")});
    }
    return lines;
}

// Takes what explains the decision out of the answer.
Decision decisionOf(Json answer, int number) {
    Decision decision{nullptr, Json(json_incref(answer.get())), mappingOf(json_object_get(answer.get(), "mapping")),
                      traceOf(json_object_get(answer.get(), "trace"))};
    for (const char *member : {"mapping", "trace"}) json_object_del(answer.get(), member);
    decision.json.reset(json_object());
    json_object_set_new(decision.json.get(), "id", jsonText(std::to_string(number).c_str()));
    json_object_update(decision.json.get(), answer.get());
    return decision;
}

int run(ExplainOptions options) {
    options.transport.verifyServer = !options.insecure;
    options.transport.connectTimeout = options.timeout;
    for (const std::string &url : options.urls) options.request.request(url); // a bad one is told before anything is asked
    int number = 1;
    for (const std::string &url : options.urls) {
        const EnvHttpContext request = options.request.request(url);
        const Decision decision = decisionOf(ask(options, request), number);
        if (options.json) {
            json_object_set_new(decision.json.get(), "explain", explainJson(decision, {}));
            out("{}\n", jsonLine(decision.json.get()));
        } else {
            if (number > 1) out("\n");
            printDecision(requestTitle(request), decision, {}, true);
        }
        number++;
    }
    return EXIT_GOOD;
}

} // namespace

void addExplainCommand(CLI::App &app, Run &result) {
    CLI::App *command = app.add_subcommand("explain", "Ask a running server what it would decide for requests, and why");
    auto options = std::make_shared<ExplainOptions>();
    command->add_option("--status", options->status, "URL of the server's status handler")->required()->type_name("URL");
    options->request.addTo(*command);
    command->add_flag("--json", options->json, "Print one decision object a request, with a member \"explain\"");
    command->add_option("--timeout", options->timeout, "Seconds to wait for each answer")
        ->capture_default_str()
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 3600));
    addTlsOptions(*command, options->transport, "the server's");
    command->add_flag("--insecure", options->insecure, "Do not verify the server's certificate and name");
    command->add_option("urls", options->urls, "URLs, or paths on http://localhost")->required()->type_name("URL");
    command->footer(
        "Examples:\n"
        "  tavctl explain --status http://localhost/tav-status http://shop.example/shop/cart\n"
        "  tavctl explain --status http://localhost/tav-status -b 'JSESSIONID=0000abc:w1' --json http://shop.example/shop/");
    command->callback([options, &result] { result = [options] { return run(*options); }; });
}

} // namespace tavctl
