// The instance's properties: one table of names and effects, reached from the property set, from server custom properties and from the
// cell.
//
// Three layers of values: the instance's own (defaultProps), the server's (serverProps, which takes precedence), and what is in effect. The
// two maps are guarded by the name lock, which is never held while a value is applied.
#include <cstring>

#include "tavConnector/tavConnector.h"
#include "tavControl.h"
#include "tavInternal.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavTime.h"
#include "tr/tr.h"

namespace {

Boolean isTrue(const char *value) noexcept { return value && tavStrCmpIgnoreCase(value, "true") == 0; }

bool setServerName(Tav *tav, const char *name) noexcept;

bool applyServerName(Tav *tav, const char *value) noexcept { return setServerName(tav, value); }

bool applyPoolSize(Tav *tav, const char *value) noexcept {
    tav->maxHttpContextPoolSize = value ? tavParseInt(value) : -1;
    return true;
}

bool applyRolloutWait(Tav *tav, const char *value) noexcept {
    tav->maxSecondsToWaitDuringAtomicRollout = value ? tavParseInt(value) : 3;
    return true;
}

bool applyRequestTraceSpec(Tav *tav, const char *value) noexcept {
    const bool given = value && *value;
    TrSpec *spec = given ? trSpecCreate(tav->trMgr, value) : nullptr;
    if (given && !spec) return false;
    tavLockObtain(tav->trSpecLock, "tavSetProperty-customPropDefaultRequestTraceSpec");
    TrSpec *old = tav->customPropDefaultRequestTraceSpec;
    tav->customPropDefaultRequestTraceSpec = spec;
    tavLockRelease(tav->trSpecLock);
    trSpecRefRelease(old);
    if (given) {
        TR_LOG(tav->trCtx, tav->defaultReqTraceSpecSet, value);
    } else if (old) {
        TR_LOG(tav->trCtx, tav->defaultReqTraceSpecReset);
    }
    return true;
}

bool applyPrivateHeaders(Tav *tav, const char *value) noexcept {
    tav->privateHeadersDisabled = isTrue(value);
    return true;
}

bool applyMaxElapsed(Tav *tav, const char *value) noexcept {
    TavTime limit = TAV_NO_VALUE;
    if (value) limit = static_cast<TavTime>(tavParseInt(value)) * 1000u;
    tav->maxElapsedTimePerRequestInMillis = limit ? limit : TAV_NO_VALUE;
    return true;
}

bool applyEndpointByVHost(Tav *tav, const char *value) noexcept {
    tav->selectEndpointByVHost = isTrue(value);
    return true;
}

bool applyTrustedProxyEnable(Tav *tav, const char *value) noexcept {
    tav->enableTrustedProxy = isTrue(value);
    return true;
}

bool setTrustedProxies(Tav *tav, const char *value) noexcept;

bool applyTrustedProxyList(Tav *tav, const char *value) noexcept { return !value || setTrustedProxies(tav, value); }

bool applyMaxRequestsPerDaemon(Tav *tav, const char *value) noexcept {
    if (value) tav->maxRequestsPerDaemon = tavParseInt(value);
    return true;
}

bool applyPpid(Tav *tav, const char *value) noexcept;

struct PropertyRow {
    const char *name;
    bool (*apply)(Tav *tav, const char *value); // false: refused, or no memory; nothing changed, as if the name were unknown
};

// In the order of look-up; the first ten are what the controller is asked for.
constexpr PropertyRow kProperties[] = {
    {"webserverName", applyServerName},
    {"MaxHttpContextPoolSize", applyPoolSize},
    {"MaxSecondsToWaitDuringAtomicRollout", applyRolloutWait},
    {"DefaultRequestTraceSpec", applyRequestTraceSpec},
    {"disablePrivateHeaders", applyPrivateHeaders},
    {"MaxElapsedTimePerRequestInSeconds", applyMaxElapsed},
    {"enableEndpointSelectionBasedOnMatchedVHost", applyEndpointByVHost},
    {"TrustedProxyEnable", applyTrustedProxyEnable},
    {"TrustedProxyList", applyTrustedProxyList},
    {"MaxRequestsPerDaemon", applyMaxRequestsPerDaemon},
    {"ppid", applyPpid},
};

const PropertyRow *findProperty(const char *name) noexcept {
    for (const PropertyRow &row : kProperties) {
        if (tavStrCmpIgnoreCase(row.name, name) == 0) return &row;
    }
    return nullptr;
}

// Stores a copy of `value` (null: none) under `name`; the name lock guards both maps.
void recordValue(Tav *tav, TavHashMap *map, const char *name, const char *value) noexcept {
    char *copy = tavStrdup(value);
    TavLockGuard guard(tav->nameLock, "recordValue");
    tavFree(tavHashPut(map, name, copy));
}

char *copyValue(Tav *tav, TavHashMap *map, const char *name) noexcept {
    TavLockGuard guard(tav->nameLock, "copyValue");
    return tavStrdup(static_cast<const char *>(tavHashGet(map, name)));
}

bool hasServerValue(Tav *tav, const char *name) noexcept {
    TavLockGuard guard(tav->nameLock, "hasServerValue");
    return tavHashGet(tav->serverProps, name) != nullptr;
}

void logSetProperty(Tav *tav, const char *name, const char *value) noexcept {
    TR_DEBUG(tav->trCtx, tav->processRec, "tavSetProperty name='%s', value='%s'\n", tavOrNull(name), tavOrNull(value));
}

// A value of the instance's own: kept for the time when the server's value goes, in effect unless the server has one.
char *applyInstanceValue(Tav *tav, const char *name, const char *value) noexcept {
    const PropertyRow *row = name ? findProperty(name) : nullptr;
    if (row && hasServerValue(tav, row->name)) {
        logSetProperty(tav, name, value);
        recordValue(tav, tav->defaultProps, row->name, value);
        return const_cast<char *>(row->name);
    }
    char *canonical = tavApplyProperty(tav, name, value);
    if (canonical) recordValue(tav, tav->defaultProps, canonical, value);
    return canonical;
}

constexpr char kServerPrefix[] = "cp.sf.";
constexpr char kCellPrefix[] = "cp.";

} // namespace

