// jansson with owners, and the files that JSON comes from.
#ifndef TAVCTL_JSON_H
#define TAVCTL_JSON_H

#include <jansson.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "JsonValue.h"

namespace tavctl {

using tavhost::forEachMember;
using tavhost::Json;
using tavhost::jsonTypeName;

// The file's bytes; "-" is standard input. Throws Fault.
std::string readFile(const std::string &path);
// Throws Fault with `source` and the line; `firstLine` is the line of the source that `text` begins on.
Json parseJson(std::string_view text, const std::string &source, int firstLine = 1);

// Calls fn(line number, object) for each line of a JSON Lines text; blank lines and lines that begin with "#" are skipped. Throws Fault.
void forEachJsonLine(std::string_view text, const std::string &source, const std::function<void(int, json_t *)> &fn);

std::string jsonLine(const json_t *json);   // compact, members in order
std::string jsonPretty(const json_t *json); // indent 3, members in order

// The text of an object's member; empty: it has none.
inline std::string memberText(const json_t *object, const char *name) { return tavhost::textOf(object, name); }
// A text, or null for none. Bytes that are no UTF-8 become "?".
inline json_t *jsonText(const char *text) { return tavhost::textJson(text); }
inline json_t *jsonText(const std::optional<std::string> &text) { return tavhost::textJson(text); }

} // namespace tavctl

#endif
