#include "client/mail_parts.h"

#include <algorithm>

#include "client/mail/charset.h"
#include "client/short_text.h"
#include "common/text.h"

namespace tvr {

using namespace std::string_view_literals;

void mail_parts::clear() {
    m_text_left = m_limits.all_text;
    m_text_seen = 0;
}

void mail_parts::multipart(std::string_view subtype) {
    m_tokens.mark_pair("multipart:", subtype);
}

void mail_parts::message(std::string_view subject) {
    m_tokens.mark("type:message");
    m_words.add(to_utf8(subject.substr(0, 1024), "", m_charset_room), "B ");
}

std::size_t mail_parts::part(const mail_part& described) {
    short_text name;
    name << described.type.substr(0, 40) << "/"sv << described.subtype.substr(0, 40);
    m_tokens.mark_pair("type:", name.view());
    if (described.encoding)
        m_tokens.mark_pair("encoding:", name_of(*described.encoding));
    if (described.charset)
        m_tokens.mark_pair("charset:", *described.charset);
    if (described.disposition)
        m_tokens.mark_pair("disposition:", *described.disposition);
    if (described.file) {
        const std::string_view file = described.file->substr(0, 255);
        const std::size_t dot = file.rfind('.');
        m_tokens.mark_pair("file:", dot == std::string_view::npos ? "none"sv : file.substr(dot));
        m_words.add(to_utf8(file, "", m_charset_room), "H ", "file:");
    }
    return equals_ignoring_case(described.type, "text") ? std::min(m_limits.part_text, m_text_left) : 0;
}

// How the text of a part looks from afar. `type` is "plain " or "html ".
void mail_parts::text_shape(std::string_view text, std::string_view type) {
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
        m_tokens.put((short_text() << "M "sv << type << what << number).view());
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

void mail_parts::text(const mail_part& described, std::string_view decoded) {
    m_text_left -= decoded.size();
    const std::string_view utf8 = to_utf8(decoded, described.charset.value_or(""sv), m_charset_room);
    if (!equals_ignoring_case(described.subtype, "html")) {
        text_shape(utf8, "plain ");
        m_words.add(utf8, "B ");
        m_text_seen += utf8.size();
        return;
    }
    m_html.strip(utf8);
    for (unsigned bit = 0; bit < html_text::feature_count; ++bit)
        if (m_html.features() & 1U << bit)
            m_tokens.mark_pair("html ", html_text::feature_name(bit));
    for (const std::string& address : m_html.links())
        m_links.link(address);
    text_shape(m_html.text(), "html ");
    m_words.add(m_html.text(), "B ");
    m_text_seen += m_html.text().size();
    // How much of it is seen at all, in eighths.
    m_tokens.mark("html shown ", m_html.text().size() * 8 / std::max<std::size_t>(utf8.size(), 1));
}

} // namespace tvr
