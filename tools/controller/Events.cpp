#include "Events.h"

#include "support/Output.h"

namespace controller {

void Events::tell(Weight weight, const std::string &text, const tavctl::Json &members) {
    if (quiet_ && weight == Weight::Detail) return;
    const std::string line = json_ ? tavctl::jsonLine(members.get()) : text;
    const std::lock_guard<std::mutex> lock(mutex_);
    tavctl::out("{}\n", line);
    tavctl::outputFlush();
}

json_t *toJson(const EventValue &value) {
    if (const auto *text = std::get_if<std::string>(&value)) return tavctl::jsonText(text->c_str());
    if (const auto *number = std::get_if<int64_t>(&value)) return json_integer(*number);
    if (const auto *real = std::get_if<double>(&value)) return json_real(*real);
    return json_boolean(std::get<bool>(value));
}

tavctl::Json makeEvent(const char *name, std::initializer_list<std::pair<const char *, EventValue>> members) {
    tavctl::Json event(json_object());
    json_object_set_new(event.get(), "event", json_string(name));
    for (const auto &[key, value] : members) json_object_set_new(event.get(), key, toJson(value));
    return event;
}

} // namespace controller
