#include "support/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

namespace tavctl {

Progress::Progress(std::string what, size_t total)
    : what_(std::move(what)), total_(total), terminal_(isatty(STDERR_FILENO) == 1), next_(Clock::now() + std::chrono::seconds(1)) {}

Progress::~Progress() { clear(); }

void Progress::clear() {
    if (!shown_) return;
    fmt::print(stderr, "\r\033[K");
    fflush(stderr);
    shown_ = false;
}

void Progress::step() {
    done_++;
    if (!terminal_) return;
    if (const auto now = Clock::now(); now >= next_) show(now);
}

void Progress::show(Clock::time_point now) {
    shown_ = true;
    next_ = now + std::chrono::milliseconds(100);
    if (total_ > 0)
        fmt::print(stderr, "\r\033[K{}: {} of {} ({}%)", what_, done_, total_, done_ * 100 / total_);
    else
        fmt::print(stderr, "\r\033[K{}: {}", what_, done_);
    fflush(stderr);
}

} // namespace tavctl
