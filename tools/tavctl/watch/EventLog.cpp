#include "watch/EventLog.h"

#include <fmt/chrono.h>

#include <chrono>

#include "support/Json.h"
#include "support/Output.h"

namespace tavctl {

namespace {

constexpr size_t KIND_WIDTH = 10;

std::string timeOfDay() {
    const auto now = std::chrono::time_point_cast<std::chrono::milliseconds>(std::chrono::system_clock::now());
    const auto millis = now.time_since_epoch().count() % 1000;
    return fmt::format("{:%H:%M:%S}.{:03}", fmt::localtime(std::chrono::system_clock::to_time_t(now)), millis);
}

double secondsSinceEpoch() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

Colour colourOf(std::string_view kind) {
    if (kind == "decision") return Colour::Green;
    if (kind == "document" || kind == "version") return Colour::Cyan;
    if (kind == "posted" || kind == "library") return Colour::Yellow;
    return Colour::Bold;
}

json_t *eventJson(std::string_view kind, std::initializer_list<EventField> fields) {
    json_t *json = json_object();
    json_object_set_new(json, "time", json_real(secondsSinceEpoch()));
    json_object_set_new(json, "event", json_stringn(kind.data(), kind.size()));
    for (const EventField &field : fields) {
        json_t *value = field.number ? json_integer(std::stoll(field.value)) : jsonText(field.value);
        json_object_set_new(json, std::string(field.name).c_str(), value);
    }
    return json;
}

} // namespace

void EventLog::tell(std::string_view kind, const std::string &text, std::initializer_list<EventField> fields) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (json_)
        out("{}\n", jsonLine(Json(eventJson(kind, fields)).get()));
    else
        out("{}  {}{}\n", paint(Colour::Dim, timeOfDay()), paint(colourOf(kind), fmt::format("{:<{}}", kind, KIND_WIDTH)), text);
    outputFlush();
}

} // namespace tavctl
