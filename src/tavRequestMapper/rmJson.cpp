// The mapper as JSON: [{"name", "editions": [{"name", "edition", "state", "webModules": [{"name", "contextRoot"}]}]}].
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavUtil/tavJson.h"

namespace {

// An array of the elements' JSON forms; null without memory.
template <typename T, typename ToJson>
json_t *arrayOf(const TavList *list, ToJson toJson) noexcept {
    JsonArray array;
    for (T *element : TavListRange<T>(list)) array.add(toJson(element));
    return array.release();
}

json_t *namedModuleToJSON(const WebModule *webModule) noexcept {
    JsonObject module;
    module.text("contextRoot", wmGetContextRoot(webModule));
    module.text("name", webModule->name);
    return module.release();
}

json_t *editionToJSON(const Application *application) noexcept {
    JsonObject edition;
    edition.text("name", application->name);
    edition.text("edition", application->edition);
    edition.text("state", application->state);
    edition.set("webModules", arrayOf<WebModule>(application->webModules, namedModuleToJSON));
    return edition.release();
}

} // namespace

json_t *wmToJSON(const WebModule *webModule) noexcept {
    JsonObject module;
    module.text("contextRoot", wmGetContextRoot(webModule));
    return module.release();
}

json_t *appRootToJSON(const ApplicationRoot *root) noexcept {
    if (!root) return nullptr;
    JsonObject json;
    json.text("name", root->name);
    json.set("editions", arrayOf<Application>(root->applications, editionToJSON));
    return json.release();
}

json_t *rmToJSON(RequestMapper *rm) noexcept {
    if (!rm) return nullptr;
    JsonArray roots;
    TavLockGuard guard(rm->lock, "rmToJSON");
    for (auto [name, root] : TavHashRange<ApplicationRoot>(rm->appRoots)) roots.add(appRootToJSON(root));
    return roots.release();
}
