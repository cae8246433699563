#include "Model.h"

#include <algorithm>
#include <string_view>
#include <tuple>

#include "Names.h"

namespace controller {

namespace {

json_t *emptyProps() {
    static json_t *empty = json_object();
    return empty;
}

json_t *orEmpty(json_t *props) { return props ? props : emptyProps(); }

bool equalProps(json_t *a, json_t *b) { return json_equal(orEmpty(a), orEmpty(b)) != 0; }

bool losesProperty(json_t *before, json_t *after) {
    const char *key;
    json_t *value;
    json_object_foreach(before, key, value) {
        if (!json_object_get(after, key)) return true;
    }
    return false;
}

bool mustComeAgain(const ObjectState &before, const char *type, json_t *props) {
    return before.type != type || losesProperty(before.props.get(), props);
}

} // namespace

// ---- whole documents ----

// One comparison of the model with a document.
struct Model::Comparison {
    const Model &model;
    const FlatDocument &flat;
    bool unescapedUris;
    Change change;

    void objects() {
        size_t kept = 0;
        for (const FlatObject &object : flat.objects) {
            const auto found = model.objects_.find(object.name);
            if (found == model.objects_.end()) {
                added(object, {});
            } else {
                kept++;
                both(object, found->second);
            }
        }
        if (kept < model.objects_.size()) goneObjects();
    }

    void added(const FlatObject &object, const ObjectState &before) {
        ObjectChange &entry = change.objects[object.name];
        entry.before = before;
        entry.after = {object.type, JsonRef(object.props), ++model.last_, 0, before.id ? before.id : model.last_};
        entry.after.holder = holderOf(object);
        entry.again = before.type != nullptr;
        if (entry.again) change.deletes = true;
    }

    // Objects come after the entry that they stand in.
    uint64_t holderOf(const FlatObject &object) const {
        if (object.holder < 0) return 0;
        const char *name = flat.objects[static_cast<size_t>(object.holder)].name;
        const auto changed = change.objects.find(name);
        if (changed != change.objects.end()) return changed->second.after.id;
        return model.objects_.at(name).id;
    }

    void both(const FlatObject &object, const ObjectState &before) {
        if (before.holder != holderOf(object)) change.whole = true;
        if (mustComeAgain(before, object.type, object.props)) return added(object, before);
        if (equalProps(before.props.get(), object.props)) return;
        ObjectChange &entry = change.objects[object.name];
        entry.before = entry.after = before;
        entry.after.props = JsonRef(object.props);
    }

    void goneObjects() {
        std::unordered_set<std::string_view> names;
        for (const FlatObject &object : flat.objects) names.insert(object.name);
        for (const auto &[name, state] : model.objects_) {
            if (!names.count(name)) change.objects[name].before = state;
        }
        change.deletes = true;
    }

    bool goes(const std::string &name) const {
        const auto found = change.objects.find(name);
        return found != change.objects.end() && found->second.before.type && (!found->second.after.type || found->second.again);
    }

    // What goes along with an object that goes: comes again, or makes a delta impossible.
    void companions() {
        if (!change.deletes) return;
        for (const FlatObject &object : flat.objects) {
            const auto found = model.objects_.find(object.name);
            if (found == model.objects_.end() || goes(object.name)) continue;
            const std::string parent(parentOf(object.name, unescapedUris));
            const bool held = object.holder >= 0 && goes(flat.objects[static_cast<size_t>(object.holder)].name);
            if (!held && !goes(parent)) continue;
            if (needsParent(object.type) && goes(parent))
                added(object, found->second);
            else
                change.whole = true;
        }
    }

    void pairs() {
        std::unordered_set<std::string_view> wanted;
        for (const Pair &pair : flat.pairs) {
            wanted.insert(pair);
            const bool before = model.pairs_.count(pair) > 0;
            if (!before) change.pairs[pair] = {false, true, false};
            if (before && change.deletes && partsEnd(pair)) change.pairs[pair] = {true, true, true};
        }
        for (const Pair &pair : model.pairs_) {
            if (wanted.count(pair)) continue;
            change.pairs[pair] = {true, false, false};
        }
    }

    bool partsEnd(const Pair &pair) const {
        const PairNames names = pairNames(pair);
        return goes(names.first) || goes(names.second);
    }

    uint64_t sequenceOf(const char *name) const {
        const auto changed = change.objects.find(name);
        return changed != change.objects.end() ? changed->second.after.sequence : model.objects_.at(name).sequence;
    }

