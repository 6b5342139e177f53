#include "common/text.h"

#include <algorithm>
#include <cstdio>

#include "common/token_hash.h"
#include "platform/ascii.h"

namespace tvr {

namespace {

constexpr std::string_view hex_digits = "0123456789ABCDEF";
constexpr std::string_view blanks = " \t";

std::string_view skip(std::string_view text, std::string_view characters) {
    return text.substr(std::min(text.find_first_not_of(characters), text.size()));
}

} // namespace

std::string_view trim(std::string_view text, std::string_view characters) {
    text = skip(text, characters);
    return text.substr(0, text.find_last_not_of(characters) + 1);
}

std::string to_lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), lower);
    return result;
}

bool equals_ignoring_case(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

bool starts_with_ignoring_case(std::string_view text, std::string_view start) {
    return equals_ignoring_case(text.substr(0, start.size()), start);
}

std::optional<name_and_value> parse_setting_line(std::string_view line) {
    line = skip(line, blanks);
    if (line.empty() || line.front() == ';')
        return std::nullopt;
    const std::size_t sign = line.find('=');
    if (sign == std::string_view::npos || sign == 0)
        return std::nullopt;
    const std::string_view name = trim(line.substr(0, sign), blanks);
    std::string_view value = skip(line.substr(sign + 1), blanks);
    if (value.empty())
        return std::nullopt;
    const char end = value.front() == '"' ? '"' : ';';
    value = skip(value, " \"");
    return name_and_value{std::string(name), std::string(value.substr(0, value.find(end)))};
}

std::string to_hex(std::uint32_t value, unsigned digits) {
    std::string result(digits, '0');
    for (auto digit = result.rbegin(); digit != result.rend(); ++digit, value >>= 4)
        *digit = hex_digits[value & 15];
    return result;
}

std::optional<std::uint8_t> from_hex(std::string_view text, std::size_t position) {
    if (text.size() < 2 || position > text.size() - 2)
        return std::nullopt;
    const std::size_t high = hex_digits.find(text[position]);
    const std::size_t low = hex_digits.find(text[position + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos)
        return std::nullopt;
    return static_cast<std::uint8_t>(high * 16 + low);
}

std::string shorten_token(std::string_view text, std::string_view kind, std::size_t limit,
                          std::size_t header_limit) {
    const bool unlimited = kind == "M " || kind == "F ";
    const std::size_t allowed = kind.empty() || kind == "H " ? header_limit : limit;
    if (unlimited || text.size() <= allowed)
        return std::string(text);
    char short_form[16];
    std::snprintf(short_form, sizeof short_form, "h %08X", order_hash(text));
    return short_form;
}

} // namespace tvr
