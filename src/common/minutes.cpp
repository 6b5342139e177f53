#include "common/minutes.h"

#include <cstdio>

namespace tvr {

std::uint32_t now_minutes() {
    return static_cast<std::uint32_t>(platform::system_time() / ticks_per_minute);
}

std::uint32_t minutes_from_local(const platform::calendar_time* local) {
    if (!local)
        return 0;
    return static_cast<std::uint32_t>(platform::local_to_file_time(*local) / ticks_per_minute);
}

std::string minutes_to_text(std::uint32_t minutes) {
    if (minutes == 0 || minutes == no_minutes)
        return "<undefined>";
    const auto t = platform::to_calendar(minutes * ticks_per_minute);
    char text[64];
    std::snprintf(text, sizeof text, "%02d/%02d/%04d, %02d:%02d", t.day, t.month, t.year, t.hour, t.minute);
    return text;
}

} // namespace tvr