const char *const tavCustomPropertyNames[] = {kProperties[0].name,
                                              kProperties[1].name,
                                              kProperties[2].name,
                                              kProperties[3].name,
                                              kProperties[4].name,
                                              kProperties[5].name,
                                              kProperties[6].name,
                                              kProperties[7].name,
                                              kProperties[8].name,
                                              kProperties[9].name,
                                              nullptr};

char *tavApplyProperty(Tav *tav, const char *name, const char *value) noexcept {
    logSetProperty(tav, name, value);
    const PropertyRow *row = name ? findProperty(name) : nullptr;
    if (!row || !row->apply(tav, value)) return nullptr;
    return const_cast<char *>(row->name);
}

char *tavSetProperty(void *tav, char *name, char *value) noexcept { return applyInstanceValue(static_cast<Tav *>(tav), name, value); }

Boolean tavSetCellCustomProperty(Tav *tav, const char *name, const char *value) noexcept {
    if (!tav || !tavStartsWith(name, kCellPrefix)) return FALSE;
    return applyInstanceValue(tav, name + strlen(kCellPrefix), value) != nullptr;
}

Boolean tavSetServerCustomProperty(Tav *tav, const char *name, const char *value) noexcept {
    if (!tav || !name) return FALSE;
    TR_DEBUG(tav->trCtx, tav->processRec, "tavSetServerCustomProperty name='%s', value='%s'\n", name, tavOrNull(value));
    const char *stripped = tavStartsWith(name, kServerPrefix) ? name + strlen(kServerPrefix) : name;
    const PropertyRow *row = findProperty(stripped);
    const char *stored = row ? row->name : stripped;
    TavText own(value ? nullptr : copyValue(tav, tav->defaultProps, stored));
    const char *canonical = tavApplyProperty(tav, stripped, value ? value : own.get());
    recordValue(tav, tav->serverProps, canonical ? canonical : stripped, value);
    return canonical != nullptr;
}

char *tavCopyProperty(Tav *tav, const char *name) noexcept {
    if (!tav) return nullptr;
    char *server = copyValue(tav, tav->serverProps, name);
    return server ? server : tavPropertyGetCopy(tav->props, name);
}

// ---- names ----

const char *tavIntern(Tav *tav, const char *text) noexcept {
    if (!text) return nullptr;
    TavLockGuard guard(tav->nameLock, "tavIntern");
    tavListAddUniqueStr(tav->internedNames, text);
    return static_cast<const char *>(tavListEleGetObject(tavListFindStr(tav->internedNames, text)));
}

namespace {

void updateGroupURIs(Tav *tav) noexcept {
    TavControlScope control("updateRestURIs");
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList)) tavConnectorGroupUpdateRestURI(cg);
}

bool applyPpid(Tav *tav, const char *value) noexcept {
    const char *ppid = tavIntern(tav, value);
    if (value && !ppid) return false;
    tav->ppid = ppid;
    updateGroupURIs(tav);
    return true;
}

bool appendText(TavText *text, const char *more) noexcept {
    text->reset(tavStrJoin(text->get(), more));
    return *text != nullptr;
}

