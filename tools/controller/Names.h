// What the library knows of types, kinds and names of configuration objects. Only Names.cpp includes the library's inner headers.
#ifndef CONTROLLER_NAMES_H
#define CONTROLLER_NAMES_H

#include <string>
#include <string_view>

namespace controller {

// The library's own text of the type (equal types have the same address); null: it does not know the type.
const char *knownType(const char *type);
// Does an object of the type go with its parent? `type` is from knownType().
bool needsParent(const char *type);
bool isRule(const char *type);
bool knownKind(const char *kind); // of relationship

// The name without its last pair; empty: it has no parent. `unescapedUris`: everything after the first "/uri/" is one value.
std::string_view parentOf(std::string_view name, bool unescapedUris);
// Where a rule of this name is sorted among its siblings.
int ruleOrder(const std::string &name);

} // namespace controller

#endif
