#include "tavUtil/tavJson.h"

#include <cstring>

#include "tavUtil/tavMemory.h"

static size_t sequenceLength(unsigned char lead) noexcept { return lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4; }

// Does one whole UTF-8 sequence of the length stand here? The library that will store the text judges.
static bool isSequence(const char *text, size_t n) noexcept {
    if (strnlen(text, n) < n) return false;
    json_t *sequence = json_stringn(text, n);
    json_decref(sequence);
    return sequence != nullptr;
}

json_t *tavJsonText(const char *text) noexcept {
    json_t *whole = json_string(text ? text : "");
    if (whole) return whole;
    const TavText copy(tavStrdup(text));
    if (!copy) return nullptr;
    for (char *c = copy.get(); *c;) {
        const size_t n = sequenceLength(static_cast<unsigned char>(*c));
        const bool good = isSequence(c, n);
        if (!good) *c = '?';
        c += good ? n : 1;
    }
    return json_string(copy.get());
}
