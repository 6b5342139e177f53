// Looking at UTF-8.
#pragma once

#include <cstddef>
#include <string_view>

namespace tvr {

[[nodiscard]] bool is_ascii(std::string_view bytes) noexcept;
[[nodiscard]] bool is_utf8(std::string_view bytes) noexcept;

// The code point at `at`, which moves behind it; U+FFFD, and one byte on, where there is none.
[[nodiscard]] char32_t next_code_point(std::string_view text, std::size_t& at) noexcept;

} // namespace tvr
