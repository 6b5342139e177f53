#include "client/mail/field_scanner.h"

#include <algorithm>

namespace tvr {

namespace {

constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// A byte that can stand in the name of a field.
constexpr bool is_name(char c) {
    return c > ' ' && c < 127 && c != ':';
}

} // namespace

std::size_t find_line_end(std::string_view text, std::size_t at, char line_end) noexcept {
    return std::min(text.find(line_end, at), text.size());
}

char line_end_of(std::string_view text) noexcept {
    return text.find('\n') == std::string_view::npos ? '\r' : '\n';
}

bool next_field(std::string_view text, std::size_t& at, char line_end, header_field& field) noexcept {
    std::size_t end = find_line_end(text, at, line_end);
    const std::string_view line = text.substr(at, end - at);
    if (line.find_first_not_of('\r') == std::string_view::npos) {
        at = std::min(end + 1, text.size());
        return false;
    }
    const std::size_t name =
        static_cast<std::size_t>(std::find_if_not(line.begin(), line.end(), is_name) - line.begin());
    std::size_t colon = name;
    while (colon < line.size() && is_blank(line[colon]))
        ++colon;
    if (name == 0 || colon == line.size() || line[colon] != ':')
        return false;
    while (end + 1 < text.size() && is_blank(text[end + 1]))
        end = find_line_end(text, end + 1, line_end);
    field.name = line.substr(0, name);
    const std::size_t value = at + colon + 1;
    field.value = text.substr(value, end - value);
    while (field.value.ends_with('\r'))
        field.value.remove_suffix(1);
    at = std::min(end + 1, text.size());
    return true;
}

} // namespace tvr
