#include "client/tokenizer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <utility>

#include <gmime/gmime.h>

#include "client/charset.h"
#include "client/header_shape.h"
#include "client/html_text.h"
#include "client/mail_date.h"
#include "client/word_scanner.h"
#include "common/text.h"
#include "common/token_hash.h"
#include "dict/message_record.h"

namespace tvr {

namespace {

using namespace std::string_view_literals;

struct gobject_deleter {
    void operator()(void* object) const noexcept { g_object_unref(object); }
};
template <class T>
using gobject = std::unique_ptr<T, gobject_deleter>;

constexpr char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}
constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view view_of(const char* text) {
    return text ? std::string_view(text) : std::string_view();
}

// A text of fixed room, for the making of tokens without an allocation. What doesn't fit is cut off.
class short_text {
public:
    short_text& operator<<(std::string_view text) {
        const std::size_t taken = std::min(text.size(), m_room.size() - m_size);
        std::copy_n(text.begin(), taken, m_room.begin() + static_cast<std::ptrdiff_t>(m_size));
        m_size += taken;
        return *this;
    }
    short_text& operator<<(std::size_t number) {
        std::array<char, 24> digits;
        const int length = std::snprintf(digits.data(), digits.size(), "%zu", number);
        return *this << std::string_view(digits.data(), static_cast<std::size_t>(length));
    }
    short_text& lower_from(std::size_t at) {
        std::transform(m_room.begin() + static_cast<std::ptrdiff_t>(at),
                       m_room.begin() + static_cast<std::ptrdiff_t>(m_size),
                       m_room.begin() + static_cast<std::ptrdiff_t>(at), lower);
        return *this;
    }
    [[nodiscard]] std::string_view view() const { return {m_room.data(), m_size}; }
    [[nodiscard]] std::size_t size() const { return m_size; }

private:
    std::array<char, token_table::longest> m_room;
    std::size_t m_size = 0;
};

std::size_t power_of_two_below(std::size_t number) {
    std::size_t power = 0;
    while (number >>= 1)
        ++power;
    return power;
}

// The count of a token in a message, however often it stands there: how many messages have a word tells more
// than how often they repeat it. With 3 it is graded from its second spam message or its first good one on.
constexpr std::uint32_t weight = 3;

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

class tokenizer::implementation final : public word_sink {
public:
    explicit implementation(const tokenizer_limits& limits) : m_limits(limits), m_tokens(limits.tokens) {
        ready_gmime();
    }

    void tokenize(std::string_view raw);
    [[nodiscard]] const token_table& tokens() const { return m_tokens; }
    [[nodiscard]] const mail_facts& facts() const { return m_facts; }

private:
    void word(std::string_view text) override;
    void long_run(char first, std::size_t size) override;
    void link(std::string_view address) override;
    void mail_address(std::string_view address) override;

    void put(std::string_view token) { m_tokens.mark(token, weight); }
    void add(std::string_view kind, std::string_view text);
    void mark(std::string_view text) { put((short_text() << "M "sv << text).view()); }
    void mark(std::string_view text, std::size_t number) {
        put((short_text() << "M "sv << text << number).view());
    }
    void mark_pair(std::string_view text, std::string_view value);
    void words(std::string_view text, std::string_view kind, std::string_view prefix);

    void headers(GMimeMessage* message);
    void header(std::string_view name, std::string_view value);
    void addresses(std::string_view name, std::string_view value);
    void received(std::string_view value);
    void host(std::string_view prefix, std::string_view name);
    void absent_headers();
    void subject_shape(std::string_view subject);
    void make_facts(std::string_view raw, std::string_view mbox_date);

    void part(GMimeObject* object, unsigned depth);
    void leaf(GMimePart* object);
    void text(std::string_view decoded, bool html, const char* charset);
    void text_shape(std::string_view text, std::string_view type);
    std::string_view content(GMimePart* object);

    tokenizer_limits m_limits;
    token_table m_tokens;
    mail_facts m_facts;
    word_scanner m_scanner;
    html_text m_html;

