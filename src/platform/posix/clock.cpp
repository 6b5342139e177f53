#include "platform/clock.h"

#include <cerrno>
#include <ctime>
#include <sched.h>

#include "platform/posix/file_state.h"

namespace tvr::platform {

namespace {

constexpr std::uint64_t ticks_per_second = 10'000'000;
constexpr std::uint64_t seconds_to_1970 = 11'644'473'600;
constexpr std::uint64_t ticks_per_day = ticks_per_second * 86'400;
constexpr int first_year = 1601;
constexpr int last_year = 30827;

bool is_leap(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int days_of(int year, int month) {
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap(year) ? 29 : days[month - 1];
}

bool is_valid(const calendar_time& time) {
    return time.year >= first_year && time.year <= last_year && time.month >= 1 && time.month <= 12 &&
           time.day >= 1 && time.day <= days_of(time.year, time.month) && time.hour >= 0 && time.hour < 24 &&
           time.minute >= 0 && time.minute < 60 && time.second >= 0 && time.second < 60;
}

// The date of a number of days since 1601-01-01.
void set_date(calendar_time& time, std::uint64_t days) {
    constexpr std::uint64_t days_in_400_years = 146'097;
    time.year = first_year + static_cast<int>(days / days_in_400_years) * 400;
    auto left = static_cast<int>(days % days_in_400_years);
    for (int length = 365; left >= length; length = is_leap(time.year) ? 366 : 365) {
        left -= length;
        ++time.year;
    }
    time.month = 1;
    while (left >= days_of(time.year, time.month))
        left -= days_of(time.year, time.month++);
    time.day = left + 1;
}

} // namespace

namespace posix {

std::uint64_t to_file_time(const timespec& time) noexcept {
    return (static_cast<std::uint64_t>(time.tv_sec) + seconds_to_1970) * ticks_per_second +
           static_cast<std::uint64_t>(time.tv_nsec) / 100;
}

timespec from_file_time(std::uint64_t time) noexcept {
    const auto seconds = static_cast<std::int64_t>(time / ticks_per_second);
    return {static_cast<time_t>(seconds - static_cast<std::int64_t>(seconds_to_1970)),
            static_cast<long>(time % ticks_per_second * 100)};
}

} // namespace posix

std::uint64_t system_time() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return posix::to_file_time(now);
}

calendar_time to_calendar(std::uint64_t file_time) noexcept {
    calendar_time time;
    set_date(time, file_time / ticks_per_day);
    const auto second = static_cast<int>(file_time % ticks_per_day / ticks_per_second);
    time.hour = second / 3600;
    time.minute = second / 60 % 60;
    time.second = second % 60;
    return time;
}

calendar_time local_time() noexcept {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    tzset();
    localtime_r(&now, &parts);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec};
}

std::uint64_t local_to_file_time(const calendar_time& local) noexcept {
    if (!is_valid(local))
        return 0;
    std::tm parts{};
    parts.tm_year = local.year - 1900;
    parts.tm_mon = local.month - 1;
    parts.tm_mday = local.day;
    parts.tm_hour = local.hour;
    parts.tm_min = local.minute;
    parts.tm_sec = local.second;
    parts.tm_isdst = -1;
    parts.tm_wday = -1;
    const std::time_t seconds = std::mktime(&parts);
    // The day of the week tells the second before 1970 from a failure.
    if (parts.tm_wday < 0)
        return 0;
    const std::uint64_t time = posix::to_file_time({seconds, 0});
    return time <= INT64_MAX ? time : 0;
}

std::uint32_t tick_count() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                                      static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000);
}

void sleep_for(std::uint32_t milliseconds) noexcept {
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    timespec left{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000 * 1'000'000)};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

} // namespace tvr::platform