    // Rules of equal order under one parent: the first that matches wins.
    void ruleOrders() {
        std::map<std::pair<std::string, int>, uint64_t> latest;
        for (const FlatObject &object : flat.objects) {
            if (!isRule(object.type)) continue;
            uint64_t &last = latest[{std::string(parentOf(object.name, unescapedUris)), ruleOrder(object.name)}];
            const uint64_t sequence = sequenceOf(object.name);
            if (sequence < last) change.whole = true;
            last = sequence;
        }
    }
};

Change Model::compare(const FlatDocument &flat, bool unescapedUris) const {
    Comparison comparison{*this, flat, unescapedUris, {}};
    comparison.objects();
    // A companion may be a companion's parent that stands after it.
    for (size_t count = 0; count != comparison.change.objects.size();) {
        count = comparison.change.objects.size();
        comparison.companions();
    }
    comparison.pairs();
    comparison.ruleOrders();
    return std::move(comparison.change);
}

// ---- pieces ----

std::optional<Change> Model::comparePiece(const FlatDocument &before, const FlatDocument &after) const {
    std::unordered_set<std::string_view> old;
    for (const FlatObject &object : before.objects) old.insert(object.name);
    Change change;
    size_t kept = 0;
    for (const FlatObject &object : after.objects) {
        const auto found = objects_.find(object.name);
        const bool inPiece = old.count(object.name) > 0;
        if (inPiece != (found != objects_.end())) return std::nullopt; // the name is one of another place
        const std::string holder = object.holder < 0 ? "" : after.objects[static_cast<size_t>(object.holder)].name;
        ObjectChange &entry = change.objects[object.name];
        if (!inPiece) {
            if (entry.after.type || isRule(object.type) || holder.empty()) return std::nullopt;
            entry.after = {object.type, JsonRef(object.props), ++last_, change.objects[holder].after.id, last_};
            continue;
        }
        if (entry.after.type || mustComeAgain(found->second, object.type, object.props)) return std::nullopt;
        entry.before = entry.after = found->second;
        entry.after.props = JsonRef(object.props);
        kept++;
        if (!holder.empty() && entry.before.holder != change.objects[holder].after.id) return std::nullopt;
    }
    if (kept != before.objects.size()) return std::nullopt;
    std::erase_if(change.objects, [](const auto &each) {
        const ObjectChange &entry = each.second;
        return entry.before.type && equalProps(entry.before.props.get(), entry.after.props.get());
    });
    return change;
}

// ---- taking in ----

void Model::apply(const Change &change) {
    for (const auto &[name, entry] : change.objects) {
        if (entry.after.type)
            objects_[name] = entry.after;
        else
            objects_.erase(name);
    }
    for (const auto &[pair, entry] : change.pairs) {
        if (entry.after)
            pairs_.insert(pair);
        else
            pairs_.erase(pair);
    }
}

void Model::reset(const FlatDocument &flat) {
    objects_.clear();
    pairs_.clear();
    objects_.reserve(flat.objects.size());
    std::vector<uint64_t> ids;
    for (const FlatObject &object : flat.objects) {
        const uint64_t id = ++last_;
        ids.push_back(id);
        objects_[object.name] = {object.type, JsonRef(object.props), id, object.holder < 0 ? 0 : ids[static_cast<size_t>(object.holder)],
                                 id};
    }
    pairs_.insert(flat.pairs.begin(), flat.pairs.end());
}

bool Change::append(const Change &later) {
    whole = whole || later.whole;
    deletes = deletes || later.deletes;
    for (const auto &[name, entry] : later.objects) {
        const auto [mine, fresh] = objects.try_emplace(name, entry);
        if (fresh) continue;
        mine->second.after = entry.after;
        mine->second.again = mine->second.again || entry.again;
        const ObjectChange &both = mine->second;
        // Who goes along with it is known only for the steps.
        if (both.before.type && both.after.type && !both.again && mustComeAgain(both.before, both.after.type, both.after.props.get()))
            whole = true;
    }
    for (const auto &[pair, entry] : later.pairs) {
        const auto [mine, fresh] = pairs.try_emplace(pair, entry);
        if (fresh) continue;
        mine->second.after = entry.after;
        mine->second.again = mine->second.again || entry.again;
    }
    return !whole;
}

// ---- texts ----

namespace {

json_t *newEntry(const std::string &name, const char *type) {
    json_t *entry = json_object();
    json_object_set_new(entry, "name", json_string(name.c_str()));
    json_object_set_new(entry, "type", json_string(type));
    return entry;
}

void addProps(json_t *entry, json_t *props) {
    if (props) json_object_set_new(entry, "props", props);
}

// The properties whose values are not those of before.
json_t *changedProps(json_t *before, json_t *after) {
    json_t *changed = json_object();
    const char *key;
    json_t *value;
    json_object_foreach(after, key, value) {
        if (!json_equal(json_object_get(before, key), value)) json_object_set(changed, key, value);
    }
    return changed;
}

using Named = std::map<std::string, ObjectChange>::value_type;

// Children go before their parents.
json_t *deletedObjects(const std::vector<const Named *> &sorted) {
    json_t *entries = json_array();
    for (auto each = sorted.rbegin(); each != sorted.rend(); ++each) {
        const auto &[name, change] = **each;
        if (change.before.type && (!change.after.type || change.again)) json_array_append_new(entries, newEntry(name, change.before.type));
    }
    return entries;
}

json_t *addedObjects(std::vector<const Named *> sorted) {
    json_t *entries = json_array();
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Named *a, const Named *b) { return a->second.after.sequence < b->second.after.sequence; });
    for (const Named *each : sorted) {
        const ObjectChange &change = each->second;
        if (!change.after.type || (change.before.type && !change.again)) continue;
        json_t *entry = newEntry(each->first, change.after.type);
        addProps(entry, json_incref(change.after.props.get()));
        json_array_append_new(entries, entry);
    }
    return entries;
}

