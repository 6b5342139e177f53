#include "client/mail_headers.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "client/charset.h"
#include "client/mail_walk.h"
#include "client/short_text.h"
#include "common/text.h"

namespace tvr {

namespace {

using namespace std::string_view_literals;

constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

enum class header_kind { words, addresses, received, marked, ignored };

// Headers that are not to be taken as plain words; in ascending order.
constexpr std::pair<std::string_view, header_kind> known_headers[] = {
    {"bcc", header_kind::addresses},          {"cc", header_kind::addresses},
    {"content-length", header_kind::ignored}, {"content-transfer-encoding", header_kind::ignored},
    {"content-type", header_kind::ignored},   {"date", header_kind::ignored},
    {"delivered-to", header_kind::ignored},   {"delivery-date", header_kind::ignored},
    {"dkim-signature", header_kind::marked},  {"domainkey-signature", header_kind::marked},
    {"envelope-to", header_kind::ignored},    {"errors-to", header_kind::ignored},
    {"from", header_kind::addresses},         {"in-reply-to", header_kind::marked},
    {"lines", header_kind::ignored},          {"message-id", header_kind::marked},
    {"precedence", header_kind::ignored},     {"received", header_kind::received},
    {"references", header_kind::marked},      {"reply-to", header_kind::addresses},
    {"resent-from", header_kind::addresses},  {"return-path", header_kind::addresses},
    {"sender", header_kind::ignored},         {"status", header_kind::ignored},
    {"to", header_kind::addresses},           {"x-authentication-warning", header_kind::ignored},
    {"x-keywords", header_kind::ignored},     {"x-status", header_kind::ignored},
    {"x-uid", header_kind::ignored},          {"x-uidl", header_kind::ignored},
};
static_assert(std::is_sorted(std::begin(known_headers), std::end(known_headers),
                             [](const auto& a, const auto& b) { return a.first < b.first; }));

header_kind kind_of_header(std::string_view name) {
    // The verdicts of filters, this one's too, and what mailing lists put into every message that passes
    // them, spam or not.
    for (const auto start :
         {"x-tessivar"sv, "x-spam"sv, "x-bogosity"sv, "x-virus"sv, "x-mozilla-"sv, "list-"sv, "x-mailman"sv,
          "x-beenthere"sv, "x-list"sv, "x-original"sv, "mailing-list"sv})
        if (name.starts_with(start))
            return header_kind::ignored;
    const auto* const found =
        std::lower_bound(std::begin(known_headers), std::end(known_headers), name,
                         [](const auto& known, std::string_view n) { return known.first < n; });
    return found != std::end(known_headers) && found->first == name ? found->second : header_kind::words;
}

} // namespace

void mail_headers::subject_shape(std::string_view subject) {
    std::size_t letters = 0, capitals = 0, blanks = 0, longest_blank = 0;
    for (const char c : subject) {
        capitals += c >= 'A' && c <= 'Z';
        letters += lower(c) >= 'a' && lower(c) <= 'z';
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
    std::string names; // what is no address
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
            names.append(piece).push_back(' ');
            continue;
        }
        if (++count <= 20) {
            short_text token;
            token << "F "sv << prefix.view() << piece;
            m_tokens.put(token.lower_from(2).view());
            m_links.host(prefix.view(), piece.substr(sign + 1));
        }
    }
    m_words.add(names, "H ", prefix.view());
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

void mail_headers::tokens_of_field(std::string_view name, std::string_view value) {
    const header_kind kind = kind_of_header(name);
    if (kind == header_kind::ignored)
        return;
    m_tokens.put((short_text() << "M header:"sv << name).view());
    if (kind == header_kind::received) {
        received(value);
        return;
    }
    std::string_view shown = value;
    if (value.find("=?") != std::string_view::npos) {
        m_decoded = decode_words(value.substr(0, 4096));
        shown = m_decoded;
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

void mail_headers::keep_line(std::string_view value) {
    value = value.substr(0, 1024);
    const auto keep = [&](std::string_view name, std::string& target) {
        if (target.empty() && m_name == name)
            target = value;
    };
    keep("message-id", m_lines.message_id);
    keep("subject", m_lines.subject);
    keep("date", m_lines.date);
    keep("from", m_lines.from);
    keep("to", m_lines.to);
    keep("reply-to", m_lines.reply_to);
    keep("return-path", m_lines.return_path);
    keep("received", m_lines.newest_hop);
    if (m_name == "received") {
        m_lines.oldest_hop = value;
        ++m_lines.hops;
    }
}

void mail_headers::field(std::string_view name, std::string_view raw_value) {
    const std::string_view value = trim(raw_value, " \t\r\n");
    name = name.substr(0, 60);
    m_name.resize(name.size());
    std::transform(name.begin(), name.end(), m_name.begin(), lower);
    keep_line(value);
    tokens_of_field(m_name, value);
}

void mail_headers::end() {
    absent_fields();
    header_marks(m_lines, [this](std::string_view text) { m_tokens.mark(text); });
}

} // namespace tvr
