#include "JsonValue.h"

#include <string_view>

namespace tavhost {

namespace {

// Length of the UTF-8 sequence that the text begins with; 0 when there is none. jansson judges.
size_t utf8Length(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    return length <= text.size() && Json(json_stringn(text.data(), length)) ? length : 0;
}

} // namespace

json_t *textJson(const char *text) {
    if (!text) return json_null();
    if (json_t *json = json_string(text)) return json;
    std::string clean = text;
    for (size_t i = 0; i < clean.size();) {
        const size_t length = utf8Length(std::string_view(clean).substr(i));
        if (!length) clean[i] = '?';
        i += length ? length : 1;
    }
    return json_string(clean.c_str());
}

const char *jsonTypeName(const json_t *json) {
    if (!json) return "nothing";
    switch (json_typeof(json)) {
        case JSON_OBJECT:
            return "an object";
        case JSON_ARRAY:
            return "an array";
        case JSON_STRING:
            return "a text";
        case JSON_INTEGER:
            return "an integer";
        case JSON_REAL:
            return "a real number";
        case JSON_NULL:
            return "null";
        default:
            return "a boolean";
    }
}

} // namespace tavhost
