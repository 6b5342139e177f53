// The system's time stamps: minutes since 1601-01-01 00:00 UTC.
#pragma once

#include <cstdint>
#include <string>

#include "platform/clock.h"

namespace tvr {

inline constexpr std::uint64_t ticks_per_minute = 600000000; // of a file time
inline constexpr std::uint32_t no_minutes = 0xFFFFFFFF;      // undefined, as is 0

std::uint32_t now_minutes();
// deliberate: no caller here.
std::uint32_t minutes_from_local(const platform::calendar_time* local); // 0 for null
// "dd/mm/yyyy, hh:mm" in UTC, or "<undefined>" for 0 and no_minutes.
std::string minutes_to_text(std::uint32_t minutes);

} // namespace tvr
