// The trace facility.
//
// Idea: a record is one kind of message. Its place in a specification's bytes is its index, so the test that runs before every message is
// one load and one compare, without a lock. What has been replaced stays readable on the death row for TR_SPEC_DEATH_ROW_TIME.
//
// Ownership: a manager owns its groups (through their parents, from the root), its records (each has its creator's reference, held by
// `records`, and one per group that lists it) and its messages. Code keeps record pointers for as long as the manager lives.
// Specifications count their references; contexts and rules hold them. A specification knows no manager and may outlive it.
//
// Locks: TrMgr.lock guards the tree and the maps, a context's specLock its specification's exchange, the death-row lock the row. The
// last is taken inside specLock. Nothing is traced under any of them. Groups and records are made while the catalogue is read.
#include <cstdlib>
#include <iterator>
#include <utility>

#include "tavSxp/tavSxp.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/trPriv.h"

namespace {

constexpr const char *trLevels[] = {"OFF", "EMERG", "ALERT", "CRITICAL", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};
constexpr int trLevelCount = static_cast<int>(std::size(trLevels));

constinit TrFatalFcn fatalHook = nullptr;

void destroyMessage(void *message) { trMessageDestroy(static_cast<TrMessage *>(message)); }
void releaseRecord(void *record) { trReleaseRecord(static_cast<TrRecord *>(record)); }

TrMgr *createEmpty() {
    TrMgr *mgr = tavNewRecord<TrMgr>();
    if (!mgr) return nullptr;
    mgr->elements = tavListCreate(tavFree);
    mgr->records = tavListCreate(releaseRecord);
    mgr->groupMap = tavHashMapCreate();
    mgr->recordMap = tavHashMapCreate();
    mgr->messageMap = tavHashMapCreate2(destroyMessage);
    mgr->lock = tavLockCreateRanked(TavLockRank::Leaf);
    bool complete = mgr->elements && mgr->records && mgr->groupMap && mgr->recordMap && mgr->messageMap && mgr->lock;
    mgr->rootGroup = complete ? trMakeGroup(mgr, nullptr, "") : nullptr;
    if (mgr->rootGroup) return mgr;
    trMgrDelete(mgr);
    return nullptr;
}

bool readCatalogue(TrMgr *mgr, FILE *file, Boolean closeFlag) {
    TavSXParser *parser = tavSxpCreate(file, closeFlag);
    if (!parser) {
        trFatal(TR_EXIT_CONTENT, "initTr: Failed to create the TavSxpParser object");
        return false;
    }
    tavSxpSetStartFunc(parser, tavHandleStartElement);
    tavSxpSetEndFunc(parser, tavHandleEndElement);
    tavSxpSetCallbackArg(parser, mgr);
    bool parsed = tavSxpParse(parser);
    bool outOfMemory = parser->outOfMemory || mgr->outOfMemory;
    tavSxpDestroy(parser);
    tavListClean(mgr->elements);
    if (!parsed && !outOfMemory && !mgr->catalogueFault) {
        trFatal(TR_EXIT_SYNTAX, "TrMgr.initTr: Failed to parse the file %s\n", "tav-trace.xml");
    }
    return parsed;
}

bool addDefaultContext(TrMgr *mgr) {
    mgr->defaultContext = trContextCreate(mgr);
    TrSpec *spec = mgr->defaultContext ? trSpecCreate(mgr, ":NOTICE") : nullptr;
    if (spec) trContextSetSpec(mgr->defaultContext, spec);
    return spec != nullptr;
}

} // namespace

void trSetFatalHook(TrFatalFcn hook) noexcept { fatalHook = hook; }

void trVFatal(int status, const char *format, va_list args) noexcept {
    if (TrFatalFcn hook = fatalHook) {
        char message[512];
        vsnprintf(message, sizeof message, format, args);
        hook(status, message);
        return;
    }
    vfprintf(status == TR_EXIT_SYNTAX ? stderr : stdout, format, args);
    exit(status);
}

void trFatal(int status, const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    trVFatal(status, format, args);
    va_end(args);
}

TrMgr *trMgrCreate(FILE *catalogueFile, Boolean closeFlag) noexcept {
    trOpenDeathRow();
    TrMgr *mgr = createEmpty();
    if (!mgr) {
        if (catalogueFile && closeFlag) fclose(catalogueFile);
        return nullptr;
    }
    if ((!catalogueFile || readCatalogue(mgr, catalogueFile, closeFlag)) && addDefaultContext(mgr)) return mgr;
    trMgrDelete(mgr);
    return nullptr;
}

void trMgrDelete(TrMgr *mgr) noexcept {
    if (!mgr) return;
    trContextDelete(mgr->defaultContext);
    // The maps go first: what is freed afterwards has nothing to leave.
    tavHashMapDestroy(std::exchange(mgr->groupMap, nullptr));
    tavHashMapDestroy(std::exchange(mgr->recordMap, nullptr));
    tavHashMapDestroy(mgr->messageMap);
    trReleaseGroup(mgr->rootGroup);
    tavListDestroy(mgr->records);
    tavListDestroy(mgr->elements);
    tavLockDestroy(mgr->lock);
    tavDestroyRecord(mgr);
}

TrContext *trMgrGetDefaultContext(TrMgr *mgr) noexcept { return mgr->defaultContext; }

void trMgrSetPrintf(TrMgr *mgr, TrPrintf hook) noexcept {
    if (mgr) mgr->printf = hook;
}

int trLevelNameToIndex(const char *name) noexcept {
    for (int i = 0; name && i < trLevelCount; i++) {
        if (tavStrCmpIgnoreCase(name, trLevels[i]) == 0) return i;
    }
    return -1;
}

const char *trLevelIndexToName(int index) noexcept { return index >= 0 && index < trLevelCount ? trLevels[index] : nullptr; }
