#include "scenario/Scenario.h"

#include <fmt/format.h>

#include <filesystem>

#include "decision/Request.h"
#include "engine/Inside.h"
#include "support/Fault.h"
#include "support/Json.h"

namespace tavctl {

namespace {

std::string textOf(const json_t *line, const char *member) {
    const json_t *value = json_object_get(line, member);
    if (!value) throw Fault(fmt::format("\"{}\" is missing", member));
    if (!json_is_string(value)) throw Fault(fmt::format("\"{}\" must be a text, not {}", member, jsonTypeName(value)));
    return json_string_value(value);
}

void requireTrue(const json_t *line, const char *member) {
    if (!json_is_true(json_object_get(line, member))) throw Fault(fmt::format("\"{}\" must be true", member));
}

TavHttpContextState stateOf(const std::string &name) {
    for (int state = INITIAL; state <= FREE; state++) {
        if (name == tavHttpContextStateToString(static_cast<TavHttpContextState>(state))) return static_cast<TavHttpContextState>(state);
    }
    throw Fault(fmt::format("unknown state \"{}\"", name));
}

} // namespace

Scenario::Scenario(std::string file, ScenarioListener &listener, Coverage *coverage)
    : file_(std::move(file)), listener_(listener), coverage_(coverage) {}

void Scenario::run() {
    const std::string text = readFile(file_);
    forEachJsonLine(text, file_, [this](int number, const json_t *line) { runLine(number, line); });
}

void Scenario::runLine(int number, const json_t *line) {
    line_ = number;
    try {
        const json_t *expect = json_object_get(line, "expect");
        if (expect && !json_is_object(expect)) throw Fault(fmt::format("\"expect\" must be an object, not {}", jsonTypeName(expect)));
        dispatch(line);
    } catch (const InternalFault &) {
        throw;
    } catch (const Fault &fault) {
        throw Fault(file_, number, fault.what());
    }
    listener_.stepped();
}

void Scenario::dispatch(const json_t *line) {
    struct Kind {
        const char *key;
        std::vector<std::string_view> members;
        void (Scenario::*run)(const json_t *line);
    };
    static const Kind kinds[] = {
        {"document", {"document", "expect"}, &Scenario::document},
        {"property", {"property", "value", "expect"}, &Scenario::property},
        {"request", {"id", "request", "expect"}, &Scenario::request},
        {"state", {"id", "state"}, &Scenario::state},
        {"retarget", {"id", "retarget", "expect"}, &Scenario::retarget},
        {"response", {"id", "response", "expect"}, &Scenario::response},
        {"release", {"id", "release"}, &Scenario::release},
        {"dump", {"dump", "expect"}, &Scenario::dump},
    };
    for (const Kind &kind : kinds) {
        if (!json_object_get(line, kind.key)) continue;
        refuseOtherMembers(line, kind.key, kind.members);
        return (this->*kind.run)(line);
    }
    throw Fault("none of \"document\", \"property\", \"request\", \"state\", \"retarget\", \"response\", \"release\", \"dump\" is given");
}

// ---- lines ----

// A path is relative to the scenario's own folder.
std::string Scenario::documentText(const json_t *value) const {
    if (json_is_object(value)) return jsonLine(value);
    if (!json_is_string(value)) throw Fault(fmt::format("\"document\" must be an object or a path, not {}", jsonTypeName(value)));
    const std::string path = (std::filesystem::path(file_).parent_path() / json_string_value(value)).string();
    std::string text = readFile(path);
    parseJson(text, path);
    return text;
}

void Scenario::document(const json_t *line) {
    const long long version = engine_.apply(documentText(json_object_get(line, "document")));
    if (coverage_) coverage_->addDocument(storedDocument(engine_.connector()));
    finish(line, Json(json_pack("{s:b, s:I}", "document", 1, "version", static_cast<json_int_t>(version))), "document");
}

void Scenario::property(const json_t *line) {
    const std::string name = textOf(line, "property");
    const json_t *value = json_object_get(line, "value");
    if (!value) throw Fault("\"value\" is missing");
    if (!json_is_string(value) && !json_is_null(value))
        throw Fault(fmt::format("\"value\" must be a text or null, not {}", jsonTypeName(value)));
    const int result =
        engine_.setProperty(name, json_is_string(value) ? std::optional<std::string>(json_string_value(value)) : std::nullopt);
    finish(line, Json(json_pack("{s:s, s:i}", "property", name.c_str(), "result", result)), "property " + name);
}

void Scenario::request(const json_t *line) {
    const std::string id = textOf(line, "id");
    RoutedRequest routed(engine_.tav(), requestFromJson(json_object_get(line, "request")));
    routed.decide();
    if (const auto old = requests_.find(id); old != requests_.end()) {
        replaced_.push_back(std::move(old->second));
        requests_.erase(old);
    }
    const RoutedRequest &kept = requests_.emplace(id, std::move(routed)).first->second;
    if (coverage_) coverage_->addRequest(kept);
    finish(line, kept.toJson(id), "request " + id);
}

RoutedRequest &Scenario::find(const json_t *line) {
    const std::string id = textOf(line, "id");
    const auto found = requests_.find(id);
    if (found == requests_.end()) throw Fault(fmt::format("no request \"{}\" is open", id));
    return found->second;
}

void Scenario::state(const json_t *line) {
    RoutedRequest &request = find(line);
    request.report(stateOf(textOf(line, "state")));
}

void Scenario::retarget(const json_t *line) {
    RoutedRequest &request = find(line);
    requireTrue(line, "retarget");
    request.retarget();
    const std::string id = textOf(line, "id");
    finish(line, request.toJson(id), "retarget " + id);
}

void Scenario::response(const json_t *line) {
    RoutedRequest &request = find(line);
    responseFromJson(json_object_get(line, "response"), request.request());
    request.respond();
    const std::string id = textOf(line, "id");
    const EnvHttpContext &host = request.request();
    json_t *result = json_pack("{s:s, s:o, s:o}", "id", id.c_str(), "responseHeaders", host.responseHeadersSet.toJson(), "responseCookies",
                               host.responseCookiesSet.toJson());
    finish(line, Json(result), "response " + id);
}

void Scenario::release(const json_t *line) {
    find(line);
    requireTrue(line, "release");
    requests_.erase(textOf(line, "id"));
}

void Scenario::dump(const json_t *line) {
    requireTrue(line, "dump");
    finish(line, Json(json_pack("{s:o}", "dump", tavToJSON(engine_.tav()))), "dump");
}

void Scenario::finish(const json_t *line, Json result, const std::string &title) {
    if (!result) throw Fault("no result could be made");
    listener_.result(result.get());
    const json_t *expect = json_object_get(line, "expect");
    if (!expect) return;
    const std::vector<Difference> differences = compareExpectation(expect, result.get());
    if (differences.empty())
        listener_.held(line_);
    else
        listener_.missed(file_, line_, title, differences);
}

} // namespace tavctl