    std::string_view m_kind = "B ";
    std::string_view m_prefix;
    unsigned m_parts = 0;
    std::size_t m_text_left = 0;
    std::size_t m_text_seen = 0;
    std::size_t m_links = 0;
    std::string m_charset_room;
    std::string m_decoded;
    std::string m_header_name;
    header_lines m_lines;
};

tokenizer::tokenizer(const tokenizer_limits& limits) : m_it(std::make_unique<implementation>(limits)) {}
tokenizer::~tokenizer() = default;

void tokenizer::tokenize(std::string_view raw) {
    m_it->tokenize(raw);
}
const token_table& tokenizer::tokens() const noexcept {
    return m_it->tokens();
}
const mail_facts& tokenizer::facts() const noexcept {
    return m_it->facts();
}

// --- tokens

void tokenizer::implementation::add(std::string_view kind, std::string_view text) {
    const bool limited = kind != "F " && kind != "M ";
    const std::size_t limit = kind == "H " ? m_limits.header_word : m_limits.word;
    short_text token;
    token << kind;
    if (limited && text.size() > limit)
        token << shorten_token(text, kind, m_limits.word, m_limits.header_word);
    else
        token << text;
    put(token.view());
}

void tokenizer::implementation::mark_pair(std::string_view text, std::string_view value) {
    short_text token;
    token << "M "sv << text;
    const std::size_t start = token.size();
    token << value.substr(0, 60);
    put(token.lower_from(start).view());
}

void tokenizer::implementation::word(std::string_view text) {
    if (m_prefix.empty()) {
        if (text.size() >= 2)
            add(m_kind, text);
        return;
    }
    short_text prefixed;
    prefixed << m_prefix << text;
    add(m_kind, prefixed.view());
}

void tokenizer::implementation::long_run(char first, std::size_t size) {
    short_text token;
    token << "M long "sv << m_prefix << std::string_view(&first, 1) << " "sv << size / 10 * 10;
    put(token.view());
}

// A host with the domains above it, or an address with its net.
void tokenizer::implementation::host(std::string_view prefix, std::string_view name) {
    while (name.ends_with('.'))
        name.remove_suffix(1);
    if (name.empty() || name.size() > 128)
        return;
    short_text token;
    token << "F "sv << prefix;
    const std::size_t start = token.size();
    token << name;
    token.lower_from(start);
    put(token.view());
    if (is_ip(name)) {
        const std::size_t net = name.rfind('.');
        for (std::size_t end = net; end != std::string_view::npos && end > 0; end = name.rfind('.', end - 1))
            put(token.view().substr(0, start + end));
        return;
    }
    const std::string_view lowered = token.view().substr(start);
    for (std::size_t dot = lowered.find('.'), levels = 0; dot != std::string_view::npos && levels < 4;
         ++levels) {
        const std::size_t next = lowered.find('.', dot + 1);
        put((short_text() << "F "sv << prefix
                          << lowered.substr(dot + (next == std::string_view::npos ? 0 : 1)))
                .view());
        dot = next;
    }
}

void tokenizer::implementation::link(std::string_view address) {
    if (++m_links > html_text::most_links)
        return;
    const std::size_t scheme = address.find(':');
    std::string_view rest = address;
    if (scheme != std::string_view::npos && scheme <= 10 &&
        address.substr(0, scheme).find_first_of("/.?") == std::string_view::npos) {
        if (!starts_with_ignoring_case(address, "http") && !starts_with_ignoring_case(address, "ftp"))
            mark_pair("scheme:", address.substr(0, scheme));
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
        mark("link user");
        authority.remove_prefix(user + 1);
    }
    const std::size_t port = authority.find(':');
    if (port != std::string_view::npos) {
        mark_pair("link port:", authority.substr(port + 1));
        authority = authority.substr(0, port);
    }
    if (authority.find('%') != std::string_view::npos)
        mark("link escaped");
    if (!authority.empty() &&
        authority.find_first_not_of("0123456789.xXabcdefABCDEF") == std::string_view::npos &&
        is_digit(authority[0]))
        mark("link ip");
    host("link:", authority);
    const std::string_view path = rest.substr(end);
    if (path.size() > 1) {
        const auto kind = std::exchange(m_kind, "U ");
        const auto prefix = std::exchange(m_prefix, {});
        word_scanner scanner;
        scanner.scan(path.substr(0, 256), *this);
        m_kind = kind;
        m_prefix = prefix;
    }
}

void tokenizer::implementation::mail_address(std::string_view address) {
    const std::size_t at = address.rfind('@');
    if (at != std::string_view::npos && at + 1 < address.size())
        host("mail:", address.substr(at + 1));
}

void tokenizer::implementation::words(std::string_view text, std::string_view kind, std::string_view prefix) {
    m_kind = kind;
    m_prefix = prefix;
    m_scanner.scan(text, *this);
    m_kind = "B ";
    m_prefix = {};
}

// --- headers

void tokenizer::implementation::subject_shape(std::string_view subject) {
    std::size_t letters = 0, capitals = 0, blanks = 0, longest_blank = 0;
    for (const char c : subject) {
        capitals += c >= 'A' && c <= 'Z';
        letters += lower(c) >= 'a' && lower(c) <= 'z';
        blanks = c == ' ' || c == '\t' ? blanks + 1 : 0;
        longest_blank = std::max(longest_blank, blanks);
    }
    if (letters >= 6 && capitals * 10 > letters * 8)
        mark("subject capitals");
    if (longest_blank >= 5)
        mark("subject gap");
    if (!is_ascii(subject))
        mark("subject raw");
}

void tokenizer::implementation::addresses(std::string_view name, std::string_view value) {
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
            put(token.lower_from(2).view());
            host(prefix.view(), piece.substr(sign + 1));
        }
    }
    words(names, "H ", prefix.view());
    if (count != 1)
        put((short_text() << "M "sv << name << " count "sv << power_of_two_below(count)).view());
}

