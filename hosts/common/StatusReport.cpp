// Documents are merged where they lie: the newest worker's is the report's, the others are added to it and then thrown away.
#include "StatusReport.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>
#include <unordered_map>

namespace tavhost {

namespace {

Json parse(const std::string &text) { return Json(json_loadb(text.data(), text.size(), 0, nullptr)); }

struct ProcessStatus {
    pid_t pid;
    Json document; // null: no answer
    std::string role = "unknown";
    json_int_t version = -1;

    bool routes() const { return document && role != "daemon"; }
};

ProcessStatus readAnswer(const StatusAnswer &answer) {
    ProcessStatus process{answer.pid, nullptr};
    if (answer.whole) process.document = parse(answer.text);
    if (!json_is_object(process.document.get())) process.document.reset();
    if (!process.document) return process;
    static constexpr struct {
        const char *name, *role;
    } ROLES[] = {{"ServerProcess", "daemon"}, {"ClientProcess", "worker"}, {"StandaloneProcess", "standalone"}};
    for (const auto &[name, role] : ROLES) {
        if (strcmp(textOf(process.document.get(), "process"), name) == 0) process.role = role;
    }
    if (const json_t *version = json_object_get(process.document.get(), "version")) process.version = json_integer_value(version);
    return process;
}

// Takes the value. Throws std::bad_alloc.
void put(json_t *object, const char *key, json_t *value) {
    if (json_object_set_new(object, key, value) != 0) throw std::bad_alloc();
}

void append(json_t *array, json_t *value) {
    if (json_array_append_new(array, value) != 0) throw std::bad_alloc();
}

Json newObject(json_t *made) {
    if (!made) throw std::bad_alloc();
    return Json(made);
}

// ---- adding up what two processes say of the same object ----

void addCount(json_t *into, const json_t *from, const char *key) {
    const json_t *added = json_object_get(from, key);
    if (added) put(into, key, json_integer(json_integer_value(json_object_get(into, key)) + json_integer_value(added)));
}

// The mean over all requests; before the requests are added.
void addResponseTime(json_t *into, const json_t *from) {
    const json_t *added = json_object_get(from, "responseTime");
    if (!added) return;
    if (!json_object_get(into, "responseTime")) return put(into, "responseTime", json_real(json_number_value(added)));
    const double here = numberOf(into, "requests"), there = numberOf(from, "requests"), all = here + there;
    if (all <= 0) return;
    const double mean = (numberOf(into, "responseTime") * here + json_number_value(added) * there) / all;
    put(into, "responseTime", json_real(mean));
}

void addReason(json_t *into, const json_t *from) {
    const std::string here = textOf(into, "reason"), there = textOf(from, "reason");
    if (there.empty() || ("; " + here + "; ").find("; " + there + "; ") != std::string::npos) return;
    put(into, "reason", json_string(here.empty() ? there.c_str() : (here + "; " + there).c_str()));
}

// Whether any of the processes says yes.
void addFlag(json_t *into, const json_t *from, const char *key) {
    if (flagOf(from, key)) put(into, key, json_true());
}

using Merge = void (*)(json_t *into, json_t *from);
using Name = std::string (*)(const json_t *object);

std::string nameOf(const json_t *object) { return textOf(object, "name"); }

// Objects of one name are merged, the others are appended.
void mergeArrays(json_t *into, const json_t *from, const char *key, Name name, Merge merge) {
    if (!json_is_array(json_object_get(from, key))) return;
    json_t *all = json_object_get(into, key);
    if (!json_is_array(all)) put(into, key, all = json_array());
    std::unordered_map<std::string, json_t *> known;
    for (json_t *object : JsonObjects(all)) known.emplace(name(object), object);
    for (json_t *object : objectsOf(from, key)) {
        const auto found = known.find(name(object));
        if (found != known.end())
            merge(found->second, object);
        else
            append(all, json_incref(object));
    }
}

void mergeEndpoint(json_t *into, json_t *from) {
    addFlag(into, from, "available");
    addReason(into, from);
}

// "selectableIn" and "workers" are counts until the end.
void mergeSelectable(json_t *into, json_t *from) {
    addFlag(into, from, "selectable");
    addCount(into, from, "selectableIn");
    addCount(into, from, "workers");
    addReason(into, from);
}

void mergeServer(json_t *into, json_t *from) {
    addResponseTime(into, from);
    addCount(into, from, "requests");
    addCount(into, from, "outstanding");
    mergeSelectable(into, from);
    mergeArrays(into, from, "endpoints", endpointName, mergeEndpoint);
}

void mergeCluster(json_t *into, json_t *from) { mergeArrays(into, from, "servers", nameOf, mergeServer); }
void mergeEdition(json_t *into, json_t *from) { mergeArrays(into, from, "servers", nameOf, mergeSelectable); }
void mergeApplication(json_t *into, json_t *from) { mergeArrays(into, from, "editions", nameOf, mergeEdition); }

// ---- what ended processes have counted ----

void keepServer(json_t *into, json_t *from) { addCount(into, from, "requests"); }
void keepCluster(json_t *into, json_t *from) { mergeArrays(into, from, "servers", nameOf, keepServer); }

// Only names and counts.
Json countsOf(const json_t *document) {
    Json clusters = newObject(json_array());
    for (const json_t *cluster : objectsOf(document, "clusters")) {
        Json servers = newObject(json_array());
        for (const json_t *server : objectsOf(cluster, "servers"))
            append(servers.get(), json_pack("{s:s, s:I}", "name", textOf(server, "name"), "requests",
                                            json_integer_value(json_object_get(server, "requests"))));
        append(clusters.get(), json_pack("{s:s, s:o}", "name", textOf(cluster, "name"), "servers", servers.release()));
    }
    return newObject(json_pack("{s:o}", "clusters", clusters.release()));
}

// Servers that are gone from the configuration stay gone.
void addKept(json_t *merged, const std::string &text) {
    const Json kept = parse(text);
    std::unordered_map<std::string, json_t *> counts;
    const auto key = [](const json_t *cluster, const json_t *server) { return nameOf(cluster) + "\n" + nameOf(server); };
    for (const json_t *cluster : objectsOf(kept.get(), "clusters")) {
        for (json_t *server : objectsOf(cluster, "servers")) counts.emplace(key(cluster, server), server);
    }
    for (const json_t *cluster : objectsOf(merged, "clusters")) {
        for (json_t *server : objectsOf(cluster, "servers")) {
            if (const auto found = counts.find(key(cluster, server)); found != counts.end()) addCount(server, found->second, "requests");
        }
    }
}

// ---- the counts of workers in which a server is selectable ----

template <typename Function>
void forEachServer(json_t *document, Function function) {
    for (json_t *cluster : objectsOf(document, "clusters")) {
        for (json_t *server : objectsOf(cluster, "servers")) function(server);
    }
    for (json_t *application : objectsOf(document, "applications")) {
        for (json_t *edition : objectsOf(application, "editions")) {
            for (json_t *server : objectsOf(edition, "servers")) function(server);
        }
    }
}

void beginCounts(json_t *document) {
    forEachServer(document, [](json_t *server) {
        put(server, "selectableIn", json_integer(flagOf(server, "selectable")));
        put(server, "workers", json_integer(1));
    });
}

// What all workers agree on needs no count.
void endCounts(json_t *document) {
    forEachServer(document, [](json_t *server) {
        const double in = numberOf(server, "selectableIn");
        if (in == 0 || in == numberOf(server, "workers")) json_object_del(server, "selectableIn");
        json_object_del(server, "workers");
    });
}

// ---- the report ----

double sumOfServers(const json_t *document, const char *key) {
    double sum = 0;
    for (const json_t *cluster : objectsOf(document, "clusters")) {
        for (const json_t *server : objectsOf(cluster, "servers")) sum += numberOf(server, key);
    }
    return sum;
}

json_int_t newestVersion(const std::vector<ProcessStatus> &processes) {
    json_int_t newest = -1;
    for (const ProcessStatus &process : processes) newest = std::max(newest, process.version);
    return newest;
}

Json describeProcess(const ProcessStatus &process, json_int_t newest) {
    Json described = newObject(json_object());
    put(described.get(), "pid", json_integer(process.pid));
    put(described.get(), "role", json_string(process.role.c_str()));
    put(described.get(), "answered", json_boolean(process.document != nullptr));
    if (!process.document) return described;
    put(described.get(), "state", json_string(textOf(process.document.get(), "state")));
    put(described.get(), "version", json_integer(process.version));
    put(described.get(), "inStep", json_boolean(process.version == newest));
    for (const char *key : {"outstanding", "requests"})
        put(described.get(), key, json_integer(static_cast<json_int_t>(sumOfServers(process.document.get(), key))));
    return described;
}

Json describeProcesses(const std::vector<ProcessStatus> &processes) {
    Json all = newObject(json_array());
    const json_int_t newest = newestVersion(processes);
    for (const ProcessStatus &process : processes) append(all.get(), describeProcess(process, newest).release());
    return all;
}

std::string plural(size_t count, const char *one, const char *many) { return std::to_string(count) + " " + (count == 1 ? one : many); }

Json findProblems(const std::vector<ProcessStatus> &processes, const char *whyNone) {
    Json problems = newObject(json_array());
    const auto say = [&](const std::string &text) { append(problems.get(), json_string(text.c_str())); };
    const auto count = [&](auto condition) { return static_cast<size_t>(std::count_if(processes.begin(), processes.end(), condition)); };
    const json_int_t newest = newestVersion(processes);
    const size_t silent = count([](const ProcessStatus &process) { return !process.document; });
    const size_t behind = count([&](const ProcessStatus &process) { return process.document && process.version != newest; });
    const size_t workers = count([](const ProcessStatus &process) { return process.role == "worker"; });
    if (processes.size() == silent) say(whyNone);
    if (silent > 0) say(plural(silent, "process", "processes") + " did not answer in time: the figures are incomplete");
    if (behind > 0) say(plural(behind, "process has", "processes have") + " an older configuration than the newest");
    if (workers > 0 && count([](const ProcessStatus &process) { return process.role == "daemon"; }) == 0)
        say("no daemon answers: new configurations do not reach the workers");
    return problems;
}

// The process that knows the controllers: the daemon, else the first there is.
const json_t *groupsOf(const std::vector<ProcessStatus> &processes) {
    for (const char *role : {"daemon", "standalone", "worker"}) {
        for (const ProcessStatus &process : processes) {
            if (process.document && process.role == role) return json_object_get(process.document.get(), "groups");
        }
    }
    return nullptr;
}

// The daemon routes nothing; it stands for the workers only when there are none.
std::vector<json_t *> routingDocuments(const std::vector<ProcessStatus> &processes) {
    std::vector<const ProcessStatus *> routing;
    for (const ProcessStatus &process : processes) {
        if (process.routes()) routing.push_back(&process);
    }
    for (const ProcessStatus &process : processes) {
        if (routing.empty() && process.document) routing.push_back(&process);
    }
    std::stable_sort(routing.begin(), routing.end(), [](const auto *one, const auto *other) { return one->version > other->version; });
    std::vector<json_t *> documents;
    for (const ProcessStatus *process : routing) documents.push_back(process->document.get());
    return documents;
}

json_t *mergeDocuments(const std::vector<json_t *> &documents, const std::string &kept) {
    for (json_t *document : documents) beginCounts(document);
    json_t *merged = documents.front();
    for (size_t i = 1; i < documents.size(); i++) {
        mergeArrays(merged, documents[i], "clusters", nameOf, mergeCluster);
        mergeArrays(merged, documents[i], "applications", nameOf, mergeApplication);
    }
    endCounts(merged);
    addKept(merged, kept);
    return merged;
}

void take(json_t *report, json_t *from, const char *key) {
    if (json_t *value = json_object_get(from, key)) put(report, key, json_incref(value));
}

} // namespace

std::string endpointName(const json_t *endpoint) {
    return std::string(textOf(endpoint, "protocol")) + "://" + textOf(endpoint, "host") + ":" +
           std::to_string(json_integer_value(json_object_get(endpoint, "port")));
}

bool inMaintenance(const json_t *server) {
    const std::string_view mode = textOf(server, "maintenance");
    return !mode.empty() && mode != "false" && mode != "normal";
}

std::string keepCounts(const std::string &kept, const std::string &last) {
    Json counts = countsOf(parse(kept).get());
    const Json added = countsOf(parse(last).get());
    mergeArrays(counts.get(), added.get(), "clusters", nameOf, keepCluster);
    return jsonText(counts.get());
}

Json mergeStatus(const StatusAnswers &answers, const char *whyNone) {
    std::vector<ProcessStatus> processes;
    for (const StatusAnswer &answer : answers.processes) processes.push_back(readAnswer(answer));
    std::stable_partition(processes.begin(), processes.end(), [](const ProcessStatus &process) { return process.role == "daemon"; });
    Json described = describeProcesses(processes), problems = findProblems(processes, whyNone), report = newObject(json_object());
    const std::vector<json_t *> documents = routingDocuments(processes);
    json_t *merged = documents.empty() ? nullptr : mergeDocuments(documents, answers.kept);
    for (const char *key : {"library", "server"}) take(report.get(), merged, key);
    put(report.get(), "version", json_integer(newestVersion(processes)));
    put(report.get(), "problems", problems.release());
    put(report.get(), "processes", described.release());
    if (const json_t *groups = groupsOf(processes)) put(report.get(), "groups", json_deep_copy(groups));
    for (const char *key : {"clusters", "applications", "rules"}) take(report.get(), merged, key);
    return report;
}

std::string jsonText(const json_t *report) {
    const std::unique_ptr<char, decltype(&free)> text(json_dumps(report, JSON_COMPACT), free);
    if (!text) throw std::bad_alloc();
    return std::string(text.get()) + "\n";
}

} // namespace tavhost
