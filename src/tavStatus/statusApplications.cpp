// Applications by edition with their web modules and where they run, and the rules.
#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "tavRequestMapper/tavRequestMapper.h"
#include "tavStatus/tavStatus.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavJson.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavSharedText.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavStringBuffer.h"

namespace {

// ---- where editions run ----

// One server application, as the selector has it. Most are chosen or have a constant reason: taking it costs no memory of its own.
struct Place {
    const Application *application;
    TavSharedText server;
    const char *reason; // constant; null: chosen, or see `built`
    std::string built;
};

struct Places {
    std::vector<Place> list;
    TavTime now = tavGetCurrentTime();
    bool complete = true;
};

Place placeOf(const TsVisit *visit, TavTime now) {
    char buffer[512];
    const char *reason = tsServerApplicationIdleReason(visit->sapp, now, buffer, sizeof buffer);
    const bool isBuilt = reason == buffer;
    return {wmGetApplication(visit->virtualCluster->webModule), TavSharedText(tavSharedTextObtain(visit->server->name)),
            isBuilt ? nullptr : reason, isBuilt ? buffer : ""};
}

void addPlace(const TsVisit *visit, void *passback) noexcept {
    auto &places = *static_cast<Places *>(passback);
    if (!places.complete || !visit->virtualCluster || !visit->virtualCluster->webModule) return;
    try {
        places.list.push_back(placeOf(visit, places.now));
    } catch (const std::bad_alloc &) {
        places.complete = false;
    }
}

// By application, then by server; once, though several modules of an edition are there.
void sortPlaces(std::vector<Place> &places) noexcept {
    const auto compare = [](const Place &a, const Place &b) {
        return a.application != b.application ? (std::less<const Application *>()(a.application, b.application) ? -1 : 1)
                                              : strcmp(a.server.get(), b.server.get());
    };
    std::sort(places.begin(), places.end(), [&](const Place &a, const Place &b) { return compare(a, b) < 0; });
    places.erase(std::unique(places.begin(), places.end(), [&](const Place &a, const Place &b) { return compare(a, b) == 0; }),
                 places.end());
}

json_t *placesStatus(const std::vector<Place> &places, const Application *application) noexcept {
    const auto before = [](const Place &place, const Application *wanted) {
        return std::less<const Application *>()(place.application, wanted);
    };
    JsonArray array;
    auto place = std::lower_bound(places.begin(), places.end(), application, before);
    for (; place != places.end() && place->application == application; ++place) {
        const char *reason = place->reason ? place->reason : place->built.c_str();
        JsonObject server;
        server.text("name", place->server.get());
        server.flag("selectable", !*reason);
        server.textIfAny("reason", reason);
        array.add(server.release());
    }
    return array.release();
}

// ---- applications ----

// A list of names that the mapper lock guards, as one text: mostly there is one.
class Names {
public:
    Names(const WebModule *module, const TavList *names, const char *(*form)(const char *name) noexcept) noexcept : sb_(sbCreate(64)) {
        TavLockGuard guard(module->rm->lock, "tavStatusToJSON");
        for (const char *name : TavListRange<const char>(names)) {
            if (sb_ && sbLen(sb_.get()) > 0) sbAdd(sb_.get(), ", ");
            sbAdd(sb_.get(), form(name));
        }
    }
    json_t *json() const noexcept { return sb_ && !sb_->failed ? tavJsonText(sbStr(sb_.get())) : nullptr; }
    bool none() const noexcept { return sb_ && sbLen(sb_.get()) == 0; }

private:
    TavStringBufferPtr sb_;
};

const char *wholeName(const char *name) noexcept { return name; }

json_t *moduleStatus(const WebModule *webModule) noexcept {
    JsonArray uris;
    for (const char *uri : TavListRange<const char>(webModule->uris)) uris.add(tavJsonText(uri));
    const Names groups(webModule, webModule->vHostGroups, tavPathToName), clusters(webModule, webModule->clusters, wholeName);
    JsonObject module;
    module.text("name", tavPathToName(webModule->name));
    module.text("contextRoot", webModule->contextRoot);
    module.set("virtualHost", groups.json());
    module.set("uris", uris.release());
    if (!clusters.none()) module.set("cluster", clusters.json());
    return module.release();
}

json_t *editionStatus(const Application *application, const std::vector<Place> &places) noexcept {
    JsonArray modules;
    for (const WebModule *webModule : TavListRange<WebModule>(application->webModules)) modules.add(moduleStatus(webModule));
    JsonObject edition;
    edition.text("name", application->edition);
    edition.set("modules", modules.release());
    edition.set("servers", placesStatus(places, application));
    return edition.release();
}

json_t *rootStatus(const ApplicationRoot *root, const std::vector<Place> &places) noexcept {
    JsonArray editions;
    for (const Application *application : TavListRange<Application>(root->applications)) editions.add(editionStatus(application, places));
    JsonObject status;
    status.text("name", root->name);
    status.set("editions", editions.release());
    return status.release();
}

// The snapshot's applications, by name. They stay while the snapshot does. FALSE without memory.
bool findRoots(RequestMapper *rm, std::vector<const ApplicationRoot *> &roots) noexcept {
    try {
        TavLockGuard guard(rm->lock, "tavStatusToJSON");
        for (auto [name, root] : TavHashRange<ApplicationRoot>(rm->appRoots)) roots.push_back(root);
    } catch (const std::bad_alloc &) {
        return false;
    }
    std::sort(roots.begin(), roots.end(), [](const ApplicationRoot *a, const ApplicationRoot *b) { return strcmp(a->name, b->name) < 0; });
    return true;
}

// ---- rules ----

// Where the rules of one set go.
struct RuleSet {
    JsonArray &array;
    const char *name, *kind;
    const char *action; // null: the rule's own
};

void addRule(const TavRuleEntry *rule, const char *error, void *passback) noexcept {
    const auto &set = *static_cast<const RuleSet *>(passback);
    const TavText action(set.action ? tavStrdup(set.action) : actionDescribe(rule->action));
    JsonObject status;
    status.text("set", set.name);
    status.text("kind", set.kind);
    status.number("order", rule->order);
    status.text("expression", rule->expressionString);
    status.set("action", action ? tavJsonText(action.get()) : nullptr);
    status.textIfAny("error", error);
    set.array.add(status.release());
}

void addRules(JsonArray &array, const WebRouteWorkClass *workClass) noexcept {
    const bool isTried = workClass == workClass->application->defaultWebRouteWorkClass;
    RuleSet set = {array, workClass->name, isTried ? "routing" : "unused", nullptr};
    tavRulesForEach(workClass->rules, addRule, &set);
}

} // namespace

json_t *statusOfApplications(RequestMapper *rm, TargetSelector *ts) noexcept {
    std::vector<const ApplicationRoot *> roots;
    Places places;
    if (rm && !findRoots(rm, roots)) return nullptr;
    tsForEachServerApplication(ts, addPlace, &places);
    if (!places.complete) return nullptr;
    sortPlaces(places.list);
    JsonArray array;
    for (const ApplicationRoot *root : roots) array.add(rootStatus(root, places.list));
    return array.release();
}

json_t *statusOfRules(RequestMapper *rm, TavRules *requestTraceRules) noexcept {
    std::vector<const ApplicationRoot *> roots;
    if (rm && !findRoots(rm, roots)) return nullptr;
    JsonArray array;
    for (const ApplicationRoot *root : roots) {
        for (const Application *application : TavListRange<Application>(root->applications)) {
            for (const WebRouteWorkClass *workClass : TavListRange<WebRouteWorkClass>(application->webRouteWorkClasses))
                addRules(array, workClass);
        }
    }
    RuleSet traceRules = {array, "request trace", "trace", "trace the request"};
    tavRulesForEach(requestTraceRules, addRule, &traceRules);
    return array.release();
}
