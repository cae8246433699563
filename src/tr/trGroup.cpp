// Groups: a tree in which a group may have several parents. The depth is bounded when groups are made, so the walks recurse.
#include <utility>

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavStringBuffer.h"
#include "tr/trPriv.h"

namespace {

void releaseGroup(void *group) { trReleaseGroup(static_cast<TrGroup *>(group)); }
void releaseRecord(void *record) { trReleaseRecord(static_cast<TrRecord *>(record)); }

void freeGroup(TrGroup *group) {
    tavListDestroy(group->groups);
    tavListDestroy(group->records);
    tavFree(group->groupsArray);
    tavFree(group->recordsArray);
    tavFree(group->name);
    tavFree(group->path);
    tavFree(group->description);
    tavDestroyRecord(group);
}

TrGroup *newGroup(TrMgr *mgr, const TrGroup *parent, const char *name) {
    TrGroup *group = tavNewRecord<TrGroup>();
    if (!group) return nullptr;
    group->mgr = mgr;
    group->refcnt = 1;
    group->depth = parent ? parent->depth + 1 : 0;
    group->name = tavStrdup(name);
    group->path = parent && parent != mgr->rootGroup ? trChildPath(parent, name) : tavStrdup(name);
    group->groups = tavListCreate(releaseGroup);
    group->records = tavListCreate(releaseRecord);
    if (group->name && group->path && group->groups && group->records) return group;
    freeGroup(group);
    return nullptr;
}

// The array of the group's children is out of date.
template <typename T>
void dropArray(T **&array) {
    tavFree(std::exchange(array, nullptr));
}

// New null-terminated array of the objects; null without memory.
template <typename T>
T **makeArray(const TavList *list) {
    auto **array = static_cast<T **>(tavMalloc((static_cast<size_t>(tavListGetCount(list)) + 1) * sizeof(T *)));
    if (!array) return nullptr;
    T **next = array;
    for (T *object : TavListRange<T>(list)) *next++ = object;
    return array;
}

bool isAtOrBelow(const TrGroup *group, const TrGroup *top) {
    if (group == top) return true;
    for (const TrGroup *child : TavListRange<TrGroup>(top->groups)) {
        if (isAtOrBelow(group, child)) return true;
    }
    return false;
}

bool unlinkFromOneParent(TrGroup *group, TrGroup *top) {
    if (tavListFindAndRemove(top->groups, group)) {
        dropArray(top->groupsArray);
        return true;
    }
    for (TrGroup *child : TavListRange<TrGroup>(top->groups)) {
        if (unlinkFromOneParent(group, child)) return true;
    }
    return false;
}

} // namespace

char *trChildPath(const TrGroup *parent, const char *name) noexcept {
    TavStringBufferPtr path(sbCreate(64));
    sbAdd(path.get(), parent->path);
    sbAdd(path.get(), ".");
    sbAdd(path.get(), name);
    return path && !path->failed ? tavStrdup(sbStr(path.get())) : nullptr;
}

TrGroup *trMakeGroup(TrMgr *mgr, TrGroup *parent, const char *name) noexcept {
    if (parent && parent->depth >= TR_MAX_GROUP_DEPTH) return nullptr;
    TrGroup *group = newGroup(mgr, parent, name);
    if (!group) return nullptr;
    if (parent && !tavListAddTail(parent->groups, group)) return nullptr;
    // A group of the same path leaves the map; its parent still holds it.
    if (tavHashPut(mgr->groupMap, group->path, group) == group) {
        if (parent) tavListFindAndRemove(parent->groups, group);
        trReleaseGroup(group);
        return nullptr;
    }
    if (parent) dropArray(parent->groupsArray);
    return group;
}

void trReleaseGroup(TrGroup *group) noexcept {
    if (!group || --group->refcnt >= 1) return;
    TavHashMap *map = group->mgr->groupMap;
    if (tavHashGet(map, group->path) == group) tavHashPut(map, group->path, nullptr);
    freeGroup(group);
}

TrGroup *trGroupCreate(TrMgr *mgr, const char *name) noexcept { return mgr ? trGroupCreateChild(mgr->rootGroup, name) : nullptr; }

TrGroup *trGroupCreateChild(TrGroup *parent, const char *name) noexcept {
    if (!parent || !name) return nullptr;
    TavLockGuard guard(parent->mgr->lock, "trGroupCreateChild");
    return trMakeGroup(parent->mgr, parent, name);
}

Boolean trGroupAddParent(TrGroup *group, TrGroup *parent) noexcept {
    if (!group || !parent || group->mgr != parent->mgr) return FALSE;
    TavLockGuard guard(group->mgr->lock, "trGroupAddParent");
    if (isAtOrBelow(parent, group)) return FALSE;
    group->refcnt++;
    if (!tavListAddTail(parent->groups, group)) return FALSE; // the list has given the reference back
    dropArray(parent->groupsArray);
    return TRUE;
}

void trGroupDelete(TrGroup *group) noexcept {
    if (!group || group == group->mgr->rootGroup) return;
    TavLock *lock = group->mgr->lock;
    TavLockGuard guard(lock, "trGroupDelete");
    if (unlinkFromOneParent(group, group->mgr->rootGroup)) trReleaseGroup(group);
}

TrGroup *trGroupGetRoot(TrMgr *mgr) noexcept { return mgr->rootGroup; }
TrGroup *trGroupGet(TrMgr *mgr, const char *path) noexcept { return trMgrGetGroup(mgr, path); }

TrGroup *trMgrGetGroup(TrMgr *mgr, const char *path) noexcept {
    if (!mgr) return nullptr;
    TavLockGuard guard(mgr->lock, "trMgrGetGroup");
    return static_cast<TrGroup *>(tavHashGet(mgr->groupMap, path));
}

TrGroup **trGroupGetChildGroups(TrGroup *group) noexcept {
    TavLockGuard guard(group->mgr->lock, "trGroupGetChildGroups");
    if (!group->groupsArray) group->groupsArray = makeArray<TrGroup>(group->groups);
    return group->groupsArray;
}

TrRecord **trGroupGetChildRecords(TrGroup *group) noexcept {
    TavLockGuard guard(group->mgr->lock, "trGroupGetChildRecords");
    if (!group->recordsArray) group->recordsArray = makeArray<TrRecord>(group->records);
    return group->recordsArray;
}
