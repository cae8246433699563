#include "decision/Mapping.h"

#include <algorithm>

#include "support/Json.h"

namespace tavctl {

namespace {

RuleView ruleOf(const json_t *rule) {
    const auto member = [rule](const char *name) { return json_object_get(rule, name); };
    return {static_cast<int>(json_integer_value(member("order"))), memberText(rule, "expression"), memberText(rule, "action"),
            json_is_true(member("parses")), static_cast<size_t>(std::max<json_int_t>(0, json_integer_value(member("steps"))))};
}

} // namespace

MappingView mappingOf(const json_t *mapping) {
    MappingView view{memberText(mapping, "module"), memberText(mapping, "application"), memberText(mapping, "workClass"), {}, {}};
    const json_t *rules = json_object_get(mapping, "rules");
    for (size_t i = 0; i < json_array_size(rules); i++) view.rules.push_back(ruleOf(json_array_get(rules, i)));
    const json_t *servers = json_object_get(mapping, "servers");
    forEachMember(servers, [&](const char *name, const json_t *) { view.servers[name] = memberText(servers, name); });
    return view;
}

MappingView mappingOf(TavHttpContext *ctx) { return mappingOf(Json(tavHttpContextMappingToJSON(ctx)).get()); }

} // namespace tavctl
