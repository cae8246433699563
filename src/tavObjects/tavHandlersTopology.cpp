// Object handlers of cells, nodes, clusters, servers and what stands on a server, and of health policies.
#include "tav/tavInternal.h"
#include "tavHandlers.h"
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavTargetSelector/tavTargetSelector.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavSharedText.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

namespace {

TargetSelector *selectorOf(void *snapshot) noexcept { return static_cast<TavRoutingInfo *>(snapshot)->targetSelector; }

} // namespace

// ---- cells ----

Object *tavCellCreate(void *snapshot, const char *name, TavConnector *) noexcept {
    auto *ri = static_cast<TavRoutingInfo *>(snapshot);
    Cell *cell = tavNewRecord<Cell>(nullptr, ri->tav, ri);
    if (!cell) return nullptr;
    cell->name = tavSharedTextObtain(name);
    ri->cell = cell;
    return cell;
}

Boolean tavCellSetPropStr(Object *object, const char *name, const char *value) noexcept {
    Tav *tav = static_cast<Cell *>(object)->tav;
    if (tavSetCellCustomProperty(tav, name, value)) return TRUE;
    TR_DEBUG(tav->trCtx, tav->processRec, "tavCellSetPropStr: %s is not a supported custom property, ignoring it...", name);
    return FALSE;
}

void tavCellDelete(Object *object) noexcept {
    auto *cell = static_cast<Cell *>(object);
    if (!cell) return;
    if (cell->ri->cell == cell) cell->ri->cell = nullptr;
    tavSharedTextRelease(cell->name);
    tavDestroyRecord(cell);
}

// ---- nodes, clusters, servers ----

Object *tavNodeCreate(void *snapshot, const char *name, TavConnector *) noexcept { return tsNodeCreate(selectorOf(snapshot), name); }

Object *tavClusterCreate(void *snapshot, const char *name, TavConnector *) noexcept { return tsClusterCreate(selectorOf(snapshot), name); }

Object *tavServerCreate(void *node, const char *name, TavConnector *connector) noexcept {
    return tsServerCreateShared(static_cast<TargetNode *>(node), name, connector);
}

// ---- server applications: the object is a handle, so that a record that went with its server is never followed ----

Object *tavServerApplicationCreate(void *server, const char *name, TavConnector *connector) noexcept {
    auto *handle = tavNewRecord<TavServerApplication>();
    if (!handle) return nullptr;
    if (tsServerApplicationCreateShared(static_cast<TargetServer *>(server), name, connector, handle)) return handle;
    tavDestroyRecord(handle);
    return nullptr;
}

void tavServerApplicationDelete(Object *object) noexcept {
    auto *handle = static_cast<TavServerApplication *>(object);
    tsServerApplicationDelete(handle);
    tavDestroyRecord(handle);
}

void tavServerApplicationRelease(Object *object) noexcept {
    auto *handle = static_cast<TavServerApplication *>(object);
    tsServerApplicationForgetHandle(handle);
    tavDestroyRecord(handle);
}

// ---- endpoints ----

Object *tavEndPointCreate(void *server, const char *name, TavConnector *) noexcept {
    return tsEndPointCreateShared(static_cast<TargetServer *>(server), name);
}

Boolean tavEndPointInit(Object *endpoint) noexcept { return tsEndPointInit(static_cast<TavTargetEndpoint *>(endpoint)); }

void tavEndPointDelete(Object *endpoint) noexcept { tsEndPointDelete(static_cast<TavTargetEndpoint *>(endpoint)); }

// ---- health policies ----

Object *tavHealthPolicyCreate(void *snapshot, const char *name, TavConnector *connector) noexcept {
    return hmHealthPolicyCreate(selectorOf(snapshot), name, connector);
}
