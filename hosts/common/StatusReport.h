// The status of all processes of a host as one document, and the ways it is shown.
//
// What the processes count is added up; what they agree on stands once; where they differ it is said. The document is that of one process
// (docs/status-format.md) with these differences:
//   processes  instead of "process", "pid" and "state": pid, role ("daemon", "worker", "standalone", "unknown"), answered; of those that
//              answered also state, version, inStep, outstanding, requests
//   problems   what a person should look at, in words
//   servers    "requests", which they have answered; "reason" has every worker's; "selectableIn": in so many workers, when not in all
#ifndef TAV_HOSTS_STATUSREPORT_H
#define TAV_HOSTS_STATUSREPORT_H

#include <jansson.h>

#include <string>
#include <vector>

#include "JsonValue.h"
#include "StatusService.h"

namespace tavhost {

// Without an answer: a document without clusters whose problem is `whyNone`. Throws std::bad_alloc.
Json mergeStatus(const StatusAnswers &answers, const char *whyNone);

// For the status service of a process that routes: what it has counted joins what earlier ones have.
std::string keepCounts(const std::string &kept, const std::string &last);

std::string jsonText(const json_t *report);
// The text format of Prometheus, version 0.0.4.
std::string metricsText(const json_t *report);
// The page that asks the URL it came from for "?format=json" and shows that. Its script and style carry the nonce.
std::string statusPage(const std::string &nonce);

// ---- reading ----

inline double numberOf(const json_t *object, const char *key) { return json_number_value(json_object_get(object, key)); }
inline bool flagOf(const json_t *object, const char *key) { return json_is_true(json_object_get(object, key)); }

std::string endpointName(const json_t *endpoint); // "http://host:port"
bool inMaintenance(const json_t *server);

// for (json_t *server : objectsOf(cluster, "servers")); what is no object is passed over, what is no array is empty.
class JsonObjects {
public:
    class Iterator {
    public:
        Iterator(const json_t *walked, size_t start) : array(walked), index(start) { skip(); }
        json_t *operator*() const { return json_array_get(array, index); }
        Iterator &operator++() {
            ++index;
            skip();
            return *this;
        }
        bool operator!=(const Iterator &other) const { return index != other.index; }

    private:
        const json_t *array;
        size_t index;

        void skip() {
            while (index < json_array_size(array) && !json_is_object(json_array_get(array, index))) ++index;
        }
    };
    explicit JsonObjects(const json_t *walked) : array(walked) {}
    Iterator begin() const { return {array, 0}; }
    Iterator end() const { return {array, json_array_size(array)}; }

private:
    const json_t *array;
};
inline JsonObjects objectsOf(const json_t *object, const char *key) { return JsonObjects(json_object_get(object, key)); }

} // namespace tavhost

#endif
