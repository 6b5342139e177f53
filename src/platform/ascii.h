// Letters and digits of ASCII, whatever the locale. All other bytes are neither, and have no case.
#pragma once

namespace tvr {

constexpr bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}
constexpr bool is_capital(char c) noexcept {
    return c >= 'A' && c <= 'Z';
}
constexpr bool is_letter(char c) noexcept {
    return is_capital(c) || (c >= 'a' && c <= 'z');
}
constexpr char lower(char c) noexcept {
    return is_capital(c) ? static_cast<char>(c + ('a' - 'A')) : c;
}

} // namespace tvr
