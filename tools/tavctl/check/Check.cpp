#include "check/Check.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

#include "check/DocumentShape.h"
#include "support/Fault.h"
#include "support/Json.h"

namespace tavctl {

namespace {

// Asked of the controller although the library makes nothing of them: no document is wrong for having them.
struct HarmlessProperty {
    std::string_view type;
    const char *name;
};
constexpr HarmlessProperty HARMLESS[] = {{"webModule", "routingEnabled"}, {"transport", "isActive"}};

std::string placeKey(size_t file, const std::string &pointer) { return fmt::format("{}:{}", file, pointer); }

const char *textProperty(const ObjectEntry &entry, const char *name) { return json_string_value(json_object_get(entry.props, name)); }

} // namespace

// An object of this type that stands in no pair of these kinds is never used.
struct Check::LinkRule {
    const char *type;
    std::vector<const char *> kinds;
    const char *text;
};

Check::Check() : reader_(engine_.tav()) {}

void Check::addFile(const std::string &path) { addText(path, readFile(path)); }

void Check::addText(const std::string &path, std::string text) {
    const Json document = parseJson(text, path);
    paths_.push_back(path);
    texts_.push_back(std::move(text));
    const bool isDelta = json_is_true(json_object_get(document.get(), "delta"));
    if (isDelta && !storedDocument(engine_.connector()))
        return add({.file = current(), .kind = "document", .text = "a delta without a complete document before it"});
    checkShape(document.get(), [this](const std::string &pointer, const char *kind, const std::string &problem) {
        add({.file = current(), .pointer = pointer, .kind = kind, .text = problem});
    });
    forEachObject(document.get(), [this](const ObjectEntry &entry) { addEntry(entry); });
    std::vector<DocumentFinding> refused;
    const long long version = engine_.apply(texts_.back(), &refused);
    addRefused(refused);
    const bool told =
        std::any_of(refused.begin(), refused.end(), [](const DocumentFinding &finding) { return finding.kind == "document"; });
    if (version == -1 && !told) add({.file = current(), .kind = "document", .text = engine_.refusal()});
    if (version != -1 && current() > 0 && !isDelta)
        add({.file = current(), .kind = "document", .text = "a complete document (no \"delta\": true) replaces the ones before it"});
}

// ---- one entry ----

void Check::addEntry(const ObjectEntry &entry) {
    if (entry.operation == "del") return;
    const size_t file = current();
    if (entry.operation == "add" || !places_.count(entry.name)) places_[entry.name] = {file, entry.pointer};
    for (const HarmlessProperty &property : HARMLESS) {
        if (entry.type == property.type) harmless_.insert(placeKey(file, entry.pointer + "/props/" + property.name));
    }
    if (entry.type == "transport" && entry.operation == "add") addTransport(entry);
    if (entry.type == "rule") addRule(entry);
}

// All transports of a server are asked for, so one that is never used is no fault.
void Check::addTransport(const ObjectEntry &entry) {
    const char *protocol = textProperty(entry, "protocol");
    if (forwardsWith(protocol)) return;
    add({.file = current(),
         .pointer = entry.pointer,
         .kind = "unused",
         .text = fmt::format("{}: the transport's protocol is {}: requests go over http and https only", entry.name,
                             protocol ? protocol : "not given"),
         .note = true});
}

void Check::addRule(const ObjectEntry &entry) {
    addExpression(entry);
    const char *action = textProperty(entry, "action");
    if (action && isRoutingRule(entry)) {
        const std::string problem = actionProblem(action);
        const std::string pointer = entry.pointer + "/props/action";
        if (!problem.empty())
            add({.file = current(), .pointer = pointer, .kind = "rule", .text = fmt::format("\"{}\": {}", action, problem)});
        if (!problem.empty()) explained_.insert(placeKey(current(), pointer));
    }
    if (!action && entry.operation == "add" && entry.props)
        add({.file = current(),
             .pointer = entry.pointer,
             .kind = "rule",
             .text = "the rule has no action: what it matches is rejected with 500"});
}

void Check::addExpression(const ObjectEntry &entry) {
    const char *expression = textProperty(entry, "expression");
    if (!expression && entry.operation == "add" && entry.props)
        add({.file = current(), .pointer = entry.pointer, .kind = "rule", .text = "the rule has no expression: it never matches"});
    if (!expression) return;
    const RuleOutcome outcome = reader_.read(expression, nullptr, false);
    if (outcome.parses) return;
    const std::string pointer = entry.pointer + "/props/expression";
    add({.file = current(),
         .pointer = pointer,
         .kind = "rule",
         .text = outcome.message,
         .expression = expression,
         .indicator = outcome.indicator});
    explained_.insert(placeKey(current(), pointer));
}

void Check::addRefused(const std::vector<DocumentFinding> &refused) {
    for (const DocumentFinding &finding : refused) {
        const std::string place = placeKey(current(), finding.pointer);
        if (explained_.count(place)) continue;
        add({.file = current(),
             .pointer = finding.pointer,
             .kind = finding.kind,
             .text = finding.text,
             .note = harmless_.count(place) > 0});
    }
}

// ---- the whole ----

void Check::addUnlinked() {
    static const LinkRule rules[] = {
        {"webModule", {"vHostGroup:webModule"}, "no virtual-host group is linked to the web module: no request can reach it"},
        {"vHostGroup", {"vHostGroup:webModule"}, "no web module is linked to the virtual-host group: it is never used"},
        {"cluster", {"cluster:webModule"}, "no web module is linked to the cluster: it is never used"},
        {"healthPolicy", {"server:healthPolicy"}, "no server is linked to the health policy: it is never used"},
    };
    const json_t *stored = storedDocument(engine_.connector());
    for (const LinkRule &rule : rules) {
        std::set<std::string> linked;
        for (const char *kind : rule.kinds) {
            const bool first = std::string_view(kind).starts_with(rule.type);
            for (const auto &[one, other] : relationshipPairs(stored, kind)) linked.insert(first ? one : other);
        }
        forEachObject(stored, [&](const ObjectEntry &entry) {
            if (entry.operation == "add" && entry.type == rule.type && !linked.count(entry.name)) addUnused(entry.name, rule.text);
        });
    }
}

void Check::addUnused(const std::string &name, const std::string &text) {
    const auto place = places_.find(name);
    const bool known = place != places_.end();
    add({.file = known ? place->second.file : 0,
         .pointer = known ? place->second.pointer : "",
         .kind = "unused",
         .text = fmt::format("{}: {}", name, text)});
}

void Check::add(Finding finding) {
    const std::string key = fmt::format("{}\n{}", placeKey(finding.file, finding.pointer), finding.text);
    if (seen_.insert(key).second) findings_.push_back(std::move(finding));
}

void Check::finish() {
    if (paths_.empty()) return;
    addUnlinked();
    for (const ObjectProblem &problem : findUnreachable(engine_.tav())) addUnused(problem.name, problem.text);
    addLines();
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](const Finding &a, const Finding &b) { return std::tie(a.file, a.line) < std::tie(b.file, b.line); });
}

void Check::addLines() {
    for (size_t file = 0; file < paths_.size(); file++) {
        std::set<std::string> pointers;
        for (const Finding &finding : findings_) {
            if (finding.file == file) pointers.insert(finding.pointer);
        }
        const std::map<std::string, int> lines = linesOf(texts_[file], pointers);
        for (Finding &finding : findings_) {
            const auto line = finding.file == file ? lines.find(finding.pointer) : lines.end();
            if (line != lines.end()) finding.line = line->second;
        }
    }
}

void Check::forget() {
    paths_.clear();
    texts_.clear();
    findings_.clear();
    seen_.clear();
    explained_.clear();
    harmless_.clear();
    places_.clear();
}

size_t Check::count() const {
    return static_cast<size_t>(std::count_if(findings_.begin(), findings_.end(), [](const Finding &finding) { return !finding.note; }));
}

} // namespace tavctl
