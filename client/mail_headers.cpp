#include "client/mail_headers.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "client/mail/charset.h"
#include "client/short_text.h"
#include "common/text.h"
#include "platform/ascii.h"

namespace tvr {

namespace {

using namespace std::string_view_literals;

struct known_header {
    std::string_view name;
    header_kind kind = header_kind::words;
    std::string_view header_lines::*line = nullptr; // where its first value is kept
};

// Headers that are not to be taken as plain words, or are kept; in ascending order.
constexpr known_header known_headers[] = {
    {"bcc", header_kind::addresses},
    {"cc", header_kind::addresses},
    {"date", header_kind::ignored, &header_lines::date},
    {"delivered-to", header_kind::ignored},
    {"delivery-date", header_kind::ignored},
    {"dkim-signature", header_kind::marked},
    {"domainkey-signature", header_kind::marked},
    {"envelope-to", header_kind::ignored},
    {"errors-to", header_kind::ignored},
    {"from", header_kind::addresses, &header_lines::from},
    {"in-reply-to", header_kind::marked},
    {"lines", header_kind::ignored},
    {"message-id", header_kind::marked, &header_lines::message_id},
    {"precedence", header_kind::ignored},
    {"received", header_kind::received},
    {"references", header_kind::marked},
    {"reply-to", header_kind::addresses, &header_lines::reply_to},
    {"resent-from", header_kind::addresses},
    {"return-path", header_kind::addresses, &header_lines::return_path},
    {"sender", header_kind::ignored},
    {"status", header_kind::ignored},
    {"subject", header_kind::words, &header_lines::subject},
    {"to", header_kind::addresses, &header_lines::to},
    {"x-authentication-warning", header_kind::ignored},
    {"x-keywords", header_kind::ignored},
    {"x-status", header_kind::ignored},
    {"x-uid", header_kind::ignored},
    {"x-uidl", header_kind::ignored},
};
static_assert(std::is_sorted(std::begin(known_headers), std::end(known_headers),
                             [](const auto& a, const auto& b) { return a.name < b.name; }));

// The verdicts of filters, this one's too, and what mailing lists put into every message that passes them,
// spam or not. What is said about the content stands with its part.
bool is_ignored(std::string_view name) {
    if (name.empty() || "clmx"sv.find(name[0]) == std::string_view::npos)
        return false;
    for (const auto start :
         {"x-tessivar"sv, "x-spam"sv, "x-bogosity"sv, "x-virus"sv, "x-mozilla-"sv, "list-"sv, "x-mailman"sv,
          "x-beenthere"sv, "x-list"sv, "x-original"sv, "mailing-list"sv, "content-"sv})
        if (name.starts_with(start))
            return true;
    return false;
}

known_header find_header(std::string_view name) {
    if (is_ignored(name))
        return {name, header_kind::ignored};
    const auto* const found =
        std::lower_bound(std::begin(known_headers), std::end(known_headers), name,
                         [](const auto& known, std::string_view n) { return known.name < n; });
    return found != std::end(known_headers) && found->name == name ? *found : known_header{name};
}

} // namespace

void mail_headers::subject_shape(std::string_view subject) {
    std::size_t letters = 0, capitals = 0, blanks = 0, longest_blank = 0;
    for (const char c : subject) {
        capitals += is_capital(c);
        letters += is_letter(c);
        blanks = c == ' ' || c == '\t' ? blanks + 1 : 0;
        longest_blank = std::max(longest_blank, blanks);
    }
    if (letters >= 6 && capitals * 10 > letters * 8)
        m_tokens.mark("subject capitals");
    if (longest_blank >= 5)
        m_tokens.mark("subject gap");
    if (!is_ascii(subject))
        m_tokens.mark("subject raw");
}

void mail_headers::addresses(std::string_view name, std::string_view value) {
    short_text prefix;
    prefix << name << ":"sv;
    unsigned count = 0;
    std::size_t word_start = 0;
    m_names.clear();
    for (std::size_t at = 0; at <= value.size(); ++at) {
        const char c = at < value.size() ? value[at] : ' ';
        const bool ends = static_cast<unsigned char>(c) <= ' ' || c == '<' || c == '>' || c == ',' ||
                          c == ';' || c == '(' || c == ')' || c == '"' || c == ':';
        if (!ends)
            continue;
        const std::string_view piece = value.substr(word_start, at - word_start);
        word_start = at + 1;
        const std::size_t sign = piece.rfind('@');
        if (sign == std::string_view::npos || sign + 1 == piece.size()) {
            m_names.append(piece).push_back(' ');
            continue;
        }
        if (++count <= 20) {
            short_text token;
            token << "F "sv << prefix.view() << piece;
            m_tokens.put(token.lower_from(2).view());
            m_links.host(prefix.view(), piece.substr(sign + 1));
        }
    }
    m_words.add(m_names, "H ", prefix.view());
    if (count != 1)
        m_tokens.put((short_text() << "M "sv << name << " count "sv << power_of_two_below(count)).view());
}

void mail_headers::received(std::string_view value) {
    // The hosts, addresses and names of the one line; not its ids and dates.
    const std::string_view line = value.substr(0, std::min(value.find(';'), std::size_t{1024}));
    std::size_t start = 0;
    for (std::size_t at = 0; at <= line.size(); ++at) {
        const char c = at < line.size() ? line[at] : ' ';
        if (static_cast<unsigned char>(c) > ' ' && c != '[' && c != ']' && c != '(' && c != ')' && c != '@' &&
            c != '<' && c != '>' && c != '=' && c != ',')
            continue;
        const std::string_view piece = line.substr(start, at - start);
        start = at + 1;
        if (is_ip(piece) || (piece.find('.') != std::string_view::npos && !piece.ends_with('.') &&
                             piece.find_first_of("/:;") == std::string_view::npos && !is_digit(piece.back())))
            m_links.host("rcvd:", piece);
    }
}

void mail_headers::tokens_of_field(header_kind kind, std::string_view value) {
    if (kind == header_kind::ignored)
        return;
    const std::string_view name = m_name;
    m_tokens.put((short_text() << "M header:"sv << name).view());
    if (kind == header_kind::received) {
        received(value);
        return;
    }
    std::string_view shown = value;
    if (value.find("=?") != std::string_view::npos) {
        shown = m_decoder.decode(value.substr(0, 4096));
        const std::size_t sign = value.find("=?") + 2;
        m_tokens.mark_pair("encoded word:", value.substr(sign, value.find('?', sign) - sign));
    }
    const std::string_view utf8 = to_utf8(shown.substr(0, 4096), "", m_charset_room);
    short_text prefix;
    prefix << name.substr(0, 40) << ":"sv;
    switch (kind) {
    case header_kind::addresses:
        addresses(name.substr(0, 40), utf8);
        break;
    case header_kind::words:
        if (name == "subject") {
            subject_shape(value);
            m_words.add(utf8.substr(0, 1024), "B ");
        }
        m_words.add(utf8.substr(0, 1024), "H ", prefix.view());
        break;
    case header_kind::marked:
        if (const std::size_t at = value.find('@'); at != std::string_view::npos && name == "message-id")
            m_links.host("msgid:", value.substr(at + 1, value.find_first_of("> \t", at) - at - 1));
        break;
    default:
        break;
    }
}

void mail_headers::absent_fields() {
    if (m_lines.date.empty())
        m_tokens.mark("no date");
    if (m_lines.from.empty())
        m_tokens.mark("no from");
    if (m_lines.subject.empty())
        m_tokens.mark("no subject");
    if (m_lines.message_id.empty())
        m_tokens.mark("no message-id");
    if (m_lines.to.empty())
        m_tokens.mark("no to");
}

void mail_headers::field(std::string_view name, std::string_view raw_value) {
    const std::string_view value = trim(raw_value, " \t\r\n");
    name = name.substr(0, 60);
    m_name.resize(name.size());
    std::transform(name.begin(), name.end(), m_name.begin(), lower);
    const known_header known = find_header(m_name);
    const std::string_view kept = value.substr(0, 1024);
    if (known.line && (m_lines.*known.line).empty())
        m_lines.*known.line = kept;
    if (known.kind == header_kind::received) {
        if (m_lines.newest_hop.empty())
            m_lines.newest_hop = kept;
        m_lines.oldest_hop = kept;
        ++m_lines.hops;
    }
    tokens_of_field(known.kind, value);
}

void mail_headers::end() {
    absent_fields();
    header_marks(m_lines, [this](std::string_view text) { m_tokens.mark(text); });
}

} // namespace tvr
