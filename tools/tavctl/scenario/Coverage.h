// Which routing rules, web modules and virtual-host groups requests touched.
#ifndef TAVCTL_COVERAGE_H
#define TAVCTL_COVERAGE_H

#include <array>
#include <map>
#include <string>

#include "decision/Decision.h"
#include "decision/RuleNames.h"

namespace tavctl {

class Coverage {
public:
    void addDocument(const json_t *stored); // its objects count from now on; may be null
    void addRequest(const RoutedRequest &request);

    double percent() const; // 100 when there is nothing to touch
    void print(FILE *stream) const;

private:
    struct Kind {
        const char *title;
        std::map<std::string, bool> touched; // by full name
    };
    void touch(Kind &kind, const std::string &name);
    Kind groups_{"virtual-host groups", {}};
    Kind modules_{"web modules", {}};
    Kind rules_{"routing rules", {}};
    std::array<const Kind *, 3> kinds() const { return {&groups_, &modules_, &rules_}; }
    RuleNames ruleNames_;
};

} // namespace tavctl

#endif
