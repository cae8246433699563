// JSON values: who owns one, and texts that need not be UTF-8.
#ifndef TAV_HOSTS_JSONVALUE_H
#define TAV_HOSTS_JSONVALUE_H

#include <jansson.h>

#include <memory>
#include <optional>
#include <string>

namespace tavhost {

struct JsonRelease {
    void operator()(json_t *json) const noexcept { json_decref(json); }
};
using Json = std::unique_ptr<json_t, JsonRelease>;

// A text, or null for none. Bytes that are no UTF-8 become "?". Returns new; nothing without memory.
json_t *textJson(const char *text);
inline json_t *textJson(const std::optional<std::string> &text) { return textJson(text ? text->c_str() : nullptr); }

// The text of an object's member, "" when it has none. Borrowed from the object.
inline const char *textOf(const json_t *object, const char *key) {
    const char *text = json_string_value(json_object_get(object, key));
    return text ? text : "";
}

// fn(name, value) for each member, in order; none for what is no object.
template <typename Function>
void forEachMember(const json_t *members, Function fn) {
    json_t *object = const_cast<json_t *>(members);
    for (void *it = json_object_iter(object); it; it = json_object_iter_next(object, it))
        fn(json_object_iter_key(it), static_cast<const json_t *>(json_object_iter_value(it)));
}

// "a text", "an integer", ...: for messages.
const char *jsonTypeName(const json_t *json);

} // namespace tavhost

#endif
