// A configuration document as a flat list: objects by full name, relationships as pairs of names.
#ifndef CONTROLLER_FLAT_H
#define CONTROLLER_FLAT_H

#include <jansson.h>

#include <optional>
#include <string>
#include <vector>

namespace controller {

struct FlatObject {
    const char *name; // borrowed from the document
    const char *type; // the library's own text
    json_t *props;    // borrowed; null: none
    int holder;       // index of the object whose "objects" it stands in; -1: the top
};

// Kind, first and second name, with NUL between them: no JSON text has one.
using Pair = std::string;
Pair makePair(const std::string &kind, const char *first, const char *second);
struct PairNames {
    std::string kind, firstType, secondType, first, second;
};
PairNames pairNames(const Pair &pair);

struct FlatDocument {
    std::vector<FlatObject> objects; // in the document's order
    std::vector<Pair> pairs;
    bool hasSet = false; // properties of "set" were worked into those of "add"
};

// A complete document. No value: it holds something that is not an object with type and name or a pair of names, is of an unknown type,
// comes twice or is nested deeper than the library follows. Such a document may be good; but deltas cannot be told from it.
std::optional<FlatDocument> flatten(json_t *document);
// One entry with what is below it, likewise.
std::optional<FlatDocument> flattenEntry(json_t *entry);

} // namespace controller

#endif
