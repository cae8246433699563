// The built-in self-test. A pattern without a target of its own is its target, so that a case reads as "this path goes to that pattern".
#include <cstdio>
#include <cstring>

#include "URIMatcher/URIMatcher.h"
#include "tavUtil/tavString.h"

namespace {

constexpr int MOST_PATTERNS = 6;
struct PatternSet {
    const char *patterns[MOST_PATTERNS]; // ends with null unless full
    const char *targets[MOST_PATTERNS];
};

constexpr PatternSet EXACT_AND_PREFIX{{"/", "/foo/*", "/foo/bar", "/foo/car"}};
constexpr PatternSet DEEPER_DECIDES{{"*.jsp", "/trade/*"}};
constexpr PatternSet SUFFIX_OVER_PREFIX{{"/trade/*", "/trade/*.jsp"}};
constexpr PatternSet TWO_SUFFIXES{{"/foo/*html", "/foo/*.html"}};
constexpr PatternSet NESTED_SUFFIXES{{"/A/*", "/A/*.jsp", "/*.jsp"}};
constexpr PatternSet COMMON_ROOT{{"/veApp1/*", "/veApp12/*"}};
constexpr PatternSet NO_SLASH{{"ab", "ab*jsp", "a*jsp", "ab*", "*jsp"}};
constexpr PatternSet STARS{{"/weblogs/*/feed/*", "/weblogs/*/feed/entries/rss"}};
constexpr PatternSet TWICE{{"/a/*", "/a", "/a", "/a/*"}, {nullptr, nullptr, "later", "later"}};
constexpr PatternSet CATCH_ALL{{"/*", "/foo"}, {"genApp/Default_default_host_HTTP_WC"}};

struct Case {
    const PatternSet *set;
    const char *path;
    const char *expected; // null: no target
};

constexpr Case CASES[] = {
    {&EXACT_AND_PREFIX, "/foo/bar", "/foo/bar"},
    {&EXACT_AND_PREFIX, "/foo/car", "/foo/car"},
    {&EXACT_AND_PREFIX, "/foo/x", "/foo/*"},
    {&EXACT_AND_PREFIX, "/foo", "/foo/*"},
    {&EXACT_AND_PREFIX, "/", "/"},
    {&EXACT_AND_PREFIX, "/other", nullptr},
    {&DEEPER_DECIDES, "/trade/a.jsp", "/trade/*"},
    {&DEEPER_DECIDES, "/x/a.jsp", "*.jsp"},
    {&SUFFIX_OVER_PREFIX, "/trade/a.jsp", "/trade/*.jsp"},
    {&SUFFIX_OVER_PREFIX, "/trade/a.jspx", "/trade/*"},
    {&TWO_SUFFIXES, "/foo/bar.html", "/foo/*.html"},
    {&TWO_SUFFIXES, "/foo/barhtml", "/foo/*html"},
    {&NESTED_SUFFIXES, "/A/x.jsp", "/A/*.jsp"},
    {&NESTED_SUFFIXES, "/B/x.jsp", "/*.jsp"},
    {&COMMON_ROOT, "/veApp12/x", "/veApp12/*"},
    {&COMMON_ROOT, "/veApp1/x", "/veApp1/*"},
    {&COMMON_ROOT, "/veApp1", "/veApp1/*"},
    {&COMMON_ROOT, "/veApp1x", nullptr},
    {&NO_SLASH, "/ab", "ab"},
    {&NO_SLASH, "ab", "ab"},
    {&NO_SLASH, "/abc.jsp", "ab*jsp"},
    {&NO_SLASH, "/ac.jsp", "a*jsp"},
    {&NO_SLASH, "/abc", "ab*"},
    {&NO_SLASH, "x.jsp", "*jsp"},
    {&STARS, "/weblogs/x/feed/y", nullptr},
    {&STARS, "/weblogs/x/feed/entries/rss", "/weblogs/*/feed/entries/rss"},
    {&TWICE, "/a/x", "/a/*"},
    {&TWICE, "/a", "/a"},
    {&CATCH_ALL, "/foo", "/foo"},
    {&CATCH_ALL, "/bar", CATCH_ALL.targets[0]},
};

const char *run(const Case &test, URIMatcher *matcher) noexcept {
    for (int i = 0; i < MOST_PATTERNS; ++i) {
        const char *pattern = test.set->patterns[i], *target = test.set->targets[i];
        if (pattern) URIMatcherPut(matcher, pattern, const_cast<char *>(target ? target : pattern), FALSE);
    }
    return static_cast<const char *>(URIMatcherMatch(matcher, test.path, nullptr));
}

bool same(const char *a, const char *b) noexcept { return a && b ? strcmp(a, b) == 0 : a == b; }

} // namespace

int URIMatcherTest() noexcept {
    int failures = 0;
    for (const Case &test : CASES) {
        URIMatcher *matcher = URIMatcherCreate(nullptr, "URIMatcherTest");
        const char *target = matcher ? run(test, matcher) : nullptr;
        if (!matcher || !same(target, test.expected)) {
            fprintf(stderr, "URIMatcherTest: %s goes to %s, not to %s\n", test.path, tavOrNull(target), tavOrNull(test.expected));
            ++failures;
        }
        URIMatcherDelete(matcher);
    }
    return failures;
}
