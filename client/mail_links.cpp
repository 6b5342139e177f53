#include "client/mail_links.h"

#include <algorithm>

#include "client/header_shape.h"
#include "client/html_text.h"
#include "client/short_text.h"
#include "common/text.h"
#include "platform/ascii.h"

namespace tvr {

namespace {

using namespace std::string_view_literals;

} // namespace

void mail_links::host(std::string_view prefix, std::string_view name) {
    while (name.ends_with('.'))
        name.remove_suffix(1);
    if (name.empty() || name.size() > 128)
        return;
    short_text token;
    token << "F "sv << prefix;
    const std::size_t start = token.size();
    token << name;
    token.lower_from(start);
    m_tokens.put(token.view());
    if (is_ip(name)) {
        const std::size_t net = name.rfind('.');
        for (std::size_t end = net; end != std::string_view::npos && end > 0; end = name.rfind('.', end - 1))
            m_tokens.put(token.view().substr(0, start + end));
        return;
    }
    const std::string_view lowered = token.view().substr(start);
    for (std::size_t dot = lowered.find('.'), levels = 0; dot != std::string_view::npos && levels < 4;
         ++levels) {
        const std::size_t next = lowered.find('.', dot + 1);
        m_tokens.put((short_text() << "F "sv << prefix
                                   << lowered.substr(dot + (next == std::string_view::npos ? 0 : 1)))
                         .view());
        dot = next;
    }
}

void mail_links::link(std::string_view address) {
    if (++m_count > html_text::most_links)
        return;
    const std::size_t scheme = address.find(':');
    std::string_view rest = address;
    if (scheme != std::string_view::npos && scheme <= 10 &&
        address.substr(0, scheme).find_first_of("/.?") == std::string_view::npos) {
        if (!starts_with_ignoring_case(address, "http") && !starts_with_ignoring_case(address, "ftp"))
            m_tokens.mark_pair("scheme:", address.substr(0, scheme));
        if (starts_with_ignoring_case(address, "mailto:")) {
            mail_address(address.substr(7, address.find('?') - 7));
            return;
        }
        rest = address.substr(scheme + 1);
        if (!rest.starts_with("//"))
            return;
        rest.remove_prefix(2);
    } else if (rest.starts_with("//")) {
        rest.remove_prefix(2);
    } else if (!starts_with_ignoring_case(rest, "www.")) {
        return;
    }
    const std::size_t end = std::min(rest.find_first_of("/?#\\"), rest.size());
    std::string_view authority = rest.substr(0, end);
    const std::size_t user = authority.rfind('@');
    if (user != std::string_view::npos) {
        m_tokens.mark("link user");
        authority.remove_prefix(user + 1);
    }
    const std::size_t port = authority.find(':');
    if (port != std::string_view::npos) {
        m_tokens.mark_pair("link port:", authority.substr(port + 1));
        authority = authority.substr(0, port);
    }
    if (authority.find('%') != std::string_view::npos)
        m_tokens.mark("link escaped");
    if (!authority.empty() &&
        authority.find_first_not_of("0123456789.xXabcdefABCDEF") == std::string_view::npos &&
        is_digit(authority[0]))
        m_tokens.mark("link ip");
    host("link:", authority);
    const std::string_view path = rest.substr(end);
    if (path.size() > 1) {
        word_scanner scanner;
        scanner.scan(path.substr(0, 256), *this);
    }
}

void mail_links::mail_address(std::string_view address) {
    const std::size_t at = address.rfind('@');
    if (at != std::string_view::npos && at + 1 < address.size())
        host("mail:", address.substr(at + 1));
}

void mail_links::word(std::string_view text) {
    if (text.size() >= 2)
        m_tokens.add("U ", text);
}

void mail_links::long_run(char first, std::size_t size) {
    m_tokens.put(
        (short_text() << "M long "sv << std::string_view(&first, 1) << " "sv << size / 10 * 10).view());
}

} // namespace tvr
