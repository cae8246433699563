#include "decision/Explanation.h"

#include <numeric>

#include "support/Json.h"

namespace tavctl {

namespace {

// The place of the matched rule in the list; the list's size when none matched.
size_t matchedIndex(const std::vector<RuleView> &rules, const json_t *rule) {
    const json_int_t order = json_integer_value(json_object_get(rule, "order"));
    const std::string expression = memberText(rule, "expression");
    for (size_t i = 0; json_is_object(rule) && i < rules.size(); i++) {
        if (rules[i].order == order && rules[i].expression == expression) return i;
    }
    return rules.size();
}

// Each evaluation tells a known number of lines; when the sum differs they are not told apart.
void addSteps(Explanation &result) {
    const auto countSteps = [](size_t sum, const TriedRule &tried) { return sum + tried.rule.steps; };
    std::vector<std::string> &steps = result.story.ruleSteps;
    if (std::accumulate(result.tried.begin(), result.tried.end(), size_t{0}, countSteps) != steps.size()) {
        result.looseSteps = std::move(steps);
        return;
    }
    auto step = steps.begin();
    for (TriedRule &tried : result.tried) {
        for (size_t i = 0; i < tried.rule.steps; i++) tried.steps.push_back(std::move(*step++));
    }
}

void addAffinity(Explanation &result, const json_t *reasons) {
    if (const std::string reason = memberText(reasons, "affinityBreakReason"); !reason.empty()) {
        result.affinity = Affinity::Broken;
        result.affinityText = reason;
    } else if (result.story.affinityKept) {
        result.affinity = Affinity::Kept;
        result.affinityText = *result.story.affinityKept;
    }
}

void nameServers(Explanation &result) {
    for (PassedOver &passed : result.story.passedOver) {
        const auto server = result.mapping.servers.find(passed.address);
        if (server != result.mapping.servers.end()) passed.name = server->second;
    }
}

json_t *stepsJson(const std::vector<std::string> &steps) {
    json_t *array = json_array();
    for (const std::string &step : steps) json_array_append_new(array, jsonText(step.c_str()));
    return array;
}

json_t *ruleJson(const TriedRule &tried) {
    json_t *json = json_object();
    json_object_set_new(json, "name", jsonText(tried.name.empty() ? nullptr : tried.name.c_str()));
    json_object_set_new(json, "order", json_integer(tried.rule.order));
    json_object_set_new(json, "expression", jsonText(tried.rule.expression.c_str()));
    json_object_set_new(json, "action", jsonText(tried.rule.action.c_str()));
    json_object_set_new(json, "matched", json_boolean(tried.matched));
    json_object_set_new(json, "steps", stepsJson(tried.steps));
    return json;
}

std::string affinityWords(const Explanation &result) {
    switch (result.affinity) {
        case Affinity::Kept:
            return "kept to " + result.affinityText;
        case Affinity::Broken:
            return "broken: " + result.affinityText;
        default:
            return "the request names no session";
    }
}

} // namespace

Explanation explain(const Decision &decision, const RuleNames &names) {
    Explanation result;
    result.mapping = decision.mapping;
    result.story = traceStory(decision.trace);
    const size_t matched = matchedIndex(result.mapping.rules, json_object_get(decision.reasons.get(), "rule"));
    for (size_t i = 0; i < result.mapping.rules.size() && i <= matched; i++) {
        const RuleView &rule = result.mapping.rules[i];
        result.tried.push_back({rule, names.find(result.mapping.workClass, rule.order, rule.expression), i == matched, {}});
    }
    addSteps(result);
    addAffinity(result, decision.reasons.get());
    nameServers(result);
    return result;
}

json_t *explainJson(const Decision &decision, const RuleNames &names) {
    const Explanation result = explain(decision, names);
    json_t *rules = json_array();
    for (const TriedRule &tried : result.tried) json_array_append_new(rules, ruleJson(tried));
    json_t *passedOver = json_array();
    for (const PassedOver &passed : result.story.passedOver)
        json_array_append_new(passedOver, json_pack("{s:o, s:o}", "server", jsonText(passed.name), "reason", jsonText(passed.reason)));
    json_t *json = json_object();
    json_object_set_new(json, "rules", rules);
    json_object_set_new(json, "affinity", jsonText(affinityWords(result).c_str()));
    json_object_set_new(json, "passedOver", passedOver);
    return json;
}

} // namespace tavctl
