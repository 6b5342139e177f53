// The tokens of the header of a mail.
#pragma once

#include <string>
#include <string_view>

#include "client/header_shape.h"
#include "client/mail/encoded_words.h"
#include "client/mail_links.h"
#include "client/mail_tokens.h"
#include "client/mail_words.h"

namespace tvr {

enum class header_kind { words, addresses, received, marked, ignored };

class mail_headers {
public:
    mail_headers(mail_tokens& tokens, mail_words& words, mail_links& links)
        : m_tokens(tokens), m_words(words), m_links(links) {}

    void clear() { m_lines = {}; }
    // One field: its name, and its value as it stands in the mail, whose bytes must stay until lines() was
    // seen.
    void field(std::string_view name, std::string_view raw_value);
    // After the last field: what is missing, and how the whole is made.
    void end();

    [[nodiscard]] const header_lines& lines() const noexcept { return m_lines; }

private:
    void tokens_of_field(header_kind kind, std::string_view value);
    void addresses(std::string_view name, std::string_view value);
    void received(std::string_view value);
    void subject_shape(std::string_view subject);
    void absent_fields();

    mail_tokens& m_tokens;
    mail_words& m_words;
    mail_links& m_links;
    header_lines m_lines;
    std::string m_name; // in lower case
    word_decoder m_decoder;
    std::string m_names; // of an address field, what is no address
    std::string m_charset_room;
};

} // namespace tvr
