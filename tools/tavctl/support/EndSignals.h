// SIGINT and SIGTERM as something to wait for: blocked from here on, and so in every thread that starts later.
#ifndef TAVCTL_ENDSIGNALS_H
#define TAVCTL_ENDSIGNALS_H

namespace tavctl {

class EndSignals {
public:
    EndSignals(); // throws InternalFault
    ~EndSignals();
    EndSignals(const EndSignals &) = delete;
    EndSignals &operator=(const EndSignals &) = delete;

    int fd() const { return fd_; } // readable: one of them has come

private:
    int fd_;
};

} // namespace tavctl

#endif
