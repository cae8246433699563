// Text helpers. All take null for "no text" and none reads a text more often than its length asks for.
#include "tavUtil/tavString.h"

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tavUtil/tavMemory.h"

namespace {

int lowered(char c) noexcept { return std::tolower(static_cast<unsigned char>(c)); }

char *copyView(std::string_view text) noexcept { return tavStrndup(text.data(), text.size()); }

char *concat(std::string_view a, std::string_view b) noexcept {
    auto *text = static_cast<char *>(tavMalloc(a.size() + b.size() + 1));
    if (!text) return nullptr;
    std::memcpy(text, a.data(), a.size());
    std::memcpy(text + a.size(), b.data(), b.size());
    return text;
}

// Position of the first `sub` at or after `from`; npos when absent or empty. memmem stays linear where string_view::find does not.
size_t findFrom(std::string_view text, std::string_view sub, size_t from) noexcept {
    if (sub.empty()) return std::string_view::npos;
    const void *at = memmem(text.data() + from, text.size() - from, sub.data(), sub.size());
    return at ? static_cast<size_t>(static_cast<const char *>(at) - text.data()) : std::string_view::npos;
}

// Calls use(piece) for every piece and returns how many there were; stops early when `use` returns false.
template <typename Use>
size_t forEachPiece(std::string_view text, std::string_view delimiter, Use use) noexcept {
    size_t count = 0;
    size_t begin = 0;
    while (true) {
        const size_t end = findFrom(text, delimiter, begin);
        if (!use(text.substr(begin, end == std::string_view::npos ? end : end - begin))) return count;
        count++;
        if (end == std::string_view::npos) return count;
        begin = end + delimiter.size();
        if (begin == text.size()) return count; // the text ends in a delimiter: no empty last piece
    }
}

} // namespace

int tavStrCmpIgnoreCase(const char *a, const char *b) noexcept {
    if (!a) return b ? 1 : 0;
    if (!b) return -1;
    while (*a && lowered(*a) == lowered(*b)) a++, b++;
    const int difference = lowered(*a) - lowered(*b);
    return (difference > 0) - (difference < 0);
}

char *tavStringCat(char *a, const char *b) noexcept { return a && b && *b ? concat(a, b) : a; }

char *tavStrJoin(const char *a, const char *b) noexcept { return a || b ? concat(a ? a : "", b ? b : "") : nullptr; }

int tavIndexOfChar(const char *text, char c) noexcept {
    const size_t at = tavView(text).find(c);
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

int tavIndexOfString(const char *text, const char *sub) noexcept {
    const char *at = text && sub ? std::strstr(text, sub) : nullptr;
    return at ? static_cast<int>(at - text) : -1;
}

Boolean tavStartsWith(const char *text, const char *prefix) noexcept { return text && prefix && tavView(text).starts_with(prefix); }

Boolean tavEndsWith(const char *text, const char *suffix) noexcept { return text && suffix && tavView(text).ends_with(suffix); }

char *tavSubstring(const char *text, int begin, int end) noexcept {
    const std::string_view whole = tavView(text);
    if (whole.empty() || begin < 0 || end < begin || static_cast<size_t>(end) > whole.size()) return nullptr;
    return copyView(whole.substr(static_cast<size_t>(begin), static_cast<size_t>(end - begin)));
}

char *tavSubstrSuffix(const char *text, int begin) noexcept {
    const std::string_view whole = tavView(text);
    if (begin < 0 || static_cast<size_t>(begin) >= whole.size()) return nullptr;
    return copyView(whole.substr(static_cast<size_t>(begin)));
}

char **tavStrSplit(const char *text, const char *delimiter) noexcept {
    if (!text || !delimiter) return nullptr;
    const size_t count = forEachPiece(text, delimiter, [](std::string_view) { return true; });
    auto **pieces = static_cast<char **>(tavMalloc((count + 1) * sizeof(char *)));
    if (!pieces) return nullptr;
    char **next = pieces;
    const size_t copied = forEachPiece(text, delimiter, [&next](std::string_view piece) {
        *next = copyView(piece);
        return *next++ != nullptr;
    });
    if (copied == count) return pieces;
    tavFreeStrSplitArray(pieces);
    return nullptr;
}

void tavFreeStrSplitArray(char **pieces) noexcept {
    if (!pieces) return;
    for (char **piece = pieces; *piece; piece++) tavFree(*piece);
    tavFree(pieces);
}

char *tavStrtok(char *text, const char *separators, char **last) noexcept {
    if (!separators || !last || (!text && !*last)) return nullptr;
    char *begin = text ? text : *last;
    begin += std::strspn(begin, separators);
    char *end = begin + std::strcspn(begin, separators);
    *last = end;
    if (begin == end) return nullptr;
    if (*end) {
        *end = '\0';
        *last = end + 1;
    }
    return begin;
}

const char *tavPathToName(const char *path) noexcept { return tavStrSuffix(path, '/'); }

const char *tavStrSuffix(const char *text, char c) noexcept {
    const size_t at = tavView(text).rfind(c);
    return at == std::string_view::npos ? text : text + at + 1;
}

char *tavStrPrefix(const char *text, char c) noexcept {
    const size_t at = tavView(text).rfind(c);
    return at == std::string_view::npos || at == 0 ? nullptr : copyView(tavView(text).substr(0, at));
}

char *tavToString(int n) noexcept {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%d", n);
    return tavStrdup(digits);
}

int tavParseInt(const char *text) noexcept { return text ? tavClampInt(std::strtoll(text, nullptr, 10)) : 0; }

int tavClampInt(long long value) noexcept {
    if (value > INT_MAX) return INT_MAX;
    return value < INT_MIN ? INT_MIN : static_cast<int>(value);
}

Boolean tavStrEquals(const char *a, const char *b) noexcept { return a && b && std::strcmp(a, b) == 0; }
