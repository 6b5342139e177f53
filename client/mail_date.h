// The dates of mail headers.
#pragma once

#include <cstdint>
#include <string_view>

namespace tvr {

// A date as in "Tue, 06 Aug 2002 11:05:28 +0100 (IST)" in minutes since 1601 UTC; 0 if it is none. Years
// of two digits, missing weekdays, seconds and zones are taken.
std::uint32_t minutes_from_mail_date(std::string_view text) noexcept;

// When a mail came in, in the same minutes, by the newest of its Received lines; 0 if that tells no time
// between 1990 and `latest`.
std::uint32_t arrival_time(std::string_view newest_hop, std::uint32_t latest) noexcept;

} // namespace tvr
