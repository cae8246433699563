// URI patterns, one a line, until an empty line; then paths. The matcher agrees with the plain one of the tests as it is built, sealed,
// cloned and opened again. A pattern that begins with "!" belongs to a generic application.
#include <vector>

#include "FuzzTarget.h"
#include "URIMatcher/URIMatcher.h"
#include "matching/NaiveMatcher.h"

namespace {

constexpr size_t MOST_LINES = 60;

struct Twins {
    URIMatcher *matcher = URIMatcherCreate(nullptr, "twin");
    NaiveTree generic, real;
    size_t puts = 0; // so that a pattern and its equals have different targets

    void put(const std::string &line) {
        static char targets[][8] = {"genApp0", "genApp1", "genApp2", "target0", "target1", "target2"};
        const bool isGeneric = line[0] == '!';
        const std::string pattern = line.substr(isGeneric);
        char *to = targets[(isGeneric ? 0 : 3) + puts++ % 3];
        URIMatcherPut(matcher, pattern.c_str(), to, FALSE);
        if (pattern.empty() || pattern.find('*') != pattern.rfind('*')) return; // ignored by both
        (isGeneric ? generic : real).put(pattern, to, ORIGIN_USER);
    }
    void compare(const URIMatcher *other, const std::vector<std::string> &paths) const {
        for (const std::string &path : paths) {
            const char *expected = generic.match(path);
            if (!expected) expected = real.match(path);
            FUZZ_CHECK(URIMatcherMatch(other, path.c_str(), nullptr) == expected);
        }
    }
};

std::vector<std::string> readLines(FuzzInput &input) {
    std::vector<std::string> lines;
    while (!input.empty() && lines.size() < MOST_LINES) {
        std::string line = input.line();
        if (line.empty()) break;
        if (line.find('\0') == std::string::npos) lines.push_back(std::move(line));
    }
    return lines;
}

} // namespace

FUZZ_TARGET(fuzz_uriPatterns) {
    const FuzzBalance balance;
    FuzzInput input(data, size);
    const std::vector<std::string> patterns = readLines(input);
    std::vector<std::string> paths = readLines(input);
    paths.insert(paths.end(), patterns.begin(), patterns.end());
    Twins twins;
    for (const std::string &pattern : patterns) twins.put(pattern);
    twins.compare(twins.matcher, paths);
    FUZZ_CHECK(URIMatcherSeal(twins.matcher));
    twins.compare(twins.matcher, paths);
    URIMatcher *clone = URIMatcherClone(twins.matcher);
    twins.compare(clone, paths);
    URIMatcherDelete(clone);
    for (const std::string &path : paths) twins.put(path);
    twins.compare(twins.matcher, paths);
    std::string dump(URIMatcherInfoLength(twins.matcher) + 1, '\1');
    dump[0] = '\0';
    URIMatcherAddInfo(twins.matcher, dump.data());
    FUZZ_CHECK(dump.find('\0') == dump.size() - 1);
    URIMatcherDelete(twins.matcher);
    return 0;
}
