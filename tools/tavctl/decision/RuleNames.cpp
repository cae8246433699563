#include "decision/RuleNames.h"

#include <fmt/format.h>

#include <string_view>

#include "check/DocumentIndex.h"
#include "engine/Inside.h"

namespace tavctl {

namespace {

constexpr std::string_view RULE_MARK = "/rule/";

std::string ruleKey(const std::string &workClass, int order, const std::string &expression) {
    return fmt::format("{}\n{}\n{}", workClass, order, expression);
}

} // namespace

void RuleNames::add(const std::string &name, const std::string &expression) {
    const size_t mark = name.rfind(RULE_MARK);
    if (mark == std::string::npos) return;
    names_.emplace(ruleKey(name.substr(0, mark), ruleOrder(name), expression), name);
}

std::string RuleNames::find(const std::string &workClass, int order, const std::string &expression) const {
    const auto found = names_.find(ruleKey(workClass, order, expression));
    return found == names_.end() ? "" : found->second;
}

RuleNames ruleNamesOf(const json_t *document) {
    RuleNames names;
    forEachObject(document, [&](const ObjectEntry &entry) {
        const char *expression = json_string_value(json_object_get(entry.props, "expression"));
        if (isRoutingRule(entry) && expression) names.add(entry.name, expression);
    });
    return names;
}

} // namespace tavctl
