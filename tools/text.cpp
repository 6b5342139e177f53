#include "tools/text.h"

#include <cstdio>

#include "client/mail/utf8.h"
#include "common/minutes.h"
#include "common/text.h"
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

std::string printable(std::string_view text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t from = at;
        const char32_t code = next_code_point(text, at);
        const std::string_view bytes = text.substr(from, at - from);
        const bool is_broken = bytes.size() == 1 && static_cast<unsigned char>(bytes[0]) >= 0x80;
        if (!is_broken && code >= 0x20 && (code < 0x7F || code > 0x9F)) {
            out += bytes;
            continue;
        }
        for (const char c : bytes)
            out += "\\x" + to_hex(static_cast<unsigned char>(c), 2);
    }
    return out;
}

} // namespace tvr
