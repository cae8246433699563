// The place in a web module where the selector keeps what it knows of it.
#ifndef TAVREQUESTMAPPER_TSMODULEHINT_H
#define TAVREQUESTMAPPER_TSMODULEHINT_H

#include <atomic>

// What the selector remembers of a web module, so that it need not look its names up for every request. Lies in the web module; the
// selector of the module's snapshot reads and writes it under its lock. The context hands it on.
typedef struct _TsModuleHint {
    std::atomic<struct _VirtualCluster *> virtualCluster; // to be followed only while `generation` is the selector's
    unsigned generation;
    int appNameHash;                                  // tavHashCompute of the application's simple name; constant
    std::atomic<struct _HttpAffinityPolicy *> policy; // of the last selection; lives as long as the snapshot
    // Where load balancing will begin next: a server application and its server. Never followed, only to ask for cache lines.
    std::atomic<const void *> nextSapp, nextServer;
} TsModuleHint;

#endif
