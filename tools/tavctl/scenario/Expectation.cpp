#include "scenario/Expectation.h"

#include "support/Json.h"

namespace tavctl {

namespace {

void compareMembers(const json_t *expected, const json_t *actual, const std::string &where, std::vector<Difference> &differences) {
    json_t *object = const_cast<json_t *>(expected);
    for (void *it = json_object_iter(object); it; it = json_object_iter_next(object, it)) {
        const json_t *wanted = json_object_iter_value(it);
        const json_t *got = json_object_get(actual, json_object_iter_key(it));
        const std::string path = where + (where.empty() ? "" : ".") + json_object_iter_key(it);
        if (json_is_object(wanted) && json_is_object(got)) {
            compareMembers(wanted, got, path, differences);
        } else if (!got ? !(json_is_null(wanted) && where.empty()) : !json_equal(wanted, got)) {
            differences.push_back({path, jsonLine(wanted), got ? jsonLine(got) : "nothing"});
        }
    }
}

} // namespace

std::vector<Difference> compareExpectation(const json_t *expected, const json_t *actual) {
    std::vector<Difference> differences;
    compareMembers(expected, actual, "", differences);
    return differences;
}

} // namespace tavctl
