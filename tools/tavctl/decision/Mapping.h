// How a request was mapped: read from what tavHttpContextMappingToJSON() tells, here or in a server.
#ifndef TAVCTL_MAPPING_H
#define TAVCTL_MAPPING_H

#include <jansson.h>
#include <tav/tav.h>

#include <map>
#include <string>
#include <vector>

namespace tavctl {

struct RuleView {
    int order;
    std::string expression;
    std::string action; // in words: "permit edition 2.0"
    bool parses;
    size_t steps; // trace lines that one evaluation gives
};
struct MappingView {
    std::string module; // whose path pattern matched, before a rule chose the edition; empty: none
    std::string application;
    std::string workClass; // the default one of the application; empty: none
    std::vector<RuleView> rules;
    std::map<std::string, std::string> servers; // by the address under which the trace tells of their applications
};
// What is missing or of another type counts as not there.
MappingView mappingOf(const json_t *mapping);
MappingView mappingOf(TavHttpContext *ctx);

} // namespace tavctl

#endif
