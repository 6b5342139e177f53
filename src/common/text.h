// Text helpers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tvr {

std::string_view trim(std::string_view text, std::string_view characters = " \t");
std::string to_lower(std::string_view text); // ASCII letters only
bool equals_ignoring_case(std::string_view a, std::string_view b);
bool starts_with_ignoring_case(std::string_view text, std::string_view start);

struct name_and_value {
    std::string name, value;
};
// A line "name = value" of a text settings file. Nothing for a blank line, a comment (";"), a line with
// no name or with no value. A quoted value ends at the next quote, another at ";" or at the line's end.
std::optional<name_and_value> parse_setting_line(std::string_view line);

std::string to_hex(std::uint32_t value, unsigned digits); // upper case, the low `digits` digits
std::optional<std::uint8_t> from_hex(std::string_view text, std::size_t position); // two upper-case digits

// The key of a token: the text itself, or its short form "h %08X" (over the order_hash of the text) when
// it is longer than the limit of its kind. "M " and "F " have no limit, "H " and no kind have
// `header_limit`, all other kinds `limit` (bytes of the text without its kind).
std::string shorten_token(std::string_view text, std::string_view kind, std::size_t limit,
                          std::size_t header_limit);

} // namespace tvr
