// GET /status.
#include <algorithm>

#include "HttpFront.h"

namespace controller {

namespace {

constexpr size_t SHOWN_POLLERS = 100;

json_t *documentJson(const Document &document, const std::string &defaultName, const std::map<int64_t, int64_t> &versions) {
    json_t *json = json_object(), *have = json_object();
    json_object_set_new(json, "version", json_integer(document.version()));
    json_object_set_new(json, "default", json_boolean(document.name() == defaultName));
    json_object_set_new(json, "objects", json_integer(static_cast<json_int_t>(document.objectCount())));
    json_object_set_new(json, "bytes", json_integer(static_cast<json_int_t>(document.isGood() ? document.whole()->size() : 0)));
    for (const auto &[version, count] : versions) json_object_set_new(have, std::to_string(version).c_str(), json_integer(count));
    json_object_set_new(json, "pollersByVersion", have);
    return json;
}

json_t *pollerJson(const Poller &poller) {
    json_t *json = json_object();
    json_object_set_new(json, "address", tavctl::jsonText(poller.address.c_str()));
    json_object_set_new(json, "server", tavctl::jsonText(poller.server.c_str()));
    json_object_set_new(json, "document", tavctl::jsonText(poller.document->name().c_str()));
    json_object_set_new(json, "version", json_integer(poller.version));
    json_object_set_new(json, "state", json_string(poller.phase == Poller::Phase::Held ? "held" : "idle"));
    json_object_set_new(json, "polls", json_integer(poller.polls));
    if (poller.phase == Poller::Phase::Held) {
        const auto left = std::chrono::duration_cast<std::chrono::seconds>(poller.deadline - Clock::now()).count();
        json_object_set_new(json, "secondsLeft", json_integer(std::max<json_int_t>(0, left)));
    }
    return json;
}

} // namespace

std::string HttpFront::statusText(bool everyPoller) {
    const std::lock_guard<std::mutex> guard(store_.lock());
    json_t *documents = json_object(), *list = json_array();
    std::map<const Document *, std::map<int64_t, int64_t>> versions;
    size_t polling = 0;
    for (const Poller *poller : pollers_.all()) {
        if (!poller->document) continue; // a report's, or someone who looks at this
        versions[poller->document][poller->version]++;
        if (everyPoller || polling < SHOWN_POLLERS) json_array_append_new(list, pollerJson(*poller));
        polling++;
    }
    for (const auto &[name, document] : store_.documents())
        json_object_set_new(documents, name.c_str(), documentJson(*document, store_.defaultName(), versions[document.get()]));
    const tavctl::Json status(json_object());
    json_object_set_new(status.get(), "directory", tavctl::jsonText(store_.directory().c_str()));
    json_object_set_new(status.get(), "documents", documents);
    json_object_set_new(status.get(), "connections", json_integer(static_cast<json_int_t>(pollers_.all().size())));
    json_object_set_new(status.get(), "pollers", json_integer(static_cast<json_int_t>(polling)));
    json_object_set_new(status.get(), "held", json_integer(static_cast<json_int_t>(pollers_.heldCount())));
    json_object_set_new(status.get(), "pollerList", list);
    json_object_set_new(status.get(), "posts", posts_.toJson());
    return tavctl::jsonPretty(status.get()) + "\n";
}

} // namespace controller
