#include "client/mail/parameters.h"

#include <algorithm>

#include "client/mail/charset.h"
#include "client/mail/transfer_encoding.h"
#include "common/text.h"
#include "platform/ascii.h"

namespace tvr {

namespace {

constexpr bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::size_t pass_spaces(std::string_view text, std::size_t at) {
    while (at < text.size() && is_space(text[at]))
        ++at;
    return at;
}

// The place of the quote that closes a text, or the end.
std::size_t closing_quote(std::string_view text, std::size_t at) {
    while (at < text.size() && text[at] != '"')
        at += text[at] == '\\' ? 2 : 1;
    return std::min(at, text.size());
}

// The text between quotes, without its "\" escapes and its folds.
void append_unquoted(std::string& target, std::string_view text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\' && at + 1 < text.size())
            ++at;
        if (text[at] != '\r' && text[at] != '\n')
            target.push_back(text[at]);
    }
}

void append_unescaped(std::string& target, std::string_view text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        const int byte = text[at] == '%' ? hex_byte(text.substr(at + 1)) : -1;
        target.push_back(byte < 0 ? text[at] : static_cast<char>(byte));
        at += byte < 0 ? 0 : 2;
    }
}

} // namespace

parameter_set::parameter_set(std::initializer_list<std::string_view> names) {
    for (const std::string_view name : names)
        m_parameters.push_back({name, {}, false});
}

void parameter_set::clear() noexcept {
    for (parameter& each : m_parameters)
        each.found = false;
}

std::optional<std::string_view> parameter_set::text(std::size_t which) const noexcept {
    const parameter& asked = m_parameters[which];
    return asked.found ? std::optional<std::string_view>(asked.text) : std::nullopt;
}

// "name", "name*", "name*1" or "name*1*".
bool parameter_set::name_piece(std::string_view name, piece& found) const {
    const std::size_t star = std::min(name.find('*'), name.size());
    const auto wanted = std::find_if(m_parameters.begin(), m_parameters.end(), [&](const parameter& each) {
        return equals_ignoring_case(each.name, name.substr(0, star));
    });
    if (wanted == m_parameters.end())
        return false;
    found.which = static_cast<std::size_t>(wanted - m_parameters.begin());
    found.escaped = star < name.size() && name.ends_with('*');
    found.number = 0;
    std::size_t at = star + 1;
    for (; at < name.size() && is_digit(name[at]) && found.number < 1000; ++at)
        found.number = found.number * 10 + static_cast<unsigned>(name[at] - '0');
    found.whole = at == star + 1 || at > name.size();
    return true;
}

void parameter_set::parse(std::string_view text) {
    clear();
    m_pieces.clear();
    for (std::size_t at = 0; at < text.size() && m_pieces.size() < most_pieces;) {
        const std::size_t start = at;
        while (at < text.size() && !is_space(text[at]) && text[at] != ';' && text[at] != '=' &&
               text[at] != '"')
            ++at;
        const std::string_view name = text.substr(start, at - start);
        at = pass_spaces(text, at);
        if (at == text.size() || text[at] != '=') {
            if (at < text.size() && (text[at] == ';' || at == start)) {
                // A quoted text without a name hides what is in it.
                at = text[at] == '"' ? closing_quote(text, at + 1) + 1 : at + 1;
            }
            continue;
        }
        at = pass_spaces(text, at + 1);
        piece found;
        const bool wanted = name_piece(name, found);
        std::size_t end;
        if (at < text.size() && text[at] == '"') {
            found.quoted = true;
            end = closing_quote(text, ++at);
            found.text = text.substr(at, end - at);
            ++end;
        } else {
            // A file name may have blanks; what follows a line break is hardly part of it.
            end = std::min(text.find_first_of(";\r\n", at), text.size());
            found.text = trim(text.substr(at, end - at), " \t");
        }
        if (wanted)
            m_pieces.push_back(found);
        at = std::min(end, text.size());
    }
    for (std::size_t which = 0; which < m_parameters.size(); ++which)
        assemble(which);
}

void parameter_set::assemble(std::size_t which) {
    parameter& target = m_parameters[which];
    target.text.clear();
    const auto is_ours = [&](const piece& each) { return each.which == which; };
    auto first = std::find_if(m_pieces.begin(), m_pieces.end(), is_ours);
    if (first == m_pieces.end())
        return;
    target.found = true;
    // A text in pieces is a newer form than a whole one beside it.
    const bool in_pieces =
        std::any_of(first, m_pieces.end(), [&](const piece& each) { return is_ours(each) && !each.whole; });
    if (in_pieces)
        std::stable_sort(first, m_pieces.end(),
                         [](const piece& a, const piece& b) { return a.number < b.number; });
    m_bytes.clear();
    std::string_view charset;
    bool escaped = false;
    for (auto each = first; each != m_pieces.end(); ++each) {
        if (!is_ours(*each) || (in_pieces && each->whole))
            continue;
        std::string_view text = each->text;
        if (each->escaped && m_bytes.empty() && !escaped) {
            const std::size_t language = text.find('\'');
            const std::size_t start =
                language == std::string_view::npos ? language : text.find('\'', language + 1);
            if (start != std::string_view::npos) {
                charset = text.substr(0, language);
                text.remove_prefix(start + 1);
            }
        }
        escaped = escaped || each->escaped;
        if (each->escaped)
            append_unescaped(m_bytes, text);
        else if (each->quoted)
            append_unquoted(m_bytes, text);
        else
            m_bytes.append(text);
        if (!in_pieces)
            break;
    }
    target.text = escaped ? to_utf8(m_bytes, charset, m_room) : std::string_view(m_bytes);
}

} // namespace tvr
