#include "client/mail_tokens.h"

#include "client/short_text.h"
#include "common/text.h"

namespace tvr {

using namespace std::string_view_literals;

std::size_t power_of_two_below(std::size_t number) noexcept {
    std::size_t power = 0;
    while (number >>= 1)
        ++power;
    return power;
}

void mail_tokens::put(std::string_view token) {
    m_table.mark(token, token_weight);
}

void mail_tokens::add(std::string_view kind, std::string_view text) {
    const bool limited = kind[0] != 'F' && kind[0] != 'M';
    const std::size_t limit = kind[0] == 'H' ? m_limits.header_word : m_limits.word;
    short_text token;
    token << kind;
    if (limited && text.size() > limit)
        token << shorten_token(text, kind, m_limits.word, m_limits.header_word);
    else
        token << text;
    put(token.view());
}

void mail_tokens::mark(std::string_view text) {
    put((short_text() << "M "sv << text).view());
}

void mail_tokens::mark(std::string_view text, std::size_t number) {
    put((short_text() << "M "sv << text << number).view());
}

void mail_tokens::mark_pair(std::string_view text, std::string_view value) {
    short_text token;
    token << "M "sv << text;
    const std::size_t start = token.size();
    token << value.substr(0, 60);
    put(token.lower_from(start).view());
}

} // namespace tvr
