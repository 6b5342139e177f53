#include "platform/clock.h"

#include "platform/win32/file_state.h"
#include "platform/win32/system.h"

namespace tvr::platform {

namespace {

calendar_time calendar_of(const SYSTEMTIME& time) {
    return {time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond};
}

// False if a number is none of a calendar's.
bool put(WORD& field, int number) {
    field = static_cast<WORD>(number);
    return field == number;
}

} // namespace

std::uint64_t system_time() noexcept {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return win32::number_of(now);
}

calendar_time to_calendar(std::uint64_t file_time) noexcept {
    const FILETIME moment = win32::file_time_of(file_time);
    SYSTEMTIME parts{};
    FileTimeToSystemTime(&moment, &parts);
    return calendar_of(parts);
}

calendar_time local_time() noexcept {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return calendar_of(now);
}

std::uint64_t local_to_file_time(const calendar_time& local) noexcept {
    SYSTEMTIME parts{};
    FILETIME there{};
    FILETIME here{};
    const bool valid = put(parts.wYear, local.year) && put(parts.wMonth, local.month) &&
                       put(parts.wDay, local.day) && put(parts.wHour, local.hour) &&
                       put(parts.wMinute, local.minute) && put(parts.wSecond, local.second);
    return valid && SystemTimeToFileTime(&parts, &there) && LocalFileTimeToFileTime(&there, &here)
               ? win32::number_of(here)
               : 0;
}

std::uint32_t tick_count() noexcept {
    return GetTickCount();
}

void sleep_for(std::uint32_t milliseconds) noexcept {
    Sleep(milliseconds);
}

} // namespace tvr::platform
