#include "Names.h"

#include <cstring>

#include "engine/Inside.h"
#include "tavObjects/tavObjectMap.h"

namespace controller {

const char *knownType(const char *type) {
    const ObjectHandler *handler = type ? getObjectHandler(type) : nullptr;
    return handler ? handler->objectType : nullptr;
}

bool needsParent(const char *type) {
    const ObjectHandler *handler = getObjectHandler(type);
    return handler && handler->parmType == ParentMandatory;
}

bool isRule(const char *type) { return std::strcmp(type, "rule") == 0; }

bool knownKind(const char *kind) { return getRelationshipHandler(kind) != nullptr; }

std::string_view parentOf(std::string_view name, bool unescapedUris) {
    const std::string text(name);
    const ObjectName scanned = objectNameScan(text.c_str(), unescapedUris);
    return scanned.hasParent ? name.substr(0, scanned.parentLength) : std::string_view();
}

int ruleOrder(const std::string &name) {
    const size_t slash = name.rfind("/rule/");
    return tavctl::ruleOrder(slash == std::string::npos ? name : name.substr(slash + 6));
}

} // namespace controller
