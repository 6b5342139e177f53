// The tokens of links, mail addresses and hosts.
#pragma once

#include <cstddef>
#include <string_view>

#include "client/mail_tokens.h"
#include "client/word_scanner.h"

namespace tvr {

class mail_links final : private word_sink {
public:
    explicit mail_links(mail_tokens& tokens) : m_tokens(tokens) {}

    void clear() noexcept { m_count = 0; }
    [[nodiscard]] std::size_t count() const noexcept { return m_count; }

    // An address as it stands in a text or an attribute. Those beyond html_text::most_links are only counted.
    void link(std::string_view address) override;
    // The host after the last "@".
    void mail_address(std::string_view address) override;
    // A host with the domains above it, or an address with its nets: "F ", the prefix ("link:") and each.
    void host(std::string_view prefix, std::string_view name);

private:
    // Of the path.
    void word(std::string_view text) override;
    void long_run(char first, std::size_t size) override;

    mail_tokens& m_tokens;
    std::size_t m_count = 0;
};

} // namespace tvr
