// The report as Prometheus reads it. A family's samples stand together, so each family walks the report once.
//
// Counters are left out of a report that misses a process: a sum that falls and comes back would look like a restart and then like a burst.
#include <charconv>
#include <cstring>

#include "StatusReport.h"

namespace tavhost {

namespace {

struct Label {
    const char *name;
    std::string value;
};
using Labels = std::vector<Label>;

class Metrics {
public:
    std::string text;

    void family(const char *name, const char *type, const char *help) {
        current = name;
        text.append("# HELP ").append(name).append(" ").append(help).append("\n# TYPE ").append(name).append(" ").append(type).append("\n");
    }

    void sample(const Labels &labels, double value) {
        text.append(current);
        const char *separator = "{";
        for (const auto &[name, content] : labels) {
            text.append(separator).append(name).append("=\"");
            escape(content);
            text.append("\"");
            separator = ",";
        }
        char number[32];
        const auto end = std::to_chars(number, number + sizeof number, value).ptr;
        text.append(labels.empty() ? " " : "} ").append(number, end).append("\n");
    }

private:
    const char *current = "";

    void escape(const std::string &content) {
        for (const char c : content) {
            if (c == '\\' || c == '"') text.push_back('\\');
            if (c == '\n')
                text.append("\\n");
            else
                text.push_back(c);
        }
    }
};

// ---- processes and connectors ----

double countProcesses(const json_t *report, const char *role, bool answered) {
    double count = 0;
    for (const json_t *process : objectsOf(report, "processes")) {
        if (strcmp(textOf(process, "role"), role) == 0 && flagOf(process, "answered") == answered) count++;
    }
    return count;
}

void addProcesses(Metrics &metrics, const json_t *report) {
    metrics.family("tav_info", "gauge", "The library that runs, and the name it was given.");
    metrics.sample({{"version", textOf(report, "library")}, {"name", textOf(report, "server")}}, 1);
    metrics.family("tav_processes", "gauge", "Processes of this server that answered, by their part.");
    for (const char *role : {"daemon", "worker", "standalone"}) metrics.sample({{"role", role}}, countProcesses(report, role, true));
    metrics.family("tav_processes_silent", "gauge", "Processes of this server that did not answer in time.");
    metrics.sample({}, countProcesses(report, "unknown", false));
    double behind = 0;
    for (const json_t *process : objectsOf(report, "processes")) behind += flagOf(process, "answered") && !flagOf(process, "inStep");
    metrics.family("tav_processes_behind", "gauge", "Processes whose configuration is older than the newest.");
    metrics.sample({}, behind);
    metrics.family("tav_configuration_version", "gauge", "Version of the newest configuration; -1: none.");
    metrics.sample({}, numberOf(report, "version"));
}

void addConnectors(Metrics &metrics, const json_t *report) {
    metrics.family("tav_connector_up", "gauge", "1: the connection to the controller works.");
    for (const json_t *group : objectsOf(report, "groups")) {
        for (const json_t *connector : objectsOf(group, "connectors"))
            metrics.sample({{"group", textOf(group, "name")}, {"url", textOf(connector, "url")}},
                           strcmp(textOf(connector, "state"), "STARTED") == 0);
    }
}

// ---- servers ----

using Reading = double (*)(const json_t *server);

struct ServerFamily {
    const char *name, *type, *help;
    const char *needs; // a member without which there is no sample
    Reading read;
};

constexpr ServerFamily SERVER_FAMILIES[] = {
    {"tav_server_selectable", "gauge", "1: some worker would give the server a request without a session.", "selectable",
     [](const json_t *server) { return flagOf(server, "selectable") ? 1.0 : 0.0; }},
    {"tav_server_maintenance", "gauge", "1: the server is in a maintenance mode.", "maintenance",
     [](const json_t *server) { return inMaintenance(server) ? 1.0 : 0.0; }},
    {"tav_server_weight", "gauge", "Weight of the server in its cluster.", "weight",
     [](const json_t *server) { return numberOf(server, "weight"); }},
    {"tav_server_outstanding_requests", "gauge", "Requests that are at the server now.", "outstanding",
     [](const json_t *server) { return numberOf(server, "outstanding"); }},
    {"tav_server_response_time_seconds", "gauge", "Mean response time.", "responseTime",
     [](const json_t *server) { return numberOf(server, "responseTime") / 1000; }},
};
constexpr ServerFamily REQUESTS = {"tav_server_requests_total", "counter", "Requests that the server has answered.", "requests",
                                   [](const json_t *server) { return numberOf(server, "requests"); }};

template <typename Function>
void forEachServer(const json_t *report, Function function) {
    for (const json_t *cluster : objectsOf(report, "clusters")) {
        for (const json_t *server : objectsOf(cluster, "servers"))
            function(server, Labels{{"cluster", textOf(cluster, "name")}, {"server", textOf(server, "name")}});
    }
}

void addServerFamily(Metrics &metrics, const json_t *report, const ServerFamily &family) {
    metrics.family(family.name, family.type, family.help);
    forEachServer(report, [&](const json_t *server, const Labels &labels) {
        if (json_object_get(server, family.needs)) metrics.sample(labels, family.read(server));
    });
}

void addEndpoints(Metrics &metrics, const json_t *report) {
    metrics.family("tav_endpoint_available", "gauge", "1: requests can be sent to the endpoint.");
    forEachServer(report, [&](const json_t *server, Labels labels) {
        labels.push_back({"endpoint", ""});
        for (const json_t *endpoint : objectsOf(server, "endpoints")) {
            labels.back().value = endpointName(endpoint);
            metrics.sample(labels, flagOf(endpoint, "available"));
        }
    });
}

// ---- applications ----

void addApplications(Metrics &metrics, const json_t *report, const char *name, const char *help, Reading read) {
    metrics.family(name, "gauge", help);
    for (const json_t *application : objectsOf(report, "applications")) {
        for (const json_t *edition : objectsOf(application, "editions")) {
            double count = 0;
            for (const json_t *server : objectsOf(edition, "servers")) count += read(server);
            metrics.sample({{"application", textOf(application, "name")}, {"edition", textOf(edition, "name")}}, count);
        }
    }
}

} // namespace

std::string metricsText(const json_t *report) {
    Metrics metrics;
    addProcesses(metrics, report);
    addConnectors(metrics, report);
    for (const ServerFamily &family : SERVER_FAMILIES) addServerFamily(metrics, report, family);
    if (countProcesses(report, "unknown", false) == 0) addServerFamily(metrics, report, REQUESTS);
    addEndpoints(metrics, report);
    addApplications(metrics, report, "tav_edition_servers", "Servers that the edition runs on.", [](const json_t *) { return 1.0; });
    addApplications(metrics, report, "tav_edition_selectable_servers", "Servers of the edition that would be given a new request.",
                    [](const json_t *server) { return flagOf(server, "selectable") ? 1.0 : 0.0; });
    return std::move(metrics.text);
}

} // namespace tavhost
