// The configured names of routing rules, which the library does not keep.
#ifndef TAVCTL_RULENAMES_H
#define TAVCTL_RULENAMES_H

#include <jansson.h>

#include <map>
#include <string>

namespace tavctl {

// Names routing rules by what the library tells of them.
class RuleNames {
public:
    void add(const std::string &name, const std::string &expression);
    // The full name of a rule; empty when unknown.
    std::string find(const std::string &workClass, int order, const std::string &expression) const;

private:
    std::map<std::string, std::string> names_;
};
RuleNames ruleNamesOf(const json_t *document); // a stored document; may be null

} // namespace tavctl

#endif
