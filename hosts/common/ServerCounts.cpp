#include "ServerCounts.h"

#include <map>
#include <mutex>
#include <new>
#include <string>

#include "StatusReport.h"

namespace tavhost {

namespace {

struct Counts {
    std::mutex mutex;
    std::map<std::string, ServerCount, std::less<>> byName; // an entry stays where it is
};

Counts &counts() {
    static Counts all;
    return all;
}

} // namespace

ServerCount *countOf(const char *server) noexcept {
    try {
        const std::lock_guard<std::mutex> lock(counts().mutex);
        return &counts().byName[server];
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void addCounts(json_t *status) {
    const std::lock_guard<std::mutex> lock(counts().mutex);
    for (const json_t *cluster : objectsOf(status, "clusters")) {
        for (json_t *server : objectsOf(cluster, "servers")) {
            const auto found = counts().byName.find(textOf(server, "name"));
            const uint64_t requests = found == counts().byName.end() ? 0 : found->second.requests.load(std::memory_order_relaxed);
            if (json_object_set_new(server, "requests", json_integer(static_cast<json_int_t>(requests))) != 0) throw std::bad_alloc();
        }
    }
}

} // namespace tavhost