void tokenizer::implementation::received(std::string_view value) {
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
            host("rcvd:", piece);
    }
}

void tokenizer::implementation::header(std::string_view name, std::string_view value) {
    const header_kind kind = kind_of_header(name);
    if (kind == header_kind::ignored)
        return;
    put((short_text() << "M header:"sv << name).view());
    if (kind == header_kind::received) {
        received(value);
        return;
    }
    std::string_view shown = value;
    struct freer {
        void operator()(char* text) const noexcept { g_free(text); }
    };
    std::unique_ptr<char, freer> decoded;
    if (value.find("=?") != std::string_view::npos) {
        const std::string terminated(value.substr(0, 4096));
        decoded.reset(g_mime_utils_header_decode_text(nullptr, terminated.c_str()));
        shown = view_of(decoded.get());
        const std::size_t sign = value.find("=?") + 2;
        mark_pair("encoded word:", value.substr(sign, value.find('?', sign) - sign));
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
            words(utf8.substr(0, 1024), "B ", {});
        }
        words(utf8.substr(0, 1024), "H ", prefix.view());
        break;
    case header_kind::marked:
        if (const std::size_t at = value.find('@'); at != std::string_view::npos && name == "message-id")
            host("msgid:", value.substr(at + 1, value.find_first_of("> \t", at) - at - 1));
        break;
    default:
        break;
    }
}

void tokenizer::implementation::absent_headers() {
    if (m_lines.date.empty())
        mark("no date");
    if (m_lines.from.empty())
        mark("no from");
    if (m_lines.subject.empty())
        mark("no subject");
    if (m_lines.message_id.empty())
        mark("no message-id");
    if (m_lines.to.empty())
        mark("no to");
}

void tokenizer::implementation::headers(GMimeMessage* message) {
    GMimeHeaderList* const list = g_mime_object_get_header_list(GMIME_OBJECT(message));
    const int count = std::min(g_mime_header_list_get_count(list), static_cast<int>(m_limits.headers));
    for (int i = 0; i < count; ++i) {
        GMimeHeader* const item = g_mime_header_list_get_header_at(list, i);
        const std::string_view given = view_of(g_mime_header_get_name(item));
        const std::string_view value = trim(view_of(g_mime_header_get_raw_value(item)), " \t\r\n");
        m_header_name.resize(std::min<std::size_t>(given.size(), 60));
        std::transform(given.begin(), given.begin() + static_cast<std::ptrdiff_t>(m_header_name.size()),
                       m_header_name.begin(), lower);
        const auto keep = [&](std::string_view name, std::string& target) {
            if (target.empty() && m_header_name == name)
                target = value.substr(0, 1024);
        };
        keep("message-id", m_lines.message_id);
        keep("subject", m_lines.subject);
        keep("date", m_lines.date);
        keep("from", m_lines.from);
        keep("to", m_lines.to);
        keep("reply-to", m_lines.reply_to);
        keep("return-path", m_lines.return_path);
        keep("received", m_lines.newest_hop);
        if (m_header_name == "received") {
            m_lines.oldest_hop = value.substr(0, 1024);
            ++m_lines.hops;
        }
        header(m_header_name, value);
    }
    absent_headers();
    header_marks(m_lines, [this](std::string_view text) { mark(text); });
}

// --- parts

