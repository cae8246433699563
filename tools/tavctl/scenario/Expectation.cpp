#include "scenario/Expectation.h"

#include "support/Json.h"

namespace tavctl {

namespace {

void compareMembers(const json_t *expected, const json_t *actual, const std::string &where, std::vector<Difference> &differences) {
    forEachMember(expected, [&](const char *name, const json_t *wanted) {
        const json_t *got = json_object_get(actual, name);
        const std::string path = where + (where.empty() ? "" : ".") + name;
        if (json_is_object(wanted) && json_is_object(got)) {
            compareMembers(wanted, got, path, differences);
        } else if (!got ? !(json_is_null(wanted) && where.empty()) : !json_equal(wanted, got)) {
            differences.push_back({path, jsonLine(wanted), got ? jsonLine(got) : "nothing"});
        }
    });
}

} // namespace

std::vector<Difference> compareExpectation(const json_t *expected, const json_t *actual) {
    std::vector<Difference> differences;
    compareMembers(expected, actual, "", differences);
    return differences;
}

} // namespace tavctl
