#include "Controller.h"

#include <fmt/format.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <csignal>

#include "support/Fault.h"
#include "support/Output.h"

namespace controller {

namespace {

constexpr int RESTORE_INTERVAL = 1000; // ms; between looks for a directory that went

std::string nameOf(const std::string &fileName) { return fileName.substr(0, fileName.rfind('.')); }

// At most so many of them are told; a large document can have as many as objects.
constexpr size_t MOST_TOLD_JSON = 1000, MOST_TOLD = 10;

template <typename Tell>
size_t forEachComplaint(const LoadResult &result, bool blocking, size_t most, Tell tell) {
    size_t told = 0, others = 0;
    for (const Complaint &complaint : result.complaints) {
        if (complaint.blocks != blocking) continue;
        if (told < most)
            tell(complaint), told++;
        else
            others++;
    }
    return others;
}

void addComplaints(json_t *event, const LoadResult &result, bool blocking) {
    json_t *array = json_array();
    const size_t others = forEachComplaint(result, blocking, MOST_TOLD_JSON, [array](const Complaint &complaint) {
        json_t *json = json_object();
        json_object_set_new(json, "place", tavctl::jsonText(complaint.place.c_str()));
        json_object_set_new(json, "kind", tavctl::jsonText(complaint.kind.c_str()));
        json_object_set_new(json, "text", tavctl::jsonText(complaint.text.c_str()));
        json_array_append_new(array, json);
    });
    json_object_set_new(event, "findings", array);
    if (others) json_object_set_new(event, "others", json_integer(static_cast<json_int_t>(others)));
}

std::string complaintsText(const LoadResult &result, bool blocking) {
    std::string text;
    const size_t others = forEachComplaint(result, blocking, MOST_TOLD, [&text](const Complaint &complaint) {
        text += fmt::format("\n    {}\n        {}: {}", complaint.place, complaint.kind, complaint.text);
    });
    return others ? fmt::format("{}\n    and {} others", text, others) : text;
}

} // namespace

Controller::Controller(const ControllerOptions &options)
    : events_(options.json, options.quiet),
      store_(options.directory, options.strict),
      watch_(options.directory),
      front_(store_, events_, options.front) {
    signal(SIGPIPE, SIG_IGN); // a reader of the events that went must not end the service
}

void Controller::run() {
    loadAll();
    const auto count = static_cast<int64_t>(store_.documents().size());
    events_.tell(Events::Weight::Always, fmt::format("listening on {}, {} document{}", url(), count, count == 1 ? "" : "s"),
                 makeEvent("listening", {{"url", url()}, {"documents", count}}));
    pollfd waits[] = {{signals_.fd(), POLLIN, 0}, {watch_.descriptor(), POLLIN, 0}};
    while (!(waits[0].revents & POLLIN)) {
        if (poll(waits, 2, watch_.isLost() ? RESTORE_INTERVAL : -1) < 0) {
            if (errno == EINTR) continue;
            throw tavctl::InternalFault("waiting failed");
        }
        takeChanges();
    }
    events_.tell(Events::Weight::Detail, "stopping", makeEvent("stopping"));
}

void Controller::takeChanges() {
    if (watch_.isLost()) {
        if (!watch_.restore()) return;
        events_.tell(Events::Weight::Always, fmt::format("{} is back", store_.directory()),
                     makeEvent("directoryBack", {{"directory", store_.directory()}}));
        return reloadAll();
    }
    const DirectoryWatch::Changes changes = watch_.take();
    if (watch_.isLost())
        events_.tell(Events::Weight::Always, fmt::format("{} is gone; the last good versions are kept", store_.directory()),
                     makeEvent("directoryGone", {{"directory", store_.directory()}}));
    if (changes.all) return reloadAll();
    for (const std::string &name : changes.files) {
        if (DocumentStore::isDocumentFile(name)) load(name);
    }
    store_.settleDefault();
}

void Controller::reloadAll() {
    try {
        loadAll();
    } catch (const tavctl::Fault &unreadable) {
        events_.tell(Events::Weight::Always, unreadable.what(), makeEvent("unreadable", {{"text", std::string(unreadable.what())}}));
    }
}

void Controller::loadAll() {
    for (const std::string &name : store_.fileNames()) load(name);
    store_.settleDefault();
}

void Controller::load(const std::string &fileName) {
    const auto start = std::chrono::steady_clock::now();
    const std::string name = nameOf(fileName);
    const LoadResult result = store_.load(fileName);
    if (result.outcome == LoadOutcome::Refused) return tellRefusal(name, result);
    if (result.outcome == LoadOutcome::Unchanged) return;
    const size_t pollers = front_.wake(name);
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
    tellWarnings(name, result);
    tellPublished(name, result, pollers, taken.count());
}

void Controller::tellRefusal(const std::string &name, const LoadResult &result) {
    const tavctl::Json event = makeEvent("refused", {{"document", name}});
    addComplaints(event.get(), result, true);
    events_.tell(Events::Weight::Always, fmt::format("refused {}: what was served before is kept{}", name, complaintsText(result, true)),
                 event);
}

void Controller::tellWarnings(const std::string &name, const LoadResult &result) {
    const std::string text = complaintsText(result, false);
    if (text.empty()) return;
    const tavctl::Json event = makeEvent("warning", {{"document", name}});
    addComplaints(event.get(), result, false);
    events_.tell(Events::Weight::Detail, fmt::format("warning {}: served, but{}", name, text), event);
}

void Controller::tellPublished(const std::string &name, const LoadResult &result, size_t pollers, double milliseconds) {
    const std::string what = result.delta ? fmt::format("delta of {} bytes for {} objects", result.bytes, result.objects)
                                          : fmt::format("complete document of {} bytes", result.bytes);
    const int64_t version = result.version;
    events_.tell(Events::Weight::Detail,
                 fmt::format("serving {}: version {}, {}, to {} waiting pollers in {:.1f} ms", name, version, what, pollers, milliseconds),
                 makeEvent("published", {{"document", name},
                                         {"version", version},
                                         {"delta", result.delta},
                                         {"piece", result.piece},
                                         {"objects", static_cast<int64_t>(result.objects)},
                                         {"bytes", static_cast<int64_t>(result.bytes)},
                                         {"pollers", static_cast<int64_t>(pollers)},
                                         {"milliseconds", milliseconds}}));
}

} // namespace controller