std::string_view tokenizer::implementation::content(GMimePart* object) {
    GMimeDataWrapper* const wrapper = g_mime_part_get_content(object);
    if (!wrapper)
        return {};
    GMimeStream* const source = g_mime_data_wrapper_get_stream(wrapper);
    g_mime_stream_reset(source);
    GMimeEncoding state;
    g_mime_encoding_init_decode(&state, g_mime_data_wrapper_get_encoding(wrapper));
    const std::size_t room = std::min(m_limits.part_text, m_text_left);
    m_decoded.clear();
    std::array<char, 16384> encoded;
    while (m_decoded.size() < room) {
        const auto got = g_mime_stream_read(source, encoded.data(), encoded.size());
        if (got <= 0)
            break;
        const std::size_t before = m_decoded.size();
        m_decoded.resize(before + g_mime_encoding_outlen(&state, static_cast<std::size_t>(got)));
        const std::size_t made = g_mime_encoding_step(&state, encoded.data(), static_cast<std::size_t>(got),
                                                      m_decoded.data() + before);
        m_decoded.resize(before + made);
    }
    if (m_decoded.size() > room)
        m_decoded.resize(room);
    m_text_left -= m_decoded.size();
    return m_decoded;
}

// How the text of a part looks from afar. `type` is "plain " or "html ".
void tokenizer::implementation::text_shape(std::string_view text, std::string_view type) {
    constexpr std::size_t long_line = 80;
    std::size_t lines = 0, quoted = 0, blank = 0, overlong = 0;
    for (std::size_t start = 0; start <= text.size(); ++lines) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string_view line = text.substr(start, end - start);
        start = end + 1;
        quoted += line.starts_with('>') || line.starts_with('|');
        blank += line.find_first_not_of(" \t\r") == std::string_view::npos;
        overlong += line.size() > long_line;
    }
    const auto put_shape = [&](std::string_view what, std::size_t number) {
        put((short_text() << "M "sv << type << what << number).view());
    };
    const auto count = [&](char c) {
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), c));
    };
    put_shape("quoted ", quoted * 8 / lines);
    put_shape("blank ", blank * 10 / lines);
    put_shape("overlong ", overlong * 8 / lines);
    put_shape("exclamations ", power_of_two_below(count('!')));
    put_shape("dollars ", power_of_two_below(count('$')));
}

void tokenizer::implementation::text(std::string_view decoded, bool html, const char* charset) {
    const std::string_view utf8 = to_utf8(decoded, view_of(charset), m_charset_room);
    if (!html) {
        text_shape(utf8, "plain ");
        words(utf8, "B ", {});
        m_text_seen += utf8.size();
        return;
    }
    m_html.strip(utf8);
    for (unsigned bit = 0; bit < html_text::feature_count; ++bit)
        if (m_html.features() & 1U << bit)
            mark_pair("html ", html_text::feature_name(bit));
    for (const std::string& address : m_html.links())
        link(address);
    text_shape(m_html.text(), "html ");
    words(m_html.text(), "B ", {});
    m_text_seen += m_html.text().size();
    // How much of it is seen at all, in eighths.
    mark("html shown ", m_html.text().size() * 8 / std::max<std::size_t>(utf8.size(), 1));
}

void tokenizer::implementation::leaf(GMimePart* object) {
    GMimeContentType* const type = g_mime_object_get_content_type(GMIME_OBJECT(object));
    const std::string_view kind = view_of(g_mime_content_type_get_media_type(type));
    const std::string_view subtype = view_of(g_mime_content_type_get_media_subtype(type));
    short_text name;
    name << kind.substr(0, 40) << "/"sv << subtype.substr(0, 40);
    mark_pair("type:", name.view());
    if (const char* encoding = g_mime_content_encoding_to_string(g_mime_part_get_content_encoding(object)))
        mark_pair("encoding:", encoding);
    const char* const charset = g_mime_content_type_get_parameter(type, "charset");
    if (charset)
        mark_pair("charset:", charset);
    if (const char* disposition = g_mime_object_get_disposition(GMIME_OBJECT(object)))
        mark_pair("disposition:", disposition);
    if (const char* file = g_mime_part_get_filename(object)) {
        const std::string_view text = view_of(file).substr(0, 255);
        const std::size_t dot = text.rfind('.');
        mark_pair("file:", dot == std::string_view::npos ? "none"sv : text.substr(dot));
        words(to_utf8(text, "", m_charset_room), "H ", "file:");
    }
    if (!equals_ignoring_case(kind, "text") || m_text_left == 0)
        return;
    const std::string_view decoded = content(object);
    text(decoded, equals_ignoring_case(subtype, "html"), charset);
}

