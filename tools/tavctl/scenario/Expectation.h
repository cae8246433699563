// Comparing a result with what a scenario expects of it.
#ifndef TAVCTL_EXPECTATION_H
#define TAVCTL_EXPECTATION_H

#include <jansson.h>

#include <string>
#include <vector>

namespace tavctl {

struct Difference {
    std::string where;    // "endpoint.server"
    std::string expected; // JSON
    std::string actual;   // JSON, or "nothing"
};

// Every member of `expected` must be equal in `actual`: objects member by member, arrays and scalars exactly. A null expectation of a
// member of the result itself also holds when the result has no such member.
std::vector<Difference> compareExpectation(const json_t *expected, const json_t *actual);

} // namespace tavctl

#endif
