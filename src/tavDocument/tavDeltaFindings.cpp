// What a rebuild refuses of a delta's properties, told at their place in the delta.
//
// A delta that makes a rebuild necessary has been merged by then: its properties are refused while the stored document is replayed,
// together with everything that was refused before. The place in the stored document gives the object and the property, and those are
// looked for in the delta. Only an observer asks for this, so nothing is prepared for it.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "tavJsonWalk.h"
#include "tavUtil/tavString.h"

namespace {

// The element that the first token of an RFC 6901 pointer leads to; `*rest` is what follows. Keys above the properties have no escapes.
json_t *step(json_t *json, const char *pointer, const char **rest) {
    const char *token = pointer + 1;
    *rest = token + strcspn(token, "/");
    const std::string key(token, *rest);
    return json_is_array(json) ? json_array_get(json, strtoul(key.c_str(), nullptr, 10)) : json_object_get(json, key.c_str());
}

std::string unescaped(const char *token) {
    std::string key;
    for (; *token; token++) {
        if (*token == '~' && (token[1] == '0' || token[1] == '1')) {
            key += *++token == '0' ? '~' : '/';
        } else {
            key += *token;
        }
    }
    return key;
}

// Finds the entry that gives object `name` the property; `*where` grows by the way to it.
bool find(json_t *json, const char *name, const char *property, std::string *where) {
    const size_t length = where->size();
    for (size_t i = 0; i < json_array_size(json); i++) {
        *where += '/' + std::to_string(i);
        if (find(json_array_get(json, i), name, property, where)) return true;
        where->resize(length);
    }
    if (!json_is_object(json)) return false;
    if (tavStrEquals(json_string_value(json_object_get(json, "name")), name) && json_object_get(json_object_get(json, "props"), property))
        return true;
    *where += "/objects";
    if (find(json_object_get(json, "objects"), name, property, where)) return true;
    where->resize(length);
    return false;
}

} // namespace

DeltaFindings::DeltaFindings(json_t *delta, json_t *stored, const DocumentObserver *observer) noexcept
    : delta_(delta), stored_(stored), observer_(observer), own_{&DeltaFindings::hear, this} {}

void DeltaFindings::hear(void *passback, const char *jsonPath, const char *kind, const char *text) noexcept {
    if (std::strcmp(kind, "property") == 0) static_cast<const DeltaFindings *>(passback)->tell(jsonPath, text);
}

void DeltaFindings::tell(const char *jsonPath, const char *text) const noexcept {
    const char *property = std::strrchr(jsonPath, '/');
    if (!property) return;
    try {
        json_t *entry = stored_;
        for (const char *at = jsonPath; *at && std::strncmp(at, "/props/", 7) != 0;) entry = step(entry, at, &at);
        const char *name = json_string_value(json_object_get(entry, "name"));
        if (!name) return;
        for (const char *op : {"set", "add"}) {
            std::string where = std::string("/") + op;
            if (!find(json_object_get(delta_, op), name, unescaped(property + 1).c_str(), &where)) continue;
            return observer_->finding(observer_->passback, (where + "/props" + property).c_str(), "property", text);
        }
    } catch (const std::bad_alloc &) {
        observer_->finding(observer_->passback, "", "property", text);
    }
}
