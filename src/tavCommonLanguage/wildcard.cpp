// Wildcard matching: one walk over text and pattern with one place to start again from.
#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavUtil/tavString.h"

namespace {
bool isWildcard(char c) noexcept { return c == '%' || c == '*'; }
} // namespace

int wildcardTextCompare(const char *text, const char *pattern, int caseSensitive) noexcept {
    const auto equal = [caseSensitive](char a, char b) { return caseSensitive ? a == b : tavAsciiLower(a) == tavAsciiLower(b); };
    const char *restart = nullptr; // just after the last wildcard
    for (;;) {
        if (!*text) {
            if (!*pattern) return 1;
            if (!isWildcard(*pattern)) return 0;
            ++pattern;
        } else if (equal(*text, *pattern)) {
            // Before the wildcard test: a "*" in the text is met by a "*" in the pattern as by any character.
            ++text;
            ++pattern;
        } else if (isWildcard(*pattern)) {
            if (!*++pattern) return 1;
            restart = pattern;
        } else {
            if (!restart) return 0;
            if (pattern != restart) {
                pattern = restart;
                if (equal(*text, *pattern)) ++pattern;
            }
            ++text;
        }
    }
}
