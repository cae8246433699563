// A line on the terminal for work that takes longer than a second; silent when standard error is none. A thread of its own keeps it going,
// so a single long step is seen to go on, too.
#ifndef TAVCTL_PROGRESS_H
#define TAVCTL_PROGRESS_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace tavctl {

class Progress {
public:
    explicit Progress(std::string what, size_t total = 0); // total 0: unknown
    ~Progress() { end(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void step();
    void clear(); // before anything else is written; the line stays away for a moment
    void end();   // clears the line for good
    void name(const std::string &what);

private:
    using Clock = std::chrono::steady_clock;
    void keepShowing();
    void show(); // this and erase: with the mutex held
    void erase();

    std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    std::string what_;
    const size_t total_;
    size_t done_ = 0;
    bool shown_ = false;
    bool ended_ = false;
    const Clock::time_point begin_ = Clock::now();
    Clock::time_point next_ = begin_ + std::chrono::seconds(1);
    std::thread thread_; // none without a terminal
};

} // namespace tavctl

#endif
