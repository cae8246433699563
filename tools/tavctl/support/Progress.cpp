#include "support/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

namespace tavctl {

static constexpr std::chrono::milliseconds INTERVAL(100);

Progress::Progress(std::string what, size_t total) : what_(std::move(what)), total_(total) {
    if (isatty(STDERR_FILENO) == 1) thread_ = std::thread(&Progress::keepShowing, this);
}

void Progress::end() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ended_ = true;
    }
    changed_.notify_one();
    thread_.join();
    erase();
}

void Progress::step() {
    const std::lock_guard<std::mutex> lock(mutex_);
    done_++;
}

void Progress::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    erase();
    next_ = std::max(next_, Clock::now() + INTERVAL);
}

void Progress::name(const std::string &what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    what_ = what;
}

void Progress::keepShowing() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ended_) {
        if (Clock::now() >= next_) show();
        changed_.wait_until(lock, next_);
    }
}

void Progress::show() {
    const auto now = Clock::now();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - begin_).count();
    std::string count;
    if (total_ > 1)
        count = fmt::format(" {} of {} ({}%),", done_, total_, done_ * 100 / total_);
    else if (done_ > 1)
        count = fmt::format(" {},", done_);
    fmt::print(stderr, "\r\033[K{}:{} {} s", what_, count, seconds);
    fflush(stderr);
    shown_ = true;
    next_ = now + INTERVAL;
}

void Progress::erase() {
    if (!shown_) return;
    fmt::print(stderr, "\r\033[K");
    fflush(stderr);
    shown_ = false;
}

} // namespace tavctl
