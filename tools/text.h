// Numbers and times as people read them.
#pragma once

#include <cstdint>
#include <string>

namespace tvr {

std::string grouped(std::uint64_t number);      // 1,234,567
std::string date_text(std::uint32_t minutes);   // of minutes since 1601: 2002-08-22; "-" for none
std::string iso_time(std::uint64_t file_time);  // of the same as below: 2002-08-22T18:30:05Z
std::string time_text(std::uint64_t file_time); // of 100 ns units since 1601: 2002-08-22 18:30:05 UTC

} // namespace tvr
