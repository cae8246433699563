// The instance's partition data: cluster name to partition table, shared by all snapshots. Callers hold the lock across get and use.
#include "tavRecord.h"
#include "tavTargetSelector/tavTargetSelector.h"

void tavLockPartitionData(Tav *tav, const char *who) noexcept TAV_NO_ANALYSIS { tavLockObtain(tav->partitionIDData.lock, who); }

void tavUnlockPartitionData(Tav *tav) noexcept TAV_NO_ANALYSIS { tavLockRelease(tav->partitionIDData.lock); }

PartitionIDData *tavGetPartitionData(Tav *tav, const char *key) noexcept {
    return tav && key ? static_cast<PartitionIDData *>(tavHashGet(tav->partitionIDData.map, key)) : nullptr;
}

Boolean tavHasPartitionData(Tav *tav) noexcept { return tav && tav->partitionCount.load(std::memory_order_relaxed) > 0; }

Boolean tavSetPartitionData(Tav *tav, const char *key, PartitionIDData *data) noexcept {
    if (!tav || !key || !data) return FALSE;
    TavLockGuard guard(tav->partitionIDData.lock, "tavSetPartitionData");
    // What comes back is the replaced table, or the new one when there was no memory for its entry.
    tsPartitionIDDataDelete(static_cast<PartitionIDData *>(tavHashPut(tav->partitionIDData.map, key, data)));
    tav->partitionCount.store(tavHashMapGetCount(tav->partitionIDData.map), std::memory_order_relaxed);
    return TRUE;
}
