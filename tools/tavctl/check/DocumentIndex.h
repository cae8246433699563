// Where things stand in a configuration document: objects by name, and the text's lines by JSON pointer.
#ifndef TAVCTL_DOCUMENTINDEX_H
#define TAVCTL_DOCUMENTINDEX_H

#include <jansson.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tavctl {

struct ObjectEntry {
    std::string operation; // "add", "del" or "set"
    std::string type;
    std::string name;
    std::string pointer; // JSON pointer of the entry
    const json_t *props; // null: none
};
// Is it a rule of a work class? Those of a rule set choose what is traced.
bool isRoutingRule(const ObjectEntry &entry);

// One step further down: a member's name or an array's index.
void appendToken(std::string &pointer, std::string_view token);

// Every object entry with type and name, parents before children.
void forEachObject(const json_t *document, const std::function<void(const ObjectEntry &)> &fn);

// The pairs of a relationship kind under "add", as the document holds them: first and second full name.
std::vector<std::pair<std::string, std::string>> relationshipPairs(const json_t *document, const std::string &kind);

// The lines (from 1) on which the values of these JSON pointers begin, in one pass over the text. The text must be well-formed.
std::map<std::string, int> linesOf(std::string_view text, const std::set<std::string> &pointers);

} // namespace tavctl

#endif
