// Numbers and times as people read them, and texts as numbers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tvr {

std::string grouped(std::uint64_t number);      // 1,234,567
std::string date_text(std::uint32_t minutes);   // of minutes since 1601: 2002-08-22; "-" for none
std::string iso_time(std::uint64_t file_time);  // of the same as below: 2002-08-22T18:30:05Z
std::string time_text(std::uint64_t file_time); // of 100 ns units since 1601: 2002-08-22 18:30:05 UTC

// The text with its control characters as \xNN, for a terminal. What is no UTF-8 is written so, too.
std::string printable(std::string_view text);

} // namespace tvr
