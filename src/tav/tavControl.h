// Scopes of the process-wide control lock.
#ifndef TAV_TAVCONTROL_H
#define TAV_TAVCONTROL_H

// TRUE when the calling thread holds the control lock.
bool tavHoldsControlLock() noexcept;

// Holds the control lock for a scope, unless the thread holds it already.
class TavControlScope {
public:
    explicit TavControlScope(const char *who) noexcept;
    ~TavControlScope() noexcept;
    TavControlScope(const TavControlScope &) = delete;
    TavControlScope &operator=(const TavControlScope &) = delete;

private:
    bool obtained_;
};

// Gives the control lock up for a scope in which the thread waits. The stop lock must not be held.
class TavControlPause {
public:
    explicit TavControlPause(const char *who) noexcept;
    ~TavControlPause() noexcept;
    TavControlPause(const TavControlPause &) = delete;
    TavControlPause &operator=(const TavControlPause &) = delete;

private:
    const char *who_;
};

#endif
