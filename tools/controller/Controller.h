// The controller: a directory of documents, watched, served and told about until a signal ends it.
#ifndef CONTROLLER_CONTROLLER_H
#define CONTROLLER_CONTROLLER_H

#include <string>

#include "DirectoryWatch.h"
#include "DocumentStore.h"
#include "Events.h"
#include "HttpFront.h"
#include "support/EndSignals.h"

namespace controller {

struct ControllerOptions {
    std::string directory;
    FrontOptions front;
    bool strict = false, json = false, quiet = false;
};

class Controller {
public:
    explicit Controller(const ControllerOptions &options); // throws Fault
    // Serves until SIGINT or SIGTERM.
    void run();
    const std::string &url() const { return front_.url(); }

private:
    void loadAll(); // throws Fault
    void reloadAll();
    void load(const std::string &fileName);
    void takeChanges();
    void tellRefusal(const std::string &name, const LoadResult &result);
    void tellWarnings(const std::string &name, const LoadResult &result);
    void tellPublished(const std::string &name, const LoadResult &result, size_t pollers, double milliseconds);

    tavctl::EndSignals signals_; // before any thread
    Events events_;
    DocumentStore store_;
    DirectoryWatch watch_; // before the first load: nothing that is written meanwhile is missed
    HttpFront front_;
};

} // namespace controller

#endif
