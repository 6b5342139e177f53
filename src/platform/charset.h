// The system's own tables of charsets.
#pragma once

#include <array>
#include <cstdint>

namespace tvr::platform {

using pair_row = std::array<char16_t, 256>;

// The characters of the pairs of bytes that begin with `first` in a Windows code page (932, 936, 949, 950),
// by the second byte; 0 where there is none. False, with the reason in last_error(), if the system doesn't
// know the page.
bool read_pair_row(unsigned code_page, std::uint8_t first, pair_row& row);

} // namespace tvr::platform
