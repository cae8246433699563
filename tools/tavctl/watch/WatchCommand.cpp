// tavctl watch: runs the library as a host would and tells what happens in it.
#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <optional>

#include "Commands.h"
#include "decision/Decision.h"
#include "decision/Request.h"
#include "decision/RoutePrint.h"
#include "support/EndSignals.h"
#include "support/Fault.h"
#include "support/Output.h"
#include "watch/LiveInstance.h"

namespace tavctl {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

struct WatchOptions {
    LiveOptions live;
    RequestOptions request;
    std::vector<std::string> urls;
    double every = 1;
    std::optional<double> duration; // s
    bool all = false;
    bool json = false;
};

// Routes the requests and tells a decision that is not what it was.
class Decisions {
public:
    Decisions(Tav *tav, EventLog &log, const WatchOptions &options) : tav_(tav), log_(log), options_(options) {}

    void makeAll() {
        for (const std::string &url : options_.urls) make(url);
    }

private:
    void make(const std::string &url) {
        RoutedRequest request(tav_, options_.request.request(url));
        request.decide();
        const std::string outcome = outcomeOf(request);
        if (request.endpoint()) request.report(RESPONSE_SENT);
        std::string &last = last_[url];
        if (!options_.all && outcome == last) return;
        last = outcome;
        const std::string title = requestTitle(request.request());
        log_.tell("decision", fmt::format("{}  ->  {}", title, outcome), {{"request", title}, {"outcome", outcome}});
    }

    Tav *tav_;
    EventLog &log_;
    const WatchOptions &options_;
    std::map<std::string, std::string> last_;
};

void tellVersion(LiveInstance &instance, EventLog &log, long long &version) {
    instance.forgetDocuments();
    const long long now = instance.version();
    if (now == version) return;
    version = now;
    log.tell("version", fmt::format("{} in force", now), {{"version", std::to_string(now), true}});
}

int millisecondsUntil(Clock::time_point time) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 3600 * 1000));
}

Clock::time_point in(double seconds) { return Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(seconds)); }

int run(const WatchOptions &options) {
    for (const std::string &url : options.urls) options.request.request(url); // a bad one is told before anything runs
    const EndSignals signals;
    EventLog log(options.json);
    LiveInstance instance(options.live, log);
    Decisions decisions(instance.tav(), log, options);
    const Clock::time_point end = options.duration ? in(*options.duration) : Clock::time_point::max();
    Clock::time_point next = options.urls.empty() ? Clock::time_point::max() : in(options.every);
    long long version = instance.version();
    while (Clock::now() < end) {
        const Clock::time_point wake = std::min(end, next);
        pollfd waited[] = {{signals.fd(), POLLIN, 0}, {instance.documentFd(), POLLIN, 0}};
        if (poll(waited, 2, wake == Clock::time_point::max() ? -1 : millisecondsUntil(wake)) < 0 && errno != EINTR)
            throw InternalFault("waiting failed");
        if (waited[0].revents) break;
        if (waited[1].revents) tellVersion(instance, log, version);
        if (waited[1].revents || Clock::now() >= next) decisions.makeAll();
        if (Clock::now() >= next) next = in(options.every);
    }
    return EXIT_GOOD;
}

void addLiveOptions(CLI::App &command, LiveOptions &live) {
    command.add_option("--controller", live.controllers, "URL of a controller (repeatable: tried in turn)")
        ->required()
        ->type_name("URL")
        ->allow_extra_args(false);
    command.add_option("--group", live.group, "Name of the connector group")->capture_default_str()->type_name("NAME");
    command.add_option("--group-property", live.groupProperties, "Connector group property NAME=VALUE (repeatable)")
        ->type_name("PROPERTY")
        ->allow_extra_args(false);
    command.add_option("-p,--property", live.properties, "Instance property NAME=VALUE (repeatable)")
        ->type_name("PROPERTY")
        ->allow_extra_args(false);
    command.add_option("--wait", live.wait, "Seconds that the controller may hold a poll (default 300)")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 86400));
    addTlsOptions(command, live.transport, "a controller's");
    command.add_option("--proxy", live.transport.proxy, "Proxy on the way to the controller")->type_name("URL");
    CLI::Option *daemon = command.add_option("--daemon", live.daemon, "Be the daemon that feeds workers over this Unix socket");
    daemon->type_name("SOCKET");
    command.add_option("--worker", live.worker, "Be a worker of the daemon on this Unix socket")->type_name("SOCKET")->excludes(daemon);
    command.add_option("--trace", live.trace, "Trace specification: tell the library's own messages too, for example control:DEBUG")
        ->type_name("SPEC");
}

} // namespace

void addWatchCommand(CLI::App &app, Run &result) {
    CLI::App *command = app.add_subcommand("watch", "Run the library against a controller and tell what happens");
    auto options = std::make_shared<WatchOptions>();
    addLiveOptions(*command, options->live);
    options->request.addTo(*command);
    command->add_option("--request", options->urls, "Route this URL again and again; tell each decision that changed (repeatable)")
        ->type_name("URL")
        ->allow_extra_args(false);
    command->add_option("--every", options->every, "Seconds between the requests")
        ->capture_default_str()
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 86400.0));
    command->add_flag("--all", options->all, "Tell every decision, changed or not");
    command->add_option("--for", options->duration, "End after so many seconds (default: at SIGINT or SIGTERM)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e8));
    command->add_flag("--json", options->json, "One JSON object an event");
    command->footer(
        "Examples:\n"
        "  tavctl watch --controller http://127.0.0.1:8700 --request http://shop.example/shop/cart\n"
        "  tavctl watch --controller http://127.0.0.1:8700 --daemon /run/shop.sock\n"
        "  tavctl watch --controller http://127.0.0.1:8700 --worker /run/shop.sock --every 0.5 --request http://shop.example/shop/");
    command->callback([options, &result] { result = [options] { return run(*options); }; });
}

} // namespace tavctl
