// Session affinity: from a session id in a cookie or in the path to the server application that holds the session.
//
// A session id is the session proper and, behind each delimiter, a clone id (or a partition id that stands for one). Nothing is allocated
// on the way to a hit; of a miss the request gets a text of bounded length, and the whole of it is built only when it is traced.
#include "tavRequestMapper/tavHttpAffinityPolicy.h"
#include "tavTargetSelector/tsAffinityTable.h"

// ---- reasons ----

void TsReason::addWhole(const char *text) noexcept {
    if (!traced_) return;
    if (!whole_) whole_.reset(sbCreate(256));
    sbAdd(whole_.get(), text);
}

void TsReason::addBrief(const char *text, size_t length) noexcept {
    const size_t room = sizeof brief_ - 1 - length_;
    if (length > room) length = room;
    memcpy(brief_ + length_, text, length);
    length_ += length;
}

void TsReason::add(const char *text) noexcept {
    any_ = true;
    addWhole(text);
    if (length_ < sizeof brief_ - 1) addBrief(text, strlen(text));
}

void TsReason::add(const char *before, const char *name, const char *after) noexcept {
    for (const char *text : {before, name, after}) add(text);
}

void TsReason::add(const TsReason &other) noexcept {
    if (!other.any_) return;
    any_ = true;
    addWhole(other.text());
    addBrief(other.brief_, other.length_);
}

const char *TsReason::brief() noexcept {
    size_t end = length_;
    while (end > 0 && brief_[end - 1] == '\n') end--;
    brief_[end] = '\0';
    return brief_;
}

const char *tsServerApplicationReason(const TargetServerApplication *sapp, TavTime now, Boolean affinity) noexcept TAV_NO_ANALYSIS {
    return serverApplicationReason(sapp, affinity, [now] { return now; });
}

// ---- clone ids ----

namespace {
// Holds the partition-data lock while partition ids are resolved; not taken when there are none.
class PartitionScope {
public:
    explicit PartitionScope(Tav *tav) noexcept : tav_(tavHasPartitionData(tav) ? tav : nullptr) {
        if (tav_) tavLockPartitionData(tav_, "getAffinitySappFromSid");
    }
    ~PartitionScope() noexcept {
        if (tav_) tavUnlockPartitionData(tav_);
    }
    PartitionScope(const PartitionScope &) = delete;
    PartitionScope &operator=(const PartitionScope &) = delete;

    // The clone id that one of the clusters maps this id to, or the id itself.
    const char *resolve(const TsRequest &req, const VirtualCluster *vc, const char *id) const noexcept {
        if (!tav_) return id;
        for (const Cluster *cluster : TavListRange<Cluster>(vc->clusterList)) {
            const PartitionIDData *data = tavGetPartitionData(tav_, cluster->name);
            const auto *mapped = data ? static_cast<const char *>(tavHashGet(data->partition2CloneIdMap, id)) : nullptr;
            if (!mapped) continue;
            TR_DEBUG(req.trCtx, req.ts->affinityRec, "getAffinitySappFromSid: '%s' is a partition ID which is mapped to clone ID '%s'\n",
                     id, mapped);
            return mapped;
        }
        return id;
    }

private:
    Tav *tav_;
};

// The pieces behind the delimiters of a session id, one after the other, each NUL-terminated. The last one stands in the session id itself;
// others are copied to a buffer, long ones to memory.
class CloneIds {
public:
    CloneIds(const char *sid, const char *delimiter) noexcept : delimiter_(delimiter), length_(strlen(delimiter)) { rest_ = after(sid); }
    // The next piece, or null. A delimiter at the very end adds none; an empty delimiter never occurs.
    const char *next() noexcept {
        if (!rest_ || !*rest_) return nullptr;
        const char *piece = rest_;
        rest_ = after(piece);
        if (!rest_) return piece;
        return copy(piece, static_cast<size_t>(rest_ - piece) - length_);
    }

private:
    const char *after(const char *text) const noexcept {
        const char *found = length_ == 1 ? strchr(text, *delimiter_) : length_ ? strstr(text, delimiter_) : nullptr;
        return found ? found + length_ : nullptr;
    }
    const char *copy(const char *piece, size_t length) noexcept {
        if (length < sizeof buffer_) {
            memcpy(buffer_, piece, length);
            buffer_[length] = '\0';
            return buffer_;
        }
        large_.reset(tavStrndup(piece, length));
        return large_ ? large_.get() : "";
    }

    const char *delimiter_;
    size_t length_;
    const char *rest_;
    char buffer_[128];
    TavText large_;
};
} // namespace

// The server application by the maps, remembered; null: the clone id leads to none.
static TargetServerApplication *askMaps(const TsRequest &req, const char *cloneId, TsReason &reason) noexcept TS_LOCKED {
    auto *server = static_cast<TargetServer *>(tavHashGet(req.ts->serverMapByCloneId, cloneId));
    if (!server) return reason.add("Server was not found for cloneId '", cloneId, "'\n"), nullptr;
    tsPrefetch(server, sizeof *server); // its fields are spread over all of the record
    TargetServerApplication *sapp = req.hint ? serverFindServerApplication(server, req.appName, req.hint->appNameHash)
                                             : serverFindServerApplication(server, req.appName);
    if (!sapp) return reason.add("Server application was not found for cloneId '", cloneId, "'\n"), nullptr;
    affinityTableLearn(req, cloneId, sapp);
    return sapp;
}

