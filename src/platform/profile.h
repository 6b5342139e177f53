// Ini files: sections in brackets, lines "key=value". Sections and keys match in either case.
#pragma once

#include <cstdint>
#include <string_view>

namespace tvr::platform {

// The integer of a key, or `fallback` if file, section or key is missing. Text that is no number gives 0.
std::int32_t profile_int(std::string_view section, std::string_view key, std::int32_t fallback,
                         std::string_view path);
// Writes one key, keeping every other line of the file as it is; makes file and section if need be.
bool write_profile_string(std::string_view section, std::string_view key, std::string_view value,
                          std::string_view path);

} // namespace tvr::platform