void tokenizer::implementation::part(GMimeObject* object, unsigned depth) {
    if (!object || depth > m_limits.depth || m_parts >= m_limits.parts)
        return;
    ++m_parts;
    if (GMIME_IS_MULTIPART(object)) {
        GMimeContentType* const type = g_mime_object_get_content_type(object);
        mark_pair("multipart:", view_of(g_mime_content_type_get_media_subtype(type)));
        const int count = g_mime_multipart_get_count(GMIME_MULTIPART(object));
        for (int i = 0; i < count && m_parts < m_limits.parts; ++i)
            part(g_mime_multipart_get_part(GMIME_MULTIPART(object), i), depth + 1);
    } else if (GMIME_IS_MESSAGE_PART(object)) {
        mark("type:message");
        GMimeMessage* const inner = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
        if (inner) {
            if (const char* subject = g_mime_message_get_subject(inner))
                words(to_utf8(view_of(subject).substr(0, 1024), "", m_charset_room), "B ", {});
            part(g_mime_message_get_mime_part(inner), depth + 1);
        }
    } else if (GMIME_IS_PART(object)) {
        leaf(GMIME_PART(object));
    }
}

// --- the whole

void tokenizer::implementation::make_facts(std::string_view raw, std::string_view mbox_date) {
    std::string_view id = trim(m_lines.message_id, " \t\r\n<>");
    std::string made;
    if (id.empty()) {
        std::uint64_t hash = 0xCBF29CE484222325ULL;
        for (const char c : raw)
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3ULL;
        made = "no-id-" + to_hex(static_cast<std::uint32_t>(hash >> 32), 8) +
               to_hex(static_cast<std::uint32_t>(hash), 8);
        id = made;
    }
    m_facts.msid = make_msid(id, m_lines.subject, m_lines.date, m_lines.from);
    m_facts.time = minutes_from_mail_date(m_lines.date);
    if (m_facts.time == 0)
        m_facts.time = minutes_from_mail_date(
            std::string_view(m_lines.newest_hop).substr(m_lines.newest_hop.rfind(';') + 1));
    if (m_facts.time == 0)
        m_facts.time = minutes_from_mail_date(mbox_date);
}

void tokenizer::implementation::tokenize(std::string_view raw) {
    const std::size_t full_size = raw.size();
    m_tokens.clear();
    m_parts = 0;
    m_text_left = m_limits.all_text;
    m_text_seen = m_links = 0;
    m_lines = {};
    std::string_view mbox_date;
    if (raw.starts_with("From ")) {
        const std::string_view line = raw.substr(0, raw.find('\n'));
        mbox_date = line.substr(std::min(line.find(' ', 5), line.size()));
        raw.remove_prefix(std::min(raw.size(), line.size() + 1));
    }
    const std::string_view seen = raw.substr(0, m_limits.mail);

    // The stream reads from the bytes where they are, and does not own them.
    GByteArray bytes{reinterpret_cast<guint8*>(const_cast<char*>(seen.data())),
                     static_cast<guint>(seen.size())};
    const gobject<GMimeStream> stream(g_mime_stream_mem_new_with_byte_array(&bytes));
    g_mime_stream_mem_set_owner(GMIME_STREAM_MEM(stream.get()), FALSE);
    {
        const gobject<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
        g_mime_parser_set_format(parser.get(), GMIME_FORMAT_MESSAGE);
        const gobject<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), nullptr));
        if (message) {
            headers(message.get());
            part(g_mime_message_get_mime_part(message.get()), 0);
        }
    }
    mark("parts ", power_of_two_below(m_parts));
    mark("size ", power_of_two_below(full_size));
    mark("text ", power_of_two_below(m_text_seen));
    mark("links ", power_of_two_below(m_links));
    make_facts(raw, mbox_date);
}

bool looks_like_mail(std::string_view raw) noexcept {
    constexpr std::size_t most_lines = 200;
    constexpr std::array names = {"from"sv,        "to"sv,           "subject"sv,      "date"sv,
                                  "received"sv,    "message-id"sv,   "reply-to"sv,     "mime-version"sv,
                                  "return-path"sv, "content-type"sv, "delivered-to"sv, "sender"sv};
    if (raw.starts_with("From ") || raw.starts_with(">From "))
        raw.remove_prefix(std::min(raw.size(), raw.find('\n') + 1));
    for (std::size_t line = 0; line < most_lines && !raw.empty(); ++line) {
        const bool is_continued = line != 0 && (raw[0] == ' ' || raw[0] == '\t');
        std::size_t at = 0;
        while (at < raw.size() && at < 100 && raw[at] > ' ' && raw[at] != ':' && raw[at] != 127)
            ++at;
        if (!is_continued && (at == 0 || at == raw.size() || raw[at] != ':'))
            return false;
        if (std::any_of(names.begin(), names.end(),
                        [&](std::string_view name) { return equals_ignoring_case(raw.substr(0, at), name); }))
            return true;
        raw.remove_prefix(std::min(raw.size(), std::min(raw.find('\n'), raw.size()) + 1));
    }
    return false;
}

} // namespace tvr