// One clone id: the server application, or a reason.
static TargetServerApplication *resolveCloneId(const TsRequest &req, const char *cloneId, TsReason &reason) noexcept TS_LOCKED {
    TargetServerApplication *sapp = affinityTableFind(req, cloneId);
    if (!sapp) sapp = askMaps(req, cloneId, reason);
    if (!sapp) return nullptr;
    const char *why = serverApplicationReason(sapp, TRUE, [&req] { return req.now(); });
    if (!why) return sapp;
    reason.add("Server application for cloneId '", cloneId, "' is not selectable because ");
    reason.add("", why, "\n");
    return nullptr;
}

static TargetServerApplication *getAffinitySappFromSid(const TsRequest &req, const VirtualCluster *vc, const char *sid,
                                                       const char *delimiter, TsReason &reason) noexcept TS_LOCKED {
    TsReason missed(reason.traced());
    CloneIds cloneIds(sid, delimiter);
    const char *id = cloneIds.next();
    if (!id) missed.add("getCloneIds: no cloneIds found in the session cookie");
    const PartitionScope partitions(req.ts->tav);
    for (; id; id = cloneIds.next()) {
        TargetServerApplication *sapp = resolveCloneId(req, partitions.resolve(req, vc, id), missed);
        if (sapp) return sapp;
    }
    TR_DEBUG(req.trCtx, req.ts->affinityRec,
             "getAffinitySappFromSid: a routable sapp was not found for any cloneId in the sessionId '%s' because:\n\t %s\n", sid,
             missed.text());
    reason.add(missed);
    return nullptr;
}

// ---- where session ids stand ----

// Goes on from `names` to the first for which the request has a cookie; its value, or null.
static const char *findCookie(const TsRequest &req, const char *const *&names) noexcept {
    const auto getCookieValue = tavGetEnvCallBacks(req.ts->tav)->http.request.getCookieValue;
    if (!getCookieValue) return nullptr;
    EnvHttpContext *env = tavHttpContextGetEnvContext(req.ctx);
    for (; names && *names; names++) {
        if (!**names) continue; // an empty name is in every cookie
        if (const char *value = getCookieValue(env, const_cast<char *>(*names))) return value;
    }
    return nullptr;
}

static const char *delimiterOf(const HttpAffinityPolicy *policy) noexcept {
    const char *delimiter = hapGetDelimiter(policy);
    return delimiter ? delimiter : ":";
}

void readCookieAhead(TsRequest &req) noexcept {
    const HttpAffinityPolicy *policy = req.hint ? req.hint->policy.load(std::memory_order_acquire) : nullptr;
    if (!policy) return;
    const char *const *names = hapGetCookieNames(policy);
    const char *value = findCookie(req, names);
    req.ahead = {policy, names, value};
    if (!value) return balancePrefetch(req.hint);
    CloneIds cloneIds(value, delimiterOf(policy));
    if (const char *id = cloneIds.next()) affinityTablePrefetch(req.ts, id, req.hint->appNameHash);
}

static TargetServerApplication *fromCookies(const TsRequest &req, const VirtualCluster *vc, const HttpAffinityPolicy *policy,
                                            const char *delimiter, TsReason &reason) noexcept TS_LOCKED {
    const bool ahead = req.ahead.policy == policy;
    const char *const *names = ahead ? req.ahead.names : hapGetCookieNames(policy);
    const char *value = ahead ? req.ahead.value : findCookie(req, names);
    for (; value; value = findCookie(req, ++names)) {
        TR_DEBUG(req.trCtx, req.ts->affinityRec, "getAffinityTargetServerApplication: Found session cookie '%s' with value '%s'\n", *names,
                 value);
        TargetServerApplication *sapp = getAffinitySappFromSid(req, vc, value, delimiter, reason);
        if (sapp) return sapp;
    }
    return nullptr;
}

// Everything behind the key and the one character that follows it; the key as it is, in upper case, in lower case.
static const char *getSessionIdFromUrl(const TsRequest &req) noexcept TS_LOCKED {
    static constexpr const char *keys[] = {"jsessionid", "JSESSIONID", "jsessionid"};
    const auto getPath = tavGetEnvCallBacks(req.ts->tav)->http.request.getPath;
    const char *path = getPath ? getPath(tavHttpContextGetEnvContext(req.ctx)) : nullptr;
    TR_TRACE(req.trCtx, req.ts->affinityRec, 8, "getSessionIdFromUrl: URL obtained='%s'\n", tavOrNull(path));
    const char *sid = nullptr;
    for (const char *key : keys) {
        const char *found = path ? strstr(path, key) : nullptr;
        if (!found) continue;
        found += strlen(key);
        sid = found[0] && found[1] ? found + 1 : nullptr;
        break;
    }
    TR_TRACE(req.trCtx, req.ts->affinityRec, 8, "getSessionIdFromUrl: session id='%s'\n", tavOrNull(sid));
    return sid;
}

TargetServerApplication *getAffinityTargetServerApplication(const TsRequest &req, VirtualCluster *vc, HttpAffinityPolicy *policy,
                                                            TsReason &breakReason) noexcept {
    const char *delimiter = delimiterOf(policy);
    tavHttpContextSetAffinityPolicy(req.ctx, policy); // the response side sets cookies by it
    TargetServerApplication *sapp = fromCookies(req, vc, policy, delimiter, breakReason);
    if (sapp) return sapp;
    const char *sid = getSessionIdFromUrl(req);
    return sid ? getAffinitySappFromSid(req, vc, sid, delimiter, breakReason) : nullptr;
}
