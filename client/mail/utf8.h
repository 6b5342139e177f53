// Looking at UTF-8, and writing it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tvr {

[[nodiscard]] bool is_ascii(std::string_view bytes) noexcept;
[[nodiscard]] bool is_utf8(std::string_view bytes) noexcept;

// The code point at `at`, which moves past it; U+FFFD, and one byte on, where there is none.
[[nodiscard]] char32_t next_code_point(std::string_view text, std::size_t& at) noexcept;

// Writes a code point to a room of 4 bytes. Its length; 0 for one that is none.
[[nodiscard]] std::size_t encode_utf8(std::uint32_t code, char* room) noexcept;
// Appends a code point in UTF-8; nothing for one that is none.
void append_utf8(std::string& text, std::uint32_t code);

} // namespace tvr
