// A library instance as a host runs it: with controllers, alone or as the daemon or a worker of a multi-process server.
//
// What happens in it is told to an EventLog. One at a time.
#ifndef TAVCTL_WATCH_LIVEINSTANCE_H
#define TAVCTL_WATCH_LIVEINSTANCE_H

#include <tav/tav.h>

#include <string>
#include <vector>

#include "HostOptions.h"
#include "watch/EventLog.h"

namespace tavctl {

struct LiveOptions {
    std::vector<std::string> controllers; // URLs of one controller, tried in turn
    std::string group = "controller";
    std::vector<std::string> groupProperties; // "NAME=VALUE"
    std::vector<std::string> properties;      // "NAME=VALUE"
    tavhost::TransportOptions transport;
    int wait = 0;       // s that a poll may be held; 0: the library's default
    std::string daemon; // socket; empty: not the daemon
    std::string worker; // socket; empty: not a worker
    std::string trace;  // specification; empty: what the events need
};

class LiveInstance {
public:
    LiveInstance(const LiveOptions &options, EventLog &log); // starts it; throws Fault
    ~LiveInstance();                                         // stops it
    LiveInstance(const LiveInstance &) = delete;
    LiveInstance &operator=(const LiveInstance &) = delete;

    Tav *tav() const { return tav_; }
    // Readable when a document has arrived since forgetDocuments(); for poll().
    int documentFd() const;
    void forgetDocuments();
    // Version of the document in force, -1 before the first. Waits while one is being applied.
    long long version() const;

private:
    Tav *tav_ = nullptr;
};

} // namespace tavctl

#endif
