// JSON texts of names that may hold any bytes.
#include <jansson.h>

#include <cstring>

#include "tavUtil/tavMemory.h"
#include "vHost/vHost.h"

static size_t sequenceLength(unsigned char lead) noexcept { return lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4; }

// Does one whole UTF-8 sequence of the length stand here? The library that will store the text judges.
static bool isSequence(const char *text, size_t n) noexcept {
    if (strnlen(text, n) < n) return false;
    json_t *sequence = json_stringn(text, n);
    json_decref(sequence);
    return sequence != nullptr;
}

json_t *vhostJsonText(const char *text) noexcept {
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

json_t *vhostPairToJSON(const char *host, int port) noexcept {
    json_t *pair = json_object();
    const TavText portText(intoch(port));
    // Both puts take their value, also when they fail.
    const bool good = pair && portText && json_object_set_new(pair, "host", vhostJsonText(host)) == 0 &&
                      json_object_set_new(pair, "port", vhostJsonText(portText.get())) == 0;
    if (good) return pair;
    json_decref(pair);
    return nullptr;
}
