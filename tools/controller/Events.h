// What the controller tells on standard output: one line an event, or one JSON object. Any thread.
#ifndef CONTROLLER_EVENTS_H
#define CONTROLLER_EVENTS_H

#include <initializer_list>
#include <mutex>
#include <string>
#include <variant>

#include "support/Json.h"

namespace controller {

class Events {
public:
    Events(bool json, bool quiet) : json_(json), quiet_(quiet) {}

    enum class Weight { Detail, Always }; // Always: quiet or not
    // `text` without its line end; `members` with "event" first.
    void tell(Weight weight, const std::string &text, const tavctl::Json &members);

private:
    const bool json_, quiet_;
    std::mutex mutex_;
};

// {"event": name, members...}
using EventValue = std::variant<std::string, int64_t, bool, double>;
tavctl::Json makeEvent(const char *name, std::initializer_list<std::pair<const char *, EventValue>> members = {});
json_t *toJson(const EventValue &value); // returns new

} // namespace controller

#endif
