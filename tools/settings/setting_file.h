// The text files of settings, and changes of single lines in them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tvr {

inline constexpr std::uint64_t largest_setting_file = std::uint64_t{1}
                                                      << 20; // bytes; the engine reads no larger one

// The content of the file; an empty text if there is none. The reason if it can't be used, or an empty text.
[[nodiscard]] std::string read_setting_file(const std::string& path, std::string& text);
// Replaces the file in one step, with its permissions. The reason of a failure, or an empty text.
[[nodiscard]] std::string write_setting_file(const std::string& path, const std::string& text);
// The text of a settings file with the line of one key changed, or added at the end. Of several lines the
// last one counts. Comments stay. Nothing if such a file can't hold the value.
[[nodiscard]] std::optional<std::string> with_setting(std::string_view text, std::string_view key,
                                                      std::string_view value);

} // namespace tvr
