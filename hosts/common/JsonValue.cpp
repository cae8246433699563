#include "JsonValue.h"

#include <string_view>

namespace tavhost {

namespace {

// Length of the UTF-8 sequence that begins at text[0]; 0 when there is none: overlong forms and surrogates are none.
size_t utf8Length(std::string_view text) {
    const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    const size_t length = lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
    if (length > text.size()) return 0;
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
    }
    if ((lead == 0xe0 && byte(1) < 0xa0) || (lead == 0xed && byte(1) > 0x9f)) return 0;
    if ((lead == 0xf0 && byte(1) < 0x90) || (lead == 0xf4 && byte(1) > 0x8f)) return 0;
    return length;
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
