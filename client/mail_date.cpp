#include "client/mail_date.h"

#include <array>
#include <charconv>

#include "common/text.h"

namespace tvr {

namespace {

constexpr std::array<std::string_view, 12> month_names = {"jan", "feb", "mar", "apr", "may", "jun",
                                                          "jul", "aug", "sep", "oct", "nov", "dec"};
constexpr std::int64_t minutes_to_1970 = 194074560;  // from 1601
constexpr std::uint32_t minutes_to_1990 = 204593760; // the same

struct zone {
    std::string_view name;
    int minutes;
};
constexpr zone zones[] = {{"gmt", 0},    {"ut", 0},     {"utc", 0},    {"z", 0},      {"est", -300},
                          {"edt", -240}, {"cst", -360}, {"cdt", -300}, {"mst", -420}, {"mdt", -360},
                          {"pst", -480}, {"pdt", -420}, {"bst", 60},   {"ist", 60},   {"cet", 60},
                          {"cest", 120}, {"eet", 120},  {"jst", 540}};

// Days since 1970 of a date of the Gregorian calendar.
constexpr std::int64_t days_of(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const std::int64_t era = year / 400;
    const auto of_era = static_cast<unsigned>(year - era * 400);
    const unsigned of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    return era * 146097 + of_era * 365 + of_era / 4 - of_era / 100 + of_year - 719468;
}

struct fields {
    int year = -1, month = 0, day = 0, hour = -1, minute = 0, zone = 0;
};

bool number(std::string_view text, int& value) {
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    return failure == std::errc() && end == text.data() + text.size() && value >= 0;
}

void take_time(std::string_view word, fields& date) {
    const std::size_t colon = word.find(':');
    int hour = 0;
    int minute = 0;
    if (number(word.substr(0, colon), hour) &&
        number(word.substr(colon + 1, word.find(':', colon + 1) - colon - 1), minute) && hour < 24 &&
        minute < 60) {
        date.hour = hour;
        date.minute = minute;
    }
}

void take_name(std::string_view word, fields& date) {
    for (unsigned i = 0; i < month_names.size(); ++i)
        if (starts_with_ignoring_case(word, month_names[i]))
            date.month = static_cast<int>(i) + 1;
    for (const zone& known : zones)
        if (equals_ignoring_case(word, known.name))
            date.zone = known.minutes;
}

void take_number(std::string_view word, fields& date) {
    int value = 0;
    if (!number(word, value))
        return;
    if (date.day == 0 && word.size() <= 2)
        date.day = value;
    else if (date.year < 0 && word.size() <= 4)
        date.year =
            word.size() > 2 ? (value < 1000 ? value + 1900 : value) : value + (value < 70 ? 2000 : 1900);
}

void take_word(std::string_view word, fields& date) {
    const char first = word[0];
    int offset = 0;
    if ((first == '+' || first == '-') && word.size() == 5 && number(word.substr(1), offset) &&
        offset % 100 < 60 && offset <= 1400)
        date.zone = (offset / 100 * 60 + offset % 100) * (first == '-' ? -1 : 1);
    else if (word.find(':') != std::string_view::npos)
        take_time(word, date);
    else if (first >= '0' && first <= '9')
        take_number(word, date);
    else
        take_name(word, date);
}

} // namespace

std::uint32_t minutes_from_mail_date(std::string_view text) noexcept {
    text = text.substr(0, 128);
    fields date;
    for (std::size_t at = 0; at < text.size() && text[at] != '(';) {
        const auto ends = [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == ',' || c == '('; };
        const std::size_t start = at;
        // "06-Aug-2002" counts as three words.
        while (at < text.size() && !ends(text[at]) && !(text[at] == '-' && at > start && at - start < 4))
            ++at;
        if (at > start)
            take_word(text.substr(start, at - start), date);
        if (at < text.size() && text[at] != '(')
            ++at;
    }
    if (date.year < 1970 || date.year > 2200 || date.month == 0 || date.day < 1 || date.day > 31 ||
        date.hour < 0)
        return 0;
    const std::int64_t minutes =
        days_of(date.year, static_cast<unsigned>(date.month), static_cast<unsigned>(date.day)) * 1440 +
        date.hour * 60 + date.minute - date.zone + minutes_to_1970;
    return minutes > minutes_to_1970 ? static_cast<std::uint32_t>(minutes) : 0;
}

std::uint32_t arrival_time(std::string_view newest_hop, std::uint32_t latest) noexcept {
    const std::uint32_t minutes = minutes_from_mail_date(newest_hop.substr(newest_hop.rfind(';') + 1));
    return minutes >= minutes_to_1990 && minutes <= latest ? minutes : 0;
}

} // namespace tvr
