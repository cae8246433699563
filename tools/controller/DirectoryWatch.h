// Tells which files of a directory were written, renamed into it or went.
#ifndef CONTROLLER_DIRECTORYWATCH_H
#define CONTROLLER_DIRECTORYWATCH_H

#include <set>
#include <string>

namespace controller {

class DirectoryWatch {
public:
    explicit DirectoryWatch(std::string directory); // throws Fault
    ~DirectoryWatch();
    DirectoryWatch(const DirectoryWatch &) = delete;
    DirectoryWatch &operator=(const DirectoryWatch &) = delete;

    int descriptor() const { return fd_; }     // readable: something happened
    bool isLost() const { return watch_ < 0; } // the directory itself went
    // Watches again after a loss. FALSE: it is not there yet.
    bool restore();

    struct Changes {
        std::set<std::string> files;
        bool all = false; // any file may have changed
    };
    Changes take(); // does not wait

private:
    const std::string directory_;
    int fd_ = -1, watch_ = -1;
};

} // namespace controller

#endif
