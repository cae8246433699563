#include "check/DocumentShape.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <string_view>

#include "check/DocumentIndex.h"
#include "support/Json.h"

namespace tavctl {

namespace {

struct Member {
    std::string_view name;
    const char *wanted; // null: any type, the library tells
    bool (*fits)(const json_t *value);
};

bool isInteger(const json_t *value) { return json_is_integer(value); }
bool isBoolean(const json_t *value) { return json_is_boolean(value); }
bool isText(const json_t *value) { return json_is_string(value); }
bool isObject(const json_t *value) { return json_is_object(value); }
bool isList(const json_t *value) { return json_is_array(value); }
bool isEntries(const json_t *value) { return json_is_array(value) || json_is_object(value); }

constexpr Member DOCUMENT[] = {
    {"version", "an integer", isInteger},     {"restVersion", "an integer", isInteger}, {"delta", "a boolean", isBoolean},
    {"del", "an object", isObject},           {"add", "an object", isObject},           {"set", "an object", isObject},
    {"connectorGroupName", "a text", isText}, {"connectorURL", "a text", isText},
};
constexpr Member OPERATION[] = {{"objects", "an array", isEntries}, {"relationships", "an object", isObject}};
constexpr Member ENTRY[] = {
    {"name", nullptr, nullptr},
    {"type", nullptr, nullptr},
    {"props", "an object", isObject},
    {"objects", "an array", isEntries},
};

class ShapeCheck {
public:
    explicit ShapeCheck(const TellShape &tell) : tell_(tell) {}

    void document(const json_t *document) {
        members(document, DOCUMENT, "");
        for (const char *operation : {"del", "add", "set"}) {
            const json_t *value = json_object_get(document, operation);
            const std::string pointer = std::string("/") + operation;
            members(value, OPERATION, pointer);
            entries(json_object_get(value, "objects"), pointer + "/objects");
            relationships(json_object_get(value, "relationships"), pointer + "/relationships");
        }
    }

private:
    // Null counts as absent.
    void members(const json_t *json, std::span<const Member> known, const std::string &pointer) {
        forEachMember(json, [&](std::string_view name, const json_t *value) {
            const auto member = std::find_if(known.begin(), known.end(), [name](const Member &each) { return each.name == name; });
            if (member == known.end())
                tell(pointer, name, "unused", fmt::format("no member of the name \"{}\" is read here", name));
            else if (member->wanted && !json_is_null(value) && !member->fits(value))
                wrongType(pointer, name, member->wanted, value);
        });
    }

    void entries(const json_t *json, const std::string &pointer) {
        for (size_t i = 0; i < json_array_size(json); i++) entries(json_array_get(json, i), pointer + "/" + std::to_string(i));
        if (!json_is_object(json)) return;
        members(json, ENTRY, pointer);
        entries(json_object_get(json, "objects"), pointer + "/objects");
    }

    void relationships(const json_t *json, const std::string &pointer) {
        forEachMember(json, [&](std::string_view kind, const json_t *pairs) {
            if (!isList(pairs) && !json_is_null(pairs)) wrongType(pointer, kind, "an array", pairs);
        });
    }

    void wrongType(const std::string &pointer, std::string_view name, const char *wanted, const json_t *value) {
        tell(pointer, name, "document", fmt::format("\"{}\" must be {}, not {}: it is not read", name, wanted, jsonTypeName(value)));
    }

    void tell(std::string pointer, std::string_view name, const char *kind, const std::string &text) {
        appendToken(pointer, name);
        tell_(pointer, kind, text);
    }

    const TellShape &tell_;
};

} // namespace

void checkShape(const json_t *document, const TellShape &tell) { ShapeCheck(tell).document(document); }

} // namespace tavctl
