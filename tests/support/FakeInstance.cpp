#include "support/FakeInstance.h"

#include <algorithm>
#include <cstdarg>

#include "tavUtil/tavMemory.h"

static Tav *current; // whose trace is being taken

static int printTrace(const TrContext *ctx, va_list args) {
    const char *format = trContextGetFormat(ctx);
    char line[4096];
    if (!current || !format) return 0;
    vsnprintf(line, sizeof line, format, args);
    current->trace.emplace_back(line);
    return 0;
}

_Tav::_Tav() : mgr(trMgrCreate(fopen(TAV_SOURCE_DIR "/share/tav-trace.xml", "r"), TRUE)) {
    trMgrSetPrintf(mgr, printTrace);
    current = this;
    setTraceSpec(":NOTICE");
}

_Tav::~_Tav() {
    trMgrDelete(mgr);
    trPurgeDeathRow();
    current = nullptr;
}

void _Tav::setTraceSpec(const char *text) {
    trace.clear();
    trContextSetSpec(trMgrGetDefaultContext(mgr), trSpecCreate(mgr, text));
    trPurgeDeathRow();
}

int _Tav::traced(const std::string &part) const {
    return static_cast<int>(
        std::count_if(trace.begin(), trace.end(), [&](const std::string &line) { return line.find(part) != std::string::npos; }));
}

EnvCallBacks *tavGetEnvCallBacks(Tav *tav) noexcept { return tav ? &tav->env : nullptr; }
TrMgr *getTavTrMgr(Tav *tav) noexcept { return tav ? tav->mgr : nullptr; }
TrMgr *tavGetTrMgr(Tav *tav) noexcept { return tav ? tav->mgr : nullptr; }
TrContext *tavGetTrContext(Tav *tav) noexcept { return tav ? trMgrGetDefaultContext(tav->mgr) : nullptr; }
TrContext *GET_TRCTX() noexcept { return tavGetTrContext(current); }
TrRecord *GET_TRREC() noexcept { return current ? trRecordGet(current->mgr, "control.defaultdebug") : nullptr; }
Language *tavGetHttpLanguage(Tav *tav) noexcept { return tav ? tav->language : nullptr; }
TavSSLMapMode tavGetSSLMapMode(Tav *tav) noexcept { return tav->sslMapMode; }

char *tavCopyProperty(Tav *tav, const char *name) noexcept {
    const auto found = tav->properties.find(name);
    return found == tav->properties.end() ? nullptr : tavStrdup(found->second.c_str());
}
Boolean tavSelectsEndpointByVHost(Tav *tav) noexcept { return tav->properties.contains("enableEndpointSelectionBasedOnMatchedVHost"); }

Tav *tavRoutingInfoGetTav(TavRoutingInfo *ri) noexcept { return ri ? ri->tav : nullptr; }
RequestMapper *tavRoutingInfoGetRequestMapper(TavRoutingInfo *ri) noexcept { return ri ? ri->mapper : nullptr; }
TargetSelector *tavRoutingInfoGetTargetSelector(TavRoutingInfo *ri) noexcept { return ri ? ri->selector : nullptr; }
Boolean tavRoutingInfoIsPublished(TavRoutingInfo *ri) noexcept { return ri->published; }

void tavLockPartitionData(Tav *tav, const char *) noexcept {
    tav->partitionsMutex.lock();
    tav->partitionsLocked = true;
}
void tavUnlockPartitionData(Tav *tav) noexcept {
    tav->partitionsLocked = false;
    tav->partitionsMutex.unlock();
}
PartitionIDData *tavGetPartitionData(Tav *tav, const char *key) noexcept {
    const auto found = tav->partitions.find(key ? key : "");
    return tav->partitionsLocked && key && found != tav->partitions.end() ? found->second : nullptr;
}
Boolean tavHasPartitionData(Tav *tav) noexcept { return !tav->partitions.empty(); }
