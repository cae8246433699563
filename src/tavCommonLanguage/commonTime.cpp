// Points in time as rules write them.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavTime.h"

namespace {

constexpr std::string_view weekdayNames[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
constexpr std::string_view monthNames[] = {"jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"};

bool equalsAnyCase(std::string_view text, std::string_view lower) noexcept {
    return std::equal(text.begin(), text.end(), lower.begin(), lower.end(), [](char a, char b) { return tavAsciiLower(a) == b; });
}

template <size_t count>
int32_t indexOfName(const std::string_view (&names)[count], std::string_view text) noexcept {
    for (size_t i = 0; i < count; ++i) {
        if (equalsAnyCase(text, names[i])) return static_cast<int32_t>(i);
    }
    return -1;
}

// One to nine digits and nothing else.
int32_t numberOf(std::string_view text) noexcept {
    if (text.empty() || text.size() > 9) return -1;
    int32_t number = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return -1;
        number = number * 10 + (c - '0');
    }
    return number;
}

int32_t filled(int32_t value, int32_t low, int32_t high, int32_t otherwise) noexcept {
    return value >= low && value <= high ? value : otherwise;
}

} // namespace

time_op timeOpParse(const char *text) noexcept {
    std::string_view fields[7];
    std::string_view rest = tavView(text);
    for (std::string_view &field : fields) {
        const size_t end = std::min(rest.find_first_of("/:"), rest.size());
        field = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return {indexOfName(weekdayNames, fields[0]),
            numberOf(fields[1]),
            indexOfName(monthNames, fields[2]),
            numberOf(fields[3]),
            numberOf(fields[4]),
            numberOf(fields[5]),
            numberOf(fields[6])};
}

time_op timeOpFromSeconds(time_t seconds) noexcept {
    struct tm local {};
    tavLocalTime(&seconds, &local);
    return {local.tm_wday, local.tm_mday, local.tm_mon, local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec};
}

int diffTimeOps(const time_op *now, const time_op *bound) noexcept {
    constexpr int32_t time_op::*order[] = {&time_op::year, &time_op::month, &time_op::day, &time_op::hour, &time_op::min};
    for (int32_t time_op::*field : order) {
        if (bound->*field < 0 || now->*field == bound->*field) continue;
        return now->*field > bound->*field ? 1 : 0;
    }
    return now->sec >= bound->sec ? 1 : 0;
}

int64_t timeOpToSeconds(const time_op *bound, int32_t currentYear) noexcept {
    struct tm local {};
    local.tm_year = (bound->year < 0 ? currentYear : bound->year) - 1900;
    local.tm_mon = filled(bound->month, 0, 11, 11);
    local.tm_mday = filled(bound->day, 1, 31, 31);
    local.tm_hour = filled(bound->hour, 0, 23, 23);
    local.tm_min = filled(bound->min, 0, 59, 59);
    local.tm_sec = filled(bound->sec, 0, 59, 59);
    local.tm_isdst = -1;
    return mktime(&local);
}
