#include "tools/text.h"

#include <cstdio>

#include "common/minutes.h"
#include "platform/clock.h"

namespace tvr {

std::string grouped(std::uint64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3; at -= 3)
        text.insert(at - 3, ",");
    return text;
}

std::string iso_time(std::uint64_t file_time) {
    const platform::calendar_time time = platform::to_calendar(file_time);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", time.year, time.month, time.day,
                  time.hour, time.minute, time.second);
    return text;
}

std::string time_text(std::uint64_t file_time) {
    std::string text = iso_time(file_time);
    text[10] = ' ';
    text.replace(19, 1, " UTC");
    return text;
}

std::string date_text(std::uint32_t minutes) {
    return minutes == 0 || minutes == no_minutes ? "-" : time_text(minutes * ticks_per_minute).substr(0, 10);
}

} // namespace tvr