// "cell_node_server", of which each component is optional: the server's path has "/cell/", "/node/" and "/server/" before them, the cell's
// ends after the first; null without any. FALSE without memory.
bool makePaths(const char *name, TavText *cellPath, TavText *serverPath) noexcept {
    static constexpr const char *kPrefixes[] = {"/cell/", "/node/", "/server/"};
    TavText copy(tavStrdup(name ? name : ""));
    serverPath->reset(tavStrdup(""));
    if (!copy || !*serverPath) return false;
    char *last = nullptr;
    const char *component = tavStrtok(copy.get(), "_", &last);
    for (int i = 0; i < 3 && component; ++i) {
        if (!appendText(serverPath, kPrefixes[i]) || !appendText(serverPath, component)) return false;
        if (i == 0) cellPath->reset(tavStrdup(serverPath->get()));
        if (!*cellPath) return false;
        component = tavStrtok(nullptr, "_", &last);
    }
    return true;
}

// False without memory: the old name and paths stay. A name without a component keeps the cell's path.
bool setServerName(Tav *tav, const char *name) noexcept {
    TavText cellPath, serverPath;
    if (!makePaths(name, &cellPath, &serverPath)) return false;
    const char *interned = tavIntern(tav, name);
    const char *internedCell = cellPath ? tavIntern(tav, cellPath.get()) : tav->cellPath.load();
    const char *internedServer = tavIntern(tav, serverPath.get());
    if ((name && !interned) || (cellPath && !internedCell) || !internedServer) return false;
    tav->serverName = interned;
    tav->cellPath = internedCell;
    tav->serverPath = internedServer;
    TR_DEBUG(tav->trCtx, tav->processRec, "updateServerPath cellPath='%s', serverPath='%s'\n", tavOrNull(tav->cellPath),
             tavOrNull(tav->serverPath));
    updateGroupURIs(tav);
    return true;
}

} // namespace

void tavSetServerName(Tav *tav, const char *name) TAV_NOEXCEPT {
    if (tav) setServerName(tav, name);
}

const char *tavGetServerName(Tav *tav) TAV_NOEXCEPT { return tav ? tav->serverName.load() : nullptr; }
const char *tavGetPPID(Tav *tav) TAV_NOEXCEPT { return tav ? tav->ppid.load() : nullptr; }
const char *tavGetServerPath(Tav *tav) TAV_NOEXCEPT { return tav ? tav->serverPath.load() : nullptr; }
Boolean tavIsOwnServerPath(Tav *tav, const char *name) noexcept { return tav && tavStrEquals(tav->serverPath, name); }

// ---- trusted proxies ----

namespace {

// False without memory: the old list stays.
bool setTrustedProxies(Tav *tav, const char *value) noexcept {
    TavText copy(tavStrdup(value));
    TavListPtr list(tavListCreate(tavFree));
    TavHashMapPtr set(tavHashMapCreate());
    if (!copy || !list || !set) return false;
    char *last = nullptr;
    for (char *ip = tavStrtok(copy.get(), ":", &last); ip; ip = tavStrtok(nullptr, ":", &last)) {
        TR_DEBUG(tav->trCtx, tav->processRec, "tavSetTrustedProxy proxy address=%s\n", ip);
        tavListAddUniqueStr(list.get(), ip);
        TavListEle *ele = tavListFindStr(list.get(), ip);
        if (!ele) return false;
        tavHashPut(set.get(), ip, tavListEleGetObject(ele));
        if (!tavHashGet(set.get(), ip)) return false;
    }
    TavLockGuard guard(tav->nameLock, "setTrustedProxies");
    TavList *oldList = tav->trustedProxyList;
    TavHashMap *oldSet = tav->trustedProxySet;
    tav->trustedProxyList = list.release();
    tav->trustedProxySet = set.release();
    list.reset(oldList);
    set.reset(oldSet);
    return true;
}

bool isListedProxy(Tav *tav, const char *ip) noexcept {
    TavLockGuard guard(tav->nameLock, "tavIsTrustedProxy");
    return tavHashGet(tav->trustedProxySet, ip) != nullptr;
}

} // namespace

void tavSetTrustedProxies(Tav *, const char *) TAV_NOEXCEPT {}

Boolean tavIsTrustedProxy(Tav *tav, const char *ipAddr) TAV_NOEXCEPT {
    if (!tav) return FALSE;
    TR_DEBUG(tav->trCtx, tav->processRec, "Enter tavIsTrustedProxy");
    const Boolean trusted = ipAddr && isListedProxy(tav, ipAddr);
    if (trusted) {
        TR_DEBUG(tav->trCtx, tav->processRec, "Exit tavIsTrustedProxy - TRUE");
    } else {
        TR_DEBUG(tav->trCtx, tav->processRec, "Exit tavIsTrustedProxy - FALSE");
    }
    return trusted;
}
