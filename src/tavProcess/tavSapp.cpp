// The daemon's map of server applications.
//
// The controller hears of a server application when the first process starts routing to it and when the last one stops. An entry whose last
// process went stays, empty; only the reset of its connector destroys it.
#include "tavSapp.h"

#include <cstdint>

#include "tavConnector/tavConnector.h"
#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

TavRoutingSapp *tavRoutingSappCreate(const char *sapp, TavConnector *connector) noexcept {
    TavRoutingSapp *entry = tavNewRecord<TavRoutingSapp>();
    if (!entry) return nullptr;
    entry->sapp = tavStrdup(sapp);
    entry->pids = tavListCreate(nullptr);
    if (!entry->sapp || !entry->pids) {
        tavRoutingSappDestroy(entry);
        return nullptr;
    }
    tavConnectorObtainRef(connector, "tavRoutingSappCreate");
    entry->connector = connector;
    return entry;
}

void tavRoutingSappDestroy(void *object) noexcept {
    auto *entry = static_cast<TavRoutingSapp *>(object);
    if (!entry) return;
    if (entry->connector) tavConnectorReleaseRef(entry->connector, "tavRoutingSappDestroy");
    tavListDestroy(entry->pids);
    tavFree(entry->sapp);
    tavDestroyRecord(entry);
}

namespace {

// The lists hold numbers in the place of pointers.
void *pidObject(int pid) noexcept { return reinterpret_cast<void *>(static_cast<intptr_t>(pid)); }

#define SAPP_DEBUG(tav, ...) TR_DEBUG((tav)->trCtx, (tav)->ipcProcessRec, __VA_ARGS__)

} // namespace

Boolean tavRoutingSappAddUniq(TavRoutingSapp *sapp, int pid) noexcept { return tavListAddUnique(sapp->pids, pidObject(pid)); }

Boolean tavRoutingSappFindAndRemove(TavRoutingSapp *sapp, int pid) noexcept {
    return tavListFindAndRemove(sapp->pids, pidObject(pid)) != nullptr;
}

void tavSappMapDelete(TavHashMap *map) noexcept {
    if (!map) return;
    tavHashMapSetDestructor(map, tavRoutingSappDestroy);
    tavHashMapDestroy(map);
}

namespace {

TavRoutingSapp *findOrCreate(Tav *tav, const char *name, TavConnector *connector) noexcept {
    auto *entry = static_cast<TavRoutingSapp *>(tavHashGet(tav->sappMap, name));
    if (entry) return entry;
    entry = tavRoutingSappCreate(name, connector);
    if (!entry || !tavHashPut(tav->sappMap, name, entry)) return entry;
    tavRoutingSappDestroy(entry);
    return nullptr;
}

void addRoute(Tav *tav, const char *name, int pid, TavConnector *connector) noexcept {
    auto *entry = static_cast<TavRoutingSapp *>(tavHashGet(tav->sappMap, name));
    if (!entry || tavListIsEmpty(entry->pids)) {
        SAPP_DEBUG(tav, "sappMapProcessing:addRoute sapp=%s\n", name);
        tavConnectorPostRoutingChange(connector, name, TRUE, FALSE);
    }
    entry = findOrCreate(tav, name, connector);
    if (entry && !tavRoutingSappAddUniq(entry, pid)) SAPP_DEBUG(tav, "sappMapProcessing:!tavListAddUnique(%d)\n", pid);
}

void delRoute(Tav *tav, const char *name, int pid, TavConnector *connector) noexcept {
    auto *entry = static_cast<TavRoutingSapp *>(tavHashGet(tav->sappMap, name));
    if (!entry || tavListIsEmpty(entry->pids)) {
        SAPP_DEBUG(tav, "sappMapProcessing:empty pidList but delRoute sapp = %s\n", name);
        tavConnectorPostRoutingChange(connector, name, FALSE, FALSE);
        return;
    }
    if (!tavRoutingSappFindAndRemove(entry, pid) || !tavListIsEmpty(entry->pids)) return;
    SAPP_DEBUG(tav, "sappMapProcessing:delRoute sapp=%s\n", name);
    tavConnectorPostRoutingChange(connector, name, FALSE, FALSE);
}

} // namespace

void sappMapProcessing(Tav *tav, json_t *names, int pid, TavConnector *connector, Boolean add) noexcept {
    for (size_t i = 0; i < json_array_size(names); ++i) {
        const char *name = json_string_value(json_array_get(names, i));
        if (name) (add ? addRoute : delRoute)(tav, name, pid, connector);
    }
}

void c2sClientProcessCleanup(Tav *tav, int pid) noexcept {
    // Routes that end together go to each controller in one document.
    TavListPtr marked(tavListCreate(nullptr));
    for (auto [name, entry] : TavHashRange<TavRoutingSapp>(tav->sappMap)) {
        if (!entry->connector || !tavRoutingSappFindAndRemove(entry, pid) || !tavListIsEmpty(entry->pids)) continue;
        if (marked && tavListAddUnique(marked.get(), entry->connector)) tavConnectorSetProcessingJSON(entry->connector, TRUE, FALSE);
        tavConnectorPostRoutingChange(entry->connector, name, FALSE, FALSE);
    }
    for (TavConnector *connector : TavListRange<TavConnector>(marked.get())) tavConnectorSetProcessingJSON(connector, FALSE, FALSE);
}

void c2sResetInfo(Tav *tav, TavConnector *connector) noexcept {
    for (auto [name, entry] : TavHashRange<TavRoutingSapp>(tav->sappMap)) {
        if (entry->connector != connector) continue;
        tavHashPut(tav->sappMap, name, nullptr);
        tavRoutingSappDestroy(entry);
    }
}

void c2sResetAllInfo(Tav *tav) noexcept {
    const auto first = [tav]() -> TavRoutingSapp * {
        for (auto [name, entry] : TavHashRange<TavRoutingSapp>(tav->sappMap)) return entry;
        return nullptr;
    };
    while (TavRoutingSapp *entry = first()) c2sResetInfo(tav, entry->connector);
}
