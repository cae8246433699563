// Nodes. A node lives as long as one of its servers: each counts it.
#include "tavTargetSelector/tsInternal.h"

TargetNode *tsNodeCreate(TargetSelector *ts, const char *name) noexcept {
    if (!ts || !name) return nullptr;
    auto *node = tavNewRecord<TargetNode>();
    if (!node) return nullptr;
    node->refcnt = 1;
    node->selector = ts;
    node->name = tavStrdup(name);
    node->servers = tavListCreate(nullptr);
    TsScope scope(ts->lock, "tsNodeCreate");
    if (node->name && node->servers) node->ele = tavListAddTail(ts->nodes, node);
    if (node->ele) return node;
    nodeFree(node);
    return nullptr;
}

const char *tsNodeGetName(const TargetNode *node) noexcept { return node ? node->name : nullptr; }

Boolean tsNodeSetPropStr(TargetNode *node, const char *name, const char *value) noexcept {
    if (!node || !tavStrEquals(name, "cp.node.maintenancemode")) return FALSE;
    const Boolean mode = tavStrEquals(value, "true");
    if (!mode && !tavStrEquals(value, "false")) return FALSE;
    TsScope scope(node->selector->lock, "tsNodeSetPropStr");
    node->maintenanceMode = mode;
    for (TargetServer *server : TavListRange<TargetServer>(node->servers)) serverRecomputeSelectability(server);
    return TRUE;
}

void nodeFree(TargetNode *node) noexcept {
    if (node->ele) tavListRemove(node->selector->nodes, node->ele);
    tavListDestroy(node->servers);
    tavFree(node->name);
    tavDestroyRecord(node);
}

void nodeDelete(TargetNode *node) noexcept {
    if (--node->refcnt < 1) nodeFree(node);
}

// The servers of a deleted node go with it. The walk keeps the node alive: the servers' counts on it end inside.
static void deleteServers(TsScope &scope, TargetNode *node) noexcept TS_LOCKED {
    for (TargetServer *server : TavListRange<TargetServer>(node->servers)) {
        if (server->deleted) continue;
        serverForget(server);
        serverDelete(scope, server);
    }
}

void tsNodeDelete(TargetNode *node) noexcept {
    if (!node) return;
    TsScope scope(node->selector->lock, "tsNodeDelete");
    if (node->deleted) return;
    node->deleted = TRUE;
    deleteServers(scope, node);
    nodeDelete(node);
}
