// tavctl route: what the library decides for requests.
#include <fmt/format.h>

#include <algorithm>
#include <deque>

#include "Commands.h"
#include "decision/Decision.h"
#include "decision/Explanation.h"
#include "decision/Request.h"
#include "decision/RoutePrint.h"
#include "engine/Inside.h"
#include "support/Fault.h"
#include "support/Json.h"
#include "support/Output.h"
#include "support/Progress.h"

namespace tavctl {

namespace {

struct RouteOptions {
    ConfigurationOptions configuration;
    RequestOptions request;
    std::vector<std::string> urls;
    bool explain = false;
    bool json = false;
    int repeat = 1;
    int inFlight = 16;
};

void routeOnce(Engine &engine, const RouteOptions &options, const RuleNames &names, int &number, const std::string &url) {
    RoutedRequest request(engine.tav(), options.request.request(url));
    {
        const Progress progress(url); // a rollout makes requests wait
        request.decide();
    }
    const Decision decision = request.decision(std::to_string(number++));
    if (!options.json) return printDecision(requestTitle(request.request()), decision, names, options.explain);
    if (options.explain) json_object_set_new(decision.json.get(), "explain", explainJson(decision, names));
    out("{}\n", jsonLine(decision.json.get()));
}

using Spread = std::vector<std::pair<std::string, int>>; // outcome and how often, in the order of the first time

void count(Spread &spread, const std::string &outcome) {
    const auto found = std::find_if(spread.begin(), spread.end(), [&](const auto &entry) { return entry.first == outcome; });
    if (found == spread.end())
        spread.emplace_back(outcome, 1);
    else
        found->second++;
}

void printSpread(const Spread &spread, const RouteOptions &options, const EnvHttpContext &request) {
    constexpr int BAR = 30;
    out("{}\n", paint(Colour::Bold, fmt::format("{}, {} times, {} in flight", requestTitle(request), options.repeat, options.inFlight)));
    for (const auto &[outcome, times] : spread) {
        const double share = static_cast<double>(times) / options.repeat;
        const std::string bar(static_cast<size_t>(std::max(1.0, BAR * share)), '#');
        out("  {:>7} {:>5.1f}%  {}  {}\n", times, 100 * share, paint(Colour::Cyan, fmt::format("{:<{}}", bar, BAR)), outcome);
    }
}

// The requests stay open until `inFlight` younger ones have come, so that the balancer sees load.
void routeRepeatedly(Engine &engine, const RouteOptions &options, int &number, const std::string &url) {
    const EnvHttpContext request = options.request.request(url);
    std::deque<RoutedRequest> open;
    Spread spread;
    Progress progress(url, static_cast<size_t>(options.repeat));
    for (int i = 0; i < options.repeat; i++) {
        if (open.size() >= static_cast<size_t>(options.inFlight)) {
            open.front().report(RESPONSE_SENT);
            open.pop_front();
        }
        RoutedRequest &routed = open.emplace_back(engine.tav(), request);
        routed.decide();
        progress.step();
        if (!options.json) {
            count(spread, outcomeOf(routed));
            continue;
        }
        progress.clear();
        out("{}\n", jsonLine(routed.toJson(std::to_string(number++)).get()));
    }
    for (RoutedRequest &routed : open) routed.report(RESPONSE_SENT);
    progress.end();
    std::sort(spread.begin(), spread.end());
    if (!options.json) printSpread(spread, options, request);
}

int run(const RouteOptions &options) {
    for (const std::string &url : options.urls) options.request.request(url); // a bad one is told before anything is printed
    Engine engine;
    options.configuration.applyTo(engine);
    const RuleNames names = ruleNamesOf(storedDocument(engine.connector()));
    int number = 1; // of the next decision
    for (const std::string &url : options.urls) {
        if (!options.json && &url != &options.urls.front()) out("\n");
        if (options.repeat > 1)
            routeRepeatedly(engine, options, number, url);
        else
            routeOnce(engine, options, names, number, url);
    }
    return EXIT_GOOD;
}

} // namespace

void addRouteCommand(CLI::App &app, Run &result) {
    CLI::App *command = app.add_subcommand("route", "Print what the library decides for requests");
    auto options = std::make_shared<RouteOptions>();
    addConfigurationOptions(*command, options->configuration);
    options->request.addTo(*command);
    CLI::Option *explain =
        command->add_flag("--explain", options->explain, "Tell every rule tried and every server passed over, with reasons");
    command->add_flag("--json", options->json, "Print one decision object a request; with --explain a member \"explain\" is added");
    command->add_option("--repeat", options->repeat, "Route each request N times and show how load spreads")
        ->type_name("N")
        ->check(CLI::Range(1, 100000000))
        ->excludes(explain);
    command->add_option("--in-flight", options->inFlight, "With --repeat: how many requests are open at a time")
        ->capture_default_str()
        ->type_name("N")
        ->check(CLI::Range(1, 100000));
    command->add_option("urls", options->urls, "URLs, or paths on http://localhost")->required()->type_name("URL");
    command->footer(
        "Examples:\n"
        "  tavctl route -c shop.json http://shop.example/shop/cart\n"
        "  tavctl route -c shop.json -d maintenance.json --explain -b 'JSESSIONID=0000abc:w1' http://shop.example/shop/\n"
        "  tavctl route -c shop.json --repeat 1000 http://shop.example/shop/\n"
        "  tavctl route -c shop.json --json http://shop.example/shop/ /nowhere");
    command->callback([options, &result] { result = [options] { return run(*options); }; });
}

} // namespace tavctl
