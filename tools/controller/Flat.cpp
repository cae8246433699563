#include "Flat.h"

#include <cstring>
#include <string_view>
#include <unordered_map>

#include "Names.h"

namespace controller {

namespace {

constexpr int MAX_DEPTH = 32; // half of what the library follows: a piece is flattened without knowing how deep it stands

class Flattener {
public:
    explicit Flattener(FlatDocument &flat) : flat_(flat) {}

    // An "objects" member: an entry, or an array of them in any nesting.
    bool objects(json_t *json, int holder, int depth) {
        if (!json) return true;
        if (depth > MAX_DEPTH) return false;
        if (json_is_object(json)) return entry(json, holder, depth);
        if (!json_is_array(json)) return false;
        for (size_t i = 0; i < json_array_size(json); i++) {
            if (!objects(json_array_get(json, i), holder, depth + 1)) return false;
        }
        return true;
    }

    bool relationships(json_t *json) {
        if (json && !json_is_object(json)) return false;
        const char *kind;
        json_t *entries;
        json_object_foreach(json, kind, entries) {
            if (!knownKind(kind) || !json_is_array(entries)) return false;
            const std::string text = kind;
            const size_t colon = text.find(':');
            for (size_t i = 0; i < json_array_size(entries); i++) {
                if (!pair(text, colon, json_array_get(entries, i))) return false;
            }
        }
        return true;
    }

private:
    bool entry(json_t *json, int holder, int depth) {
        json_t *props = json_object_get(json, "props");
        const char *name = json_string_value(json_object_get(json, "name"));
        const char *type = knownType(json_string_value(json_object_get(json, "type")));
        if (!name || name[0] != '/' || !type || (props && !json_is_object(props))) return false;
        flat_.objects.push_back({name, type, props, holder});
        return objects(json_object_get(json, "objects"), static_cast<int>(flat_.objects.size()) - 1, depth + 1);
    }

    bool pair(const std::string &kind, size_t colon, json_t *entry) {
        const char *first = json_string_value(json_object_get(entry, kind.substr(0, colon).c_str()));
        const char *second = json_string_value(json_object_get(entry, kind.c_str() + colon + 1));
        if (first && second) flat_.pairs.push_back(makePair(kind, first, second));
        return first && second;
    }

    FlatDocument &flat_;
};

using Index = std::unordered_map<std::string_view, size_t>;

// FALSE: a name comes twice.
bool indexNames(const FlatDocument &flat, Index &index) {
    index.reserve(flat.objects.size());
    for (size_t i = 0; i < flat.objects.size(); i++) {
        if (!index.emplace(flat.objects[i].name, i).second) return false;
    }
    return true;
}

// Works the properties of a complete document's "set" into its "add", as the library does.
bool foldSet(json_t *set, FlatDocument &flat, const Index &index) {
    FlatDocument changes;
    if (!json_is_object(set) || json_object_get(set, "relationships")) return false;
    if (!Flattener(changes).objects(json_object_get(set, "objects"), -1, 0)) return false;
    for (const FlatObject &change : changes.objects) {
        const auto found = index.find(change.name);
        if (found == index.end()) return false;
        FlatObject &object = flat.objects[found->second];
        if (object.type != change.type || (change.props && !object.props)) return false;
        if (change.props && json_object_update(object.props, change.props) != 0) return false;
        flat.hasSet = true;
    }
    return true;
}

} // namespace

Pair makePair(const std::string &kind, const char *first, const char *second) {
    Pair pair = kind;
    pair.append(1, '\0').append(first).append(1, '\0').append(second);
    return pair;
}

PairNames pairNames(const Pair &pair) {
    const size_t first = pair.find('\0'), second = pair.find('\0', first + 1), colon = pair.find(':');
    return {pair.substr(0, first), pair.substr(0, colon), pair.substr(colon + 1, first - colon - 1),
            pair.substr(first + 1, second - first - 1), pair.substr(second + 1)};
}

std::optional<FlatDocument> flatten(json_t *document) {
    FlatDocument flat;
    Flattener flattener(flat);
    json_t *add = json_object_get(document, "add"), *set = json_object_get(document, "set");
    if (json_object_get(document, "del") || (add && !json_is_object(add))) return std::nullopt;
    if (!flattener.objects(json_object_get(add, "objects"), -1, 0)) return std::nullopt;
    if (!flattener.relationships(json_object_get(add, "relationships"))) return std::nullopt;
    Index index;
    if (!indexNames(flat, index) || (set && !foldSet(set, flat, index))) return std::nullopt;
    return flat;
}

std::optional<FlatDocument> flattenEntry(json_t *entry) {
    FlatDocument flat;
    if (!json_is_object(entry) || !Flattener(flat).objects(entry, -1, 0)) return std::nullopt;
    return flat;
}

} // namespace controller
