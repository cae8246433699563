// The mapper as JSON: [{"name", "editions": [{"name", "edition", "state", "webModules": [{"name", "contextRoot"}]}]}].
#include <jansson.h>

#include <memory>

#include "tavRequestMapper/tavRequestMapper.h"
#include "vHost/vHost.h"

namespace {

struct JsonReleaser {
    void operator()(json_t *json) const noexcept { json_decref(json); }
};
using JsonPtr = std::unique_ptr<json_t, JsonReleaser>;

// The setters take their value also when they fail; a null value is a failure.
bool setText(json_t *object, const char *key, const char *text) noexcept {
    return json_object_set_new(object, key, vhostJsonText(text)) == 0;
}

// An array of the elements' JSON forms; null without memory.
template <typename T, typename ToJson>
json_t *arrayOf(const TavList *list, ToJson toJson) noexcept {
    JsonPtr array(json_array());
    for (T *element : TavListRange<T>(list)) {
        if (json_array_append_new(array.get(), toJson(element)) != 0) return nullptr;
    }
    return array.release();
}

json_t *namedModuleToJSON(const WebModule *webModule) noexcept {
    JsonPtr module(wmToJSON(webModule));
    return module && setText(module.get(), "name", webModule->name) ? module.release() : nullptr;
}

json_t *editionToJSON(const Application *application) noexcept {
    JsonPtr edition(json_object());
    bool good = setText(edition.get(), "name", application->name) && setText(edition.get(), "edition", application->edition) &&
                setText(edition.get(), "state", application->state) &&
                json_object_set_new(edition.get(), "webModules", arrayOf<WebModule>(application->webModules, namedModuleToJSON)) == 0;
    return good ? edition.release() : nullptr;
}

} // namespace

json_t *wmToJSON(const WebModule *webModule) noexcept {
    JsonPtr module(json_object());
    return setText(module.get(), "contextRoot", wmGetContextRoot(webModule)) ? module.release() : nullptr;
}

json_t *appRootToJSON(const ApplicationRoot *root) noexcept {
    if (!root) return nullptr;
    JsonPtr json(json_object());
    bool good = setText(json.get(), "name", root->name) &&
                json_object_set_new(json.get(), "editions", arrayOf<Application>(root->applications, editionToJSON)) == 0;
    return good ? json.release() : nullptr;
}

json_t *rmToJSON(RequestMapper *rm) noexcept {
    if (!rm) return nullptr;
    JsonPtr roots(json_array());
    TavLockGuard guard(rm->lock, "rmToJSON");
    for (auto [name, root] : TavHashRange<ApplicationRoot>(rm->appRoots)) {
        if (json_array_append_new(roots.get(), appRootToJSON(root)) != 0) return nullptr;
    }
    return roots.release();
}
