// Wildcard matching: one walk over text and pattern with one place to start again from.
#include <functional>

#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavUtil/tavString.h"

namespace {

bool isWildcard(char c) noexcept { return c == '%' || c == '*'; }

struct AnyCase {
    bool operator()(char a, char b) const noexcept { return tavAsciiLower(a) == tavAsciiLower(b); }
};

template <typename Equal>
bool matches(const char *text, const char *pattern, Equal equal) noexcept {
    const char *restart = nullptr; // just after the last wildcard
    for (;;) {
        if (!*text) {
            if (!*pattern) return true;
            if (!isWildcard(*pattern)) return false;
            ++pattern;
        } else if (equal(*text, *pattern)) {
            // Before the wildcard test: a "*" in the text is met by a "*" in the pattern as by any character.
            ++text;
            ++pattern;
        } else if (isWildcard(*pattern)) {
            if (!*++pattern) return true;
            restart = pattern;
        } else if (!restart) {
            return false;
        } else if (pattern != restart) {
            pattern = restart;
            if (equal(*text++, *pattern)) ++pattern;
        } else {
            do ++text;
            while (*text && !equal(*text, *pattern));
        }
    }
}

} // namespace

int wildcardTextCompare(const char *text, const char *pattern, int caseSensitive) noexcept {
    return caseSensitive ? matches(text, pattern, std::equal_to<>()) : matches(text, pattern, AnyCase());
}
