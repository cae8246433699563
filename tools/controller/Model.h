// What a document says, object by object and pair by pair, and what changes from one version of it to the next.
//
// A delta must leave a library with what the new complete document would have given it. What that takes:
// - "set" gives properties new values but takes none away: an object that loses one is deleted and added again ("again"), and with it
//   everything that its deletion takes along, objects of types that need a parent and pairs.
// - The library keeps deltas' new entries behind the old ones. Only for rules of equal sort order does that matter.
// - Deleting an object drops from the library's stored document every entry that stands below its entry, whatever it is.
// Where a delta cannot do it (the last two, and entries that moved to another place of the tree), the change says `whole`: every poller
// gets the complete document.
#ifndef CONTROLLER_MODEL_H
#define CONTROLLER_MODEL_H

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Flat.h"

namespace controller {

// A counted reference on a JSON value that nobody changes.
class JsonRef {
public:
    JsonRef() = default;
    explicit JsonRef(json_t *borrowed) : json_(json_incref(borrowed)) {}
    JsonRef(const JsonRef &other) : json_(json_incref(other.json_)) {}
    JsonRef(JsonRef &&other) noexcept : json_(std::exchange(other.json_, nullptr)) {}
    JsonRef &operator=(JsonRef other) noexcept {
        std::swap(json_, other.json_);
        return *this;
    }
    ~JsonRef() { json_decref(json_); }
    json_t *get() const { return json_; }

private:
    json_t *json_ = nullptr;
};

struct ObjectState {
    const char *type = nullptr; // null: there is no such object
    JsonRef props;
    uint64_t sequence = 0; // orders objects as the library holds them
    uint64_t holder = 0;   // id of the object in whose entry it stands; 0: the top
    uint64_t id = 0;       // stays when the object is deleted and added again
};

struct ObjectChange {
    ObjectState before, after;
    bool again = false; // deleted and added although it is in both
};
struct PairChange {
    bool before = false, after = false, again = false;
};

struct Change {
    std::map<std::string, ObjectChange> objects;
    std::map<Pair, PairChange> pairs;
    bool whole = false;   // no delta can tell it
    bool deletes = false; // something goes, for good or to come again
    bool empty() const { return !whole && objects.empty() && pairs.empty(); }
    // Puts a later change behind this one. FALSE: together they can only be told by the complete document.
    bool append(const Change &later);
};

class Model {
public:
    // What leads from here to the document. `unescapedUris`: how it writes names.
    Change compare(const FlatDocument &flat, bool unescapedUris) const;
    // What leads from `before`, a part of this model, to `after` in its place. No value: more than properties and new objects changes, so
    // only the documents as wholes can be compared.
    std::optional<Change> comparePiece(const FlatDocument &before, const FlatDocument &after) const;

    // Takes the change in; it must have come from this model as it is.
    void apply(const Change &change);
    // Starts anew from the document.
    void reset(const FlatDocument &flat);
    size_t objectCount() const { return objects_.size(); }

private:
    struct Comparison;

    std::unordered_map<std::string, ObjectState> objects_;
    std::unordered_set<Pair> pairs_;
    mutable uint64_t last_ = 0; // sequence; those of a change that is not applied are never used
};

// The delta's text; `restVersion` is left out when there is none.
std::string deltaText(const Change &change, int64_t version, const std::optional<int64_t> &restVersion);

} // namespace controller

#endif
