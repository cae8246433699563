// What `tavctl watch` tells: one line an event, for people or as JSON. Any thread.
#ifndef TAVCTL_WATCH_EVENTLOG_H
#define TAVCTL_WATCH_EVENTLOG_H

#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>

namespace tavctl {

// A member of an event; the value of a number stands without quotes in JSON.
struct EventField {
    std::string_view name;
    std::string value;
    bool number = false;
};

class EventLog {
public:
    explicit EventLog(bool json) : json_(json) {}

    // `text` is for people, the fields for programs. The line is out when the call returns.
    void tell(std::string_view kind, const std::string &text, std::initializer_list<EventField> fields = {});

private:
    const bool json_;
    std::mutex mutex_;
};

} // namespace tavctl

#endif
