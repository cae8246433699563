// Partition data: which clone id serves a partition. The instance keeps them by cluster name; see tavInstance.h.
#include "tavTargetSelector/tsInternal.h"

// Constant-initialised and never freed: it may be stored under many names at once.
static char emptyVersion[] = "";
static PartitionIDData defaultData = {nullptr, emptyVersion};

PartitionIDData *tsPartitionIDDataCreate(TavHashMap *map, const char *version) noexcept {
    auto *data = tavNewRecord<PartitionIDData>();
    char *copy = tavStrdup(version ? version : "");
    if (!data || !copy) {
        tavFree(copy);
        tavDestroyRecord(data);
        tavHashMapDestroy(map);
        return nullptr;
    }
    data->partition2CloneIdMap = map;
    data->version = copy;
    return data;
}

const char *tsPartitionIDDataGetVersion(const PartitionIDData *data) noexcept { return data ? data->version : nullptr; }

void tsPartitionIDDataDelete(void *object) noexcept {
    auto *data = static_cast<PartitionIDData *>(object);
    if (!data || data == &defaultData) return;
    tavHashMapDestroy(data->partition2CloneIdMap);
    tavFree(data->version);
    tavDestroyRecord(data);
}

PartitionIDData *tsDefaultPartitionIDData() noexcept { return &defaultData; }
