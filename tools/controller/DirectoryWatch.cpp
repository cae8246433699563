#include "DirectoryWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/Fault.h"

namespace controller {

namespace {

// A file counts when its writer has closed it or has renamed it into place: half of one is never read.
constexpr uint32_t EVENTS = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

} // namespace

DirectoryWatch::DirectoryWatch(std::string directory) : directory_(std::move(directory)), fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (fd_ >= 0 && restore()) return;
    const int error = errno;
    if (fd_ >= 0) close(fd_);
    throw tavctl::Fault(directory_, 0, std::strerror(error));
}

DirectoryWatch::~DirectoryWatch() { close(fd_); }

bool DirectoryWatch::restore() {
    watch_ = inotify_add_watch(fd_, directory_.c_str(), EVENTS);
    return watch_ >= 0;
}

DirectoryWatch::Changes DirectoryWatch::take() {
    Changes changes;
    alignas(inotify_event) char buffer[16384];
    for (ssize_t length; (length = read(fd_, buffer, sizeof buffer)) > 0;) {
        for (char *at = buffer; at < buffer + length;) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            at += sizeof(inotify_event) + event->len;
            if (event->mask & IN_Q_OVERFLOW) changes.all = true;
            if (event->wd != watch_ || watch_ < 0) continue; // of a directory that went
            if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) {
                if (event->mask & IN_MOVE_SELF) inotify_rm_watch(fd_, watch_);
                watch_ = -1;
                continue;
            }
            const std::string name = event->len ? event->name : "";
            // Some mounts swap all files at once through a link whose name begins so.
            if (name.starts_with("..")) changes.all = true;
            changes.files.insert(name);
        }
    }
    return changes;
}

} // namespace controller
