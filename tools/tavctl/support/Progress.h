// A line on the terminal for work that takes longer than a second; silent when standard error is none.
#ifndef TAVCTL_PROGRESS_H
#define TAVCTL_PROGRESS_H

#include <chrono>
#include <string>

namespace tavctl {

class Progress {
public:
    Progress(std::string what, size_t total); // total 0: unknown
    ~Progress();                              // clears the line
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void step();
    void clear(); // before anything else is written
    void name(const std::string &what) { what_ = what; }

private:
    using Clock = std::chrono::steady_clock;
    void show(Clock::time_point now);

    std::string what_;
    size_t total_;
    size_t done_ = 0;
    bool terminal_;
    bool shown_ = false;
    Clock::time_point next_;
};

} // namespace tavctl

#endif
