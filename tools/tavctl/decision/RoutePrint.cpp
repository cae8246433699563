#include "decision/RoutePrint.h"

#include <fmt/format.h>

#include "decision/Explanation.h"
#include "support/Json.h"
#include "support/Output.h"

namespace tavctl {

namespace {

std::string textOrDash(const json_t *object, const char *member) {
    const std::string text = memberText(object, member);
    return text.empty() ? "-" : text;
}

std::string endpointText(const json_t *endpoint) {
    return fmt::format("{}://{}:{}", textOrDash(endpoint, "protocol"), textOrDash(endpoint, "host"),
                       json_integer_value(json_object_get(endpoint, "port")));
}

std::string actionText(const json_t *decision) {
    const std::string action = memberText(decision, "action"), message = memberText(decision, "errorMsg");
    if (action == "REDIRECT") return fmt::format("REDIRECT to {}", textOrDash(decision, "redirectURL"));
    if (action != "REJECT") return action;
    const std::string status = fmt::format("REJECT with {}", json_integer_value(json_object_get(decision, "errorCode")));
    return message.empty() ? status : fmt::format("{}: {}", status, message);
}

Colour colourOf(const std::string &action) {
    return action == "PERMIT" ? Colour::Green : action == "REJECT" ? Colour::Red : Colour::Yellow;
}

// Null: there is none.
const json_t *endpointOf(const json_t *decision) {
    const json_t *endpoint = json_object_get(decision, "endpoint");
    return json_is_object(endpoint) ? endpoint : nullptr;
}

// Fields that share one title: the first line carries it.
class FieldList {
public:
    explicit FieldList(const char *title) : title_(title) {}
    void add(const std::string &text, Colour colour = Colour::Plain) {
        outField(title_, text, colour);
        title_ = "";
    }

private:
    const char *title_;
};

// ---- rules ----

void printRule(const Explanation &why) {
    if (!why.tried.empty() && why.tried.back().matched) {
        const TriedRule &matched = why.tried.back();
        const std::string text = fmt::format("#{} {} -> {}", matched.rule.order, matched.rule.expression, matched.rule.action);
        outField("rule", matched.name.empty() ? text : text + "\n" + matched.name);
    } else if (!why.mapping.workClass.empty()) {
        outField("rule", "no rule matched", Colour::Red);
    } else if (!why.mapping.module.empty()) {
        outField("rule", "none asked: the application has no default work class");
    }
}

void printTriedRules(const Explanation &why) {
    FieldList fields("rules tried");
    for (const TriedRule &tried : why.tried) {
        const char *verdict = tried.matched ? "matched" : tried.rule.parses ? "no match" : "does not parse, never matches";
        std::string text = fmt::format("#{} {}: {}", tried.rule.order, tried.rule.expression, verdict);
        for (const std::string &step : tried.steps) text += "\n  " + step;
        fields.add(text);
    }
    for (const std::string &step : why.looseSteps) fields.add("  " + step);
}

// ---- selection ----

void printAffinity(const json_t *decision, const Explanation &why) {
    FieldList fields("affinity");
    if (why.affinity == Affinity::Kept) fields.add("kept to " + why.affinityText, Colour::Green);
    if (why.affinity == Affinity::Broken) fields.add("broken: " + why.affinityText, Colour::Yellow);
    if (why.affinity == Affinity::None) fields.add("the request names no session");
    if (endpointOf(decision)) outField("chosen by", json_is_true(json_object_get(decision, "loadBalanced")) ? "load" : "affinity");
    if (why.story.rollout) outField("rollout", *why.story.rollout, Colour::Yellow);
}

void printSelectionSteps(const TraceStory &story) {
    FieldList sessions("sessions");
    for (const std::string &step : story.affinitySteps) sessions.add(step);
    FieldList compared("compared");
    for (const Compared &server : story.compared) compared.add(fmt::format("{}: {}", server.server, server.load));
    FieldList passedOver("passed over");
    for (const PassedOver &passed : story.passedOver) passedOver.add(fmt::format("{}: {}", passed.name, passed.reason), Colour::Yellow);
}

void printMapping(const json_t *decision) {
    outField("application", textOrDash(decision, "application"));
    const json_t *edition = json_object_get(decision, "edition");
    if (json_is_string(edition)) outField("edition", json_string_length(edition) ? json_string_value(edition) : "base");
    outField("web module", textOrDash(decision, "module"));
    outField("context root", textOrDash(decision, "contextRoot"));
}

void printEndpoint(const json_t *endpoint) {
    const std::string clone = memberText(endpoint, "cloneId");
    outField("endpoint", endpointText(endpoint), Colour::Bold);
    outField("server", fmt::format("{}{}{}", textOrDash(endpoint, "server"), clone.empty() ? "" : ", clone ", clone));
    outField("cluster", textOrDash(endpoint, "cluster"));
}

void printHeaders(const json_t *headers) {
    FieldList fields("headers");
    forEachMember(headers, [&](const char *name, const json_t *value) {
        fields.add(json_is_string(value) ? fmt::format("{}: {}", name, json_string_value(value)) : fmt::format("{} removed", name));
    });
}

// What only a server has: whether it asks the library at all, and which document is in force.
void printServer(const json_t *decision) {
    if (json_is_false(json_object_get(decision, "enabled")))
        outField("asked", fmt::format("no: the library is not enabled for the server {}", textOrDash(decision, "virtualServer")),
                 Colour::Yellow);
    if (const json_t *version = json_object_get(decision, "version")) outField("version", std::to_string(json_integer_value(version)));
}

} // namespace

std::string outcomeOf(const RoutedRequest &request) {
    const Json decision = request.toJson("");
    if (request.handled() != 1) return "not handled: " + actionText(decision.get());
    const json_t *endpoint = endpointOf(decision.get());
    return endpoint ? fmt::format("{} {}", textOrDash(endpoint, "server"), endpointText(endpoint)) : actionText(decision.get());
}

void printDecision(const std::string &title, const Decision &told, const RuleNames &names, bool explaining) {
    const json_t *decision = told.json.get();
    const Explanation why = explain(told, names);
    const json_int_t handled = json_integer_value(json_object_get(decision, "handled"));
    const bool mapped = json_is_string(json_object_get(decision, "module"));
    out("{}\n", paint(Colour::Bold, title));
    outField("handled", handled == 1 ? "yes" : handled == 0 ? "no" : "error");
    outField("action", actionText(decision), colourOf(memberText(decision, "action")));
    outField("host group", textOrDash(decision, "vhostGroup"));
    if (handled == 1 && mapped) printMapping(decision);
    printRule(why);
    if (explaining) printTriedRules(why);
    if (const json_t *endpoint = endpointOf(decision)) printEndpoint(endpoint);
    if (mapped) printAffinity(decision, why);
    if (explaining) printSelectionSteps(why.story);
    printHeaders(json_object_get(decision, "headers"));
    printServer(decision);
}

} // namespace tavctl
