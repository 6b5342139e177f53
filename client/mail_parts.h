// The tokens of the parts of a mail.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "client/html_text.h"
#include "client/mail/mail_reader.h"
#include "client/mail_links.h"
#include "client/mail_tokens.h"
#include "client/mail_words.h"

namespace tvr {

class mail_parts {
public:
    mail_parts(const tokenizer_limits& limits, mail_tokens& tokens, mail_words& words, mail_links& links)
        : m_limits(limits), m_tokens(tokens), m_words(words), m_links(links) {}

    void clear();
    // See mail_visitor.
    void multipart(std::string_view subtype);
    void message(std::string_view subject);
    std::size_t part(const mail_part& described);
    void text(const mail_part& described, std::string_view decoded);

    [[nodiscard]] std::size_t text_seen() const noexcept { return m_text_seen; } // bytes of UTF-8

private:
    void text_shape(std::string_view text, std::string_view type);

    const tokenizer_limits& m_limits;
    mail_tokens& m_tokens;
    mail_words& m_words;
    mail_links& m_links;
    html_text m_html;
    std::size_t m_text_left = 0;
    std::size_t m_text_seen = 0;
    std::string m_charset_room;
};

} // namespace tvr
