// How many requests each server has answered to this process.
#ifndef TAV_HOSTS_SERVERCOUNTS_H
#define TAV_HOSTS_SERVERCOUNTS_H

#include <jansson.h>

#include <atomic>
#include <cstdint>

namespace tavhost {

struct ServerCount {
    std::atomic<uint64_t> requests{0};
};

// By the server's full name. Stays until the process ends, however often the configuration changes. Any thread. Null without memory.
ServerCount *countOf(const char *server) noexcept;
// Writes the counts into a process's status, as member "requests" of its servers. Throws std::bad_alloc.
void addCounts(json_t *status);

} // namespace tavhost

#endif
