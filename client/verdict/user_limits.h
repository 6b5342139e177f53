// What the user has set about the verdict: from which score on a message may be spam, and how much good mail
// may go wrong.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "client/verdict/judge.h"

namespace tvr {

// "spam threshold" of tessivar.ini, and "false positives" of tvrctl.ini in the working directory.
[[nodiscard]] spam_limits limits_of_user(std::string_view working_directory);

// Good messages called spam that are allowed, of 100,000; all of them is no limit.
namespace false_positives {
constexpr std::uint32_t all = 100'000, usual = 100;
constexpr const char* key = "false positives";

[[nodiscard]] std::uint32_t get(std::string_view working_directory);
// False if the file can't be written.
bool set(std::string_view working_directory, std::uint32_t allowed);
[[nodiscard]] std::string path(std::string_view working_directory); // of the file
} // namespace false_positives

} // namespace tvr
