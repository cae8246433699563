// Text helpers. "New" results come from the counted allocator (tavFree) and are null without memory.
#ifndef TAVUTIL_TAVSTRING_H
#define TAVUTIL_TAVSTRING_H

#include <cstdint>
#include <string_view>

#include <tav/types.h>

// Case-insensitive (tolower): -1, 0 or 1. Null `a`: 0 only with null `b`, else 1; null `b`: -1.
int tavStrCmpIgnoreCase(const char *a, const char *b) noexcept;
// New a+b; when either is null or `b` is empty, `a` itself, not a copy.
char *tavStringCat(char *a, const char *b) noexcept;
// New a+b; a copy of the other side when one is null; null when both are.
char *tavStrJoin(const char *a, const char *b) noexcept;
// Position of the first occurrence, -1 when absent or an argument is null.
int tavIndexOfChar(const char *text, char c) noexcept;
int tavIndexOfString(const char *text, const char *sub) noexcept;
Boolean tavStartsWith(const char *text, const char *prefix) noexcept;
Boolean tavEndsWith(const char *text, const char *suffix) noexcept;
// New text of the characters [begin, end); null for an empty text, end < begin, begin < 0 or end past the length.
char *tavSubstring(const char *text, int begin, int end) noexcept;
// New text from `begin` to the end; null when `begin` is at or past the length.
char *tavSubstrSuffix(const char *text, int begin) noexcept;
// Null-terminated array of new pieces between occurrences of `delimiter` (an empty one never occurs). A text that ends in a delimiter adds
// no empty last piece. Null for a null argument or without memory. Freed with tavFreeStrSplitArray.
char **tavStrSplit(const char *text, const char *delimiter) noexcept;
void tavFreeStrSplitArray(char **pieces) noexcept;
// Re-entrant tokenizer over a writable text: skips leading separators, ends the token at the next one. Null text continues at `*last`.
char *tavStrtok(char *text, const char *separators, char **last) noexcept;
// The part after the last "/" (the whole text when there is none). Borrowed from `path`.
const char *tavPathToName(const char *path) noexcept;
// Just past the last `c`, or the text itself. Borrowed from `text`.
const char *tavStrSuffix(const char *text, char c) noexcept;
// New text before the last `c`; null when it is absent or first.
char *tavStrPrefix(const char *text, char c) noexcept;
// New decimal text.
char *tavToString(int n) noexcept;

// Decimal value of the leading digits (sign allowed, leading blanks skipped), saturating at the limits of int; 0 for none or null.
int tavParseInt(const char *text) noexcept;
// The value as int, clamped.
int tavClampInt(long long value) noexcept;
// "null" for null: for texts that go into a trace line.
inline const char *tavOrNull(const char *text) noexcept { return text ? text : "null"; }
// Equality of two texts; a null equals nothing.
Boolean tavStrEquals(const char *a, const char *b) noexcept;
// Lower case of an ASCII letter, other bytes as they are: the same in every locale.
constexpr char tavAsciiLower(char c) noexcept { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c; }
inline std::string_view tavView(const char *text) noexcept { return text ? std::string_view(text) : std::string_view(); }

#endif
