// The tokens of the words of a text.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "client/look_alikes.h"
#include "client/mail_links.h"
#include "client/mail_tokens.h"
#include "client/word_scanner.h"

namespace tvr {

class mail_words final : private word_sink {
public:
    // `spelling` is asked for the words of subject and body; null for none.
    mail_words(mail_tokens& tokens, mail_links& links, std::shared_ptr<const look_alikes> spelling)
        : m_tokens(tokens), m_links(links), m_spelling(std::move(spelling)) {}

    // Makes tokens of a kind ("H ") from the words of a text in UTF-8, each with the prefix ("subject:") in
    // front; without one, words of one byte are left out. Links and addresses in the text go to mail_links.
    void add(std::string_view text, std::string_view kind, std::string_view prefix = {});

private:
    void word(std::string_view text) override;
    void long_run(char first, std::size_t size) override;
    void link(std::string_view address) override { m_links.link(address); }
    void mail_address(std::string_view address) override { m_links.mail_address(address); }

    mail_tokens& m_tokens;
    mail_links& m_links;
    std::shared_ptr<const look_alikes> m_spelling;
    std::string m_plain;
    word_scanner m_scanner;
    std::string_view m_kind;
    std::string_view m_prefix;
};

} // namespace tvr
