// The fields of a header, one by one.
#pragma once

#include <cstddef>
#include <string_view>

namespace tvr {

struct header_field {
    std::string_view name;  // without the blanks before the colon
    std::string_view value; // after the colon, with its folds, without the last line break
};

// The end of the line that begins at `at`: the place of its line break, or the end of the text. `line_end` is
// "\n" or, in a mail whose lines end so, "\r".
[[nodiscard]] std::size_t find_line_end(std::string_view text, std::size_t at, char line_end) noexcept;

// What ends the lines of a text: "\n", perhaps after "\r"; in one without any "\n", a bare "\r".
[[nodiscard]] char line_end_of(std::string_view text) noexcept;

// Reads the field at `at`, which moves past it. False where there is none: at an empty line, which `at`
// moves past, at a line that is no field, where the body begins, or at the end.
bool next_field(std::string_view text, std::size_t& at, char line_end, header_field& field) noexcept;

} // namespace tvr
