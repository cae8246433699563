// Why a request was decided as it was, gathered from the library's trace and from its rules.
#ifndef TAVCTL_EXPLANATION_H
#define TAVCTL_EXPLANATION_H

#include "decision/Decision.h"
#include "decision/RuleNames.h"

namespace tavctl {

struct TriedRule {
    RuleView rule;
    std::string name; // full name; empty when unknown
    bool matched;
    std::vector<std::string> steps; // what each operator found
};

enum class Affinity { None, Kept, Broken };

struct Explanation {
    MappingView mapping;
    TraceStory story; // server names stand in passedOver
    std::vector<TriedRule> tried;
    std::vector<std::string> looseSteps; // when they could not be told apart by rule
    Affinity affinity = Affinity::None;
    std::string affinityText; // the server, or why it was broken
};

Explanation explain(const Decision &decision, const RuleNames &names);
// {"rules": [...], "affinity": text, "passedOver": [...]}. Returns new.
json_t *explainJson(const Decision &decision, const RuleNames &names);

} // namespace tavctl

#endif
