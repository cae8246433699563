// Names of configuration objects, taken apart from their end: everything follows from the last two slashes that no "\" precedes.
#include "tavLibUtil/tavObjectName.h"

#include <algorithm>
#include <string_view>

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

// Position of the last unescaped "/" before `end`; npos when there is none.
size_t lastSlash(std::string_view name, size_t end) noexcept {
    while (end > 0) {
        end--;
        if (name[end] == '/' && (end == 0 || name[end - 1] != '\\')) return end;
    }
    return std::string_view::npos;
}

// The last pair of a name: parent, "/", type, "/", value.
struct LastPair {
    std::string_view parent;
    std::string_view type;
    std::string_view value;
};

bool splitLastPair(std::string_view name, LastPair *pair) noexcept {
    const size_t beforeValue = lastSlash(name, name.size());
    const size_t beforeType = beforeValue == std::string_view::npos ? beforeValue : lastSlash(name, beforeValue);
    if (beforeType == std::string_view::npos) return false;
    pair->parent = name.substr(0, beforeType);
    pair->type = name.substr(beforeType + 1, beforeValue - beforeType - 1);
    pair->value = name.substr(beforeValue + 1);
    return true;
}

char *copyView(std::string_view text) noexcept { return tavStrndup(text.data(), text.size()); }

} // namespace

char *tavGetParentName(const char *name) noexcept {
    LastPair pair;
    return splitLastPair(tavView(name), &pair) ? copyView(pair.parent) : nullptr;
}

char *tavHackGetParentName(const char *name) noexcept {
    const size_t uri = tavView(name).find("/uri/");
    return uri == std::string_view::npos ? tavGetParentName(name) : copyView(tavView(name).substr(0, uri));
}

char *tavNameGetType(const char *name) noexcept {
    LastPair pair;
    return splitLastPair(tavView(name), &pair) ? copyView(pair.type) : nullptr;
}

char *tavNameGetValue(const char *name, Boolean asis) noexcept {
    LastPair pair;
    if (!splitLastPair(tavView(name), &pair)) return nullptr;
    char *value = copyView(pair.value);
    if (value && !asis) *std::remove(value, value + pair.value.size(), '\\') = '\0';
    return value;
}