json_t *setObjects(const std::vector<const Named *> &sorted) {
    json_t *entries = json_array();
    for (const Named *each : sorted) {
        const ObjectChange &change = each->second;
        if (!change.before.type || !change.after.type || change.again) continue;
        json_t *props = changedProps(change.before.props.get(), change.after.props.get());
        if (json_object_size(props) == 0) {
            json_decref(props);
            continue;
        }
        json_t *entry = newEntry(each->first, change.after.type);
        addProps(entry, props);
        json_array_append_new(entries, entry);
    }
    return entries;
}

json_t *pairEntries(const Change &change, bool adding) {
    json_t *kinds = json_object();
    for (const auto &[pair, entry] : change.pairs) {
        const bool wanted = adding ? entry.after && (!entry.before || entry.again) : entry.before && (!entry.after || entry.again);
        if (!wanted) continue;
        const PairNames names = pairNames(pair);
        json_t *array = json_object_get(kinds, names.kind.c_str());
        if (!array) json_object_set_new(kinds, names.kind.c_str(), array = json_array());
        json_t *json = json_object();
        json_object_set_new(json, names.firstType.c_str(), json_string(names.first.c_str()));
        json_object_set_new(json, names.secondType.c_str(), json_string(names.second.c_str()));
        json_array_append_new(array, json);
    }
    return kinds;
}

// Leaves out what is empty. Takes both.
void addOperation(json_t *document, const char *name, json_t *objects, json_t *relationships) {
    json_t *operation = json_object();
    if (json_array_size(objects)) json_object_set(operation, "objects", objects);
    if (json_object_size(relationships)) json_object_set(operation, "relationships", relationships);
    if (json_object_size(operation)) json_object_set(document, name, operation);
    for (json_t *json : {objects, relationships, operation}) json_decref(json);
}

} // namespace

std::string deltaText(const Change &change, int64_t version, const std::optional<int64_t> &restVersion) {
    std::vector<const Named *> sorted; // parents before their children
    for (const Named &each : change.objects) sorted.push_back(&each);
    std::stable_sort(sorted.begin(), sorted.end(), [](const Named *a, const Named *b) { return a->first.size() < b->first.size(); });
    json_t *document = json_object();
    json_object_set_new(document, "version", json_integer(version));
    if (restVersion) json_object_set_new(document, "restVersion", json_integer(*restVersion));
    json_object_set_new(document, "delta", json_true());
    addOperation(document, "del", deletedObjects(sorted), pairEntries(change, false));
    addOperation(document, "add", addedObjects(sorted), pairEntries(change, true));
    addOperation(document, "set", setObjects(sorted), nullptr);
    char *text = json_dumps(document, JSON_COMPACT);
    std::string result = text ? text : "";
    free(text);
    json_decref(document);
    return result;
}

} // namespace controller
