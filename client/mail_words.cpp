#include "client/mail_words.h"

#include "client/short_text.h"

namespace tvr {

using namespace std::string_view_literals;

void mail_words::add(std::string_view text, std::string_view kind, std::string_view prefix) {
    m_kind = kind;
    m_prefix = prefix;
    m_scanner.scan(text, *this);
}

void mail_words::word(std::string_view text) {
    if (m_spelling && (m_prefix.empty() || m_prefix == "subject:"))
        text = m_spelling->plain(text, m_plain);
    if (m_prefix.empty()) {
        if (text.size() >= 2)
            m_tokens.add(m_kind, text);
        return;
    }
    short_text prefixed;
    prefixed << m_prefix << text;
    m_tokens.add(m_kind, prefixed.view());
}

void mail_words::long_run(char first, std::size_t size) {
    short_text token;
    token << "M long "sv << m_prefix << std::string_view(&first, 1) << " "sv << size / 10 * 10;
    m_tokens.put(token.view());
}

} // namespace tvr
