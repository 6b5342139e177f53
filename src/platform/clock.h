// Time: file times, calendar, tick counter.
#pragma once

#include <cstdint>

namespace tvr::platform {

struct calendar_time {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

std::uint64_t system_time() noexcept;                        // now, 100 ns units since 1601-01-01 UTC
calendar_time to_calendar(std::uint64_t file_time) noexcept; // UTC
calendar_time local_time() noexcept;                         // now, in the user's zone
std::uint64_t local_to_file_time(const calendar_time& local) noexcept; // 0 if it can't be converted
std::uint32_t tick_count() noexcept;                                   // milliseconds, wraps
void sleep_for(std::uint32_t milliseconds) noexcept;                   // 0 gives up the time slice

} // namespace tvr::platform
