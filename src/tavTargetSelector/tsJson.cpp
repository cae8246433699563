// The topology as JSON. Names and ids may be any bytes; what is not UTF-8 becomes "?".
#include <jansson.h>

#include "tavTargetSelector/tsInternal.h"

// ---- texts ----

// Length of the UTF-8 sequence at `p`; 0 when it is none (overlong, surrogate, too large or cut off).
static size_t utf8Length(const unsigned char *p) noexcept {
    if (p[0] < 0x80) return 1;
    const size_t length = p[0] >= 0xf0 ? 4 : p[0] >= 0xe0 ? 3 : 2;
    if (p[0] < 0xc2 || p[0] > 0xf4) return 0;
    for (size_t i = 1; i < length; i++) {
        if ((p[i] & 0xc0) != 0x80) return 0;
    }
    const bool overlong = (p[0] == 0xe0 && p[1] < 0xa0) || (p[0] == 0xf0 && p[1] < 0x90);
    const bool notUnicode = (p[0] == 0xed && p[1] > 0x9f) || (p[0] == 0xf4 && p[1] > 0x8f);
    return overlong || notUnicode ? 0 : length;
}

// Returns a new copy in which every byte that is not UTF-8 is "?"; null without memory.
static char *toUtf8(const char *text) noexcept {
    char *copy = tavStrdup(text);
    for (char *p = copy; p && *p;) {
        const size_t length = utf8Length(reinterpret_cast<const unsigned char *>(p));
        if (!length) *p = '?';
        p += length ? length : 1;
    }
    return copy;
}

namespace {
// Fills an object; remembers when something could not be stored.
class JsonObject {
public:
    JsonObject() noexcept : json_(json_object()) {}
    ~JsonObject() noexcept { json_decref(json_); }
    JsonObject(const JsonObject &) = delete;
    JsonObject &operator=(const JsonObject &) = delete;

    // `key` may be any bytes; takes `value`.
    void set(const char *key, json_t *value) noexcept {
        const TavText clean(toUtf8(key));
        if (!clean) json_decref(value);
        if (!clean || json_object_set_new(json_, clean.get(), value) != 0) failed_ = true;
    }
    // No member for a null text.
    void setText(const char *key, const char *text) noexcept {
        if (!text) return;
        const TavText clean(toUtf8(text));
        set(key, clean ? json_string(clean.get()) : nullptr);
    }
    void setNumber(const char *key, json_int_t number) noexcept { set(key, json_integer(number)); }
    // The object, new; null when something is missing.
    json_t *release() noexcept {
        if (failed_) return nullptr;
        json_t *json = json_;
        json_ = nullptr;
        return json;
    }

private:
    json_t *json_;
    bool failed_ = false;
};
} // namespace

// ---- records ----

static json_t *serverApplicationsToJSON(const TargetServer *server, bool full) noexcept TS_LOCKED {
    JsonObject applications;
    for (const TargetServerApplication *sapp : TavListRange<TargetServerApplication>(server->serverApplications)) {
        JsonObject json;
        json.setText("state", sapp->state);
        if (full) json.setNumber("outstandingRequests", sapp->outstandingRequestCount);
        applications.set(sapp->name, json.release());
    }
    return applications.release();
}

static json_t *serverToJSON(const TargetServer *server, bool full) noexcept TS_LOCKED {
    JsonObject json;
    json.setText("state", server->state);
    json.setNumber("weight", server->weight);
    json.setText("maintenanceMode", tsMaintenanceModeToString(server->maintenanceMode));
    json.setText("noAffinity", server->reasonForNoAffinity);
    json.setText("noLoadBalancing", server->reasonForNoLoadBalancing);
    if (full) {
        json.setText("cloneID", server->cloneId);
        json.setNumber("averageResponseTimeInMillis", server->avgResponseTime);
        json.setText("sessionAffinityCookies", server->sessionAffinityCookies);
        json.setNumber("outstandingRequests", server->outstandingRequestCount);
    }
    json.set("applications", serverApplicationsToJSON(server, full));
    return json.release();
}

json_t *clusterToJSON(const Cluster *cluster, bool full) noexcept {
    JsonObject servers;
    for (const TargetServer *server : TavListRange<TargetServer>(cluster->servers)) servers.set(server->name, serverToJSON(server, full));
    JsonObject json;
    json.set("servers", servers.release());
    return json.release();
}

json_t *tsToJSON(TargetSelector *ts) noexcept {
    if (!ts) return nullptr;
    TsScope scope(ts->lock, "tsToJSON");
    JsonObject json;
    for (const Cluster *cluster : TavListRange<Cluster>(ts->clusters)) json.set(cluster->name, clusterToJSON(cluster, true));
    return json.release();
}
