#include "client/mail/mail_reader.h"

#include <algorithm>
#include <utility>

#include "common/text.h"

namespace tvr {

namespace {

enum type_parameter : std::size_t { charset_of_type, boundary_of_type, name_of_type };
constexpr std::size_t file_of_disposition = 0;
constexpr std::size_t longest_value = 4096; // of a value that is decoded

constexpr std::string_view blanks = " \t\r\n";

bool is_token(char c) {
    return c > ' ' && c < 127 && std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos;
}

std::string_view token_at(std::string_view text, std::size_t at) {
    std::size_t end = at;
    while (end < text.size() && is_token(text[end]))
        ++end;
    return text.substr(at, end - at);
}

bool is_mail_type(const mail_part& part) {
    if (!equals_ignoring_case(part.type, "message"))
        return false;
    for (const std::string_view name : {"rfc822", "rfc2822", "global", "news"})
        if (equals_ignoring_case(part.subtype, name))
            return true;
    return false;
}

bool is_encoded(const mail_part& part) {
    return part.encoding == transfer_encoding::base64 ||
           part.encoding == transfer_encoding::quoted_printable ||
           part.encoding == transfer_encoding::uuencode;
}

} // namespace

unsigned mail_reader::read(std::string_view raw, mail_visitor& visitor) {
    m_visitor = &visitor;
    m_raw = raw;
    m_at = 0;
    m_line_end = line_end_of(raw);
    m_parts = 0;
    m_in_encoded = false;
    m_first = m_open = 0;
    m_hit = none;
    if (raw.starts_with("From ") || raw.starts_with(">From ")) // of an mbox file
        m_at = std::min(find_line_end(raw, 0, m_line_end) + 1, raw.size());
    content found;
    header(found, true);
    visitor.end_of_headers();
    body(found, 0);
    return m_parts;
}

void mail_reader::content_field(const header_field& field, content& found) {
    const std::string_view value = trim(field.value, blanks);
    const std::size_t parameters = std::min(value.find(';'), value.size());
    if (equals_ignoring_case(field.name, "content-type")) {
        const std::string_view type = token_at(value, 0);
        const std::size_t slash = type.size();
        const std::string_view subtype =
            slash < value.size() && value[slash] == '/' ? token_at(value, slash + 1) : std::string_view();
        // Of several lines the first that says something counts.
        if (found.has_type || type.empty() || subtype.empty())
            return;
        found.has_type = true;
        found.part.type = type;
        found.part.subtype = subtype;
        m_type_parameters.parse(value.substr(slash + 1 + subtype.size()));
    } else if (equals_ignoring_case(field.name, "content-transfer-encoding")) {
        if (!found.part.encoding)
            found.part.encoding = find_encoding(trim(value, "\""));
    } else if (equals_ignoring_case(field.name, "content-disposition") && !found.part.disposition) {
        found.part.disposition = trim(value.substr(0, parameters), blanks);
        m_disposition_parameters.parse(value.substr(parameters));
    }
}

void mail_reader::header(content& found, bool outermost) {
    m_type_parameters.clear();
    m_disposition_parameters.clear();
    header_field field;
    unsigned count = 0;
    while (!meets_boundary(m_raw.substr(m_at, m_open > m_first ? std::string_view::npos : 0)) &&
           next_field(m_raw, m_at, m_line_end, field)) {
        if (outermost && ++count <= m_limits.headers)
            m_visitor->header(field.name, field.value);
        if (field.name.size() >= 12 && starts_with_ignoring_case(field.name, "content-"))
            content_field(field, found);
        else if (found.subject.empty() && equals_ignoring_case(field.name, "subject"))
            found.subject = trim(field.value, blanks).substr(0, longest_value);
    }
}

void mail_reader::entity(unsigned depth, bool within_digest) {
    content found;
    header(found, false);
    if (within_digest && !found.has_type) {
        found.part.type = "message";
        found.part.subtype = "rfc822";
    }
    body(found, depth);
}

void mail_reader::body(content& found, unsigned depth) {
    if (m_parts >= m_limits.parts) {
        give_up();
        return;
    }
    if (depth > m_limits.depth) {
        until_boundary();
        return;
    }
    ++m_parts;
    if (equals_ignoring_case(found.part.type, "multipart")) {
        const std::optional<std::string_view> told = m_type_parameters.text(boundary_of_type);
        if (open_boundary(trim(told.value_or(""), blanks)) || open_boundary(find_boundary())) {
            multipart(found, depth);
        } else {
            found.part.type = "text";
            found.part.subtype = "plain";
            leaf(found);
        }
    } else if (is_mail_type(found.part)) {
        if (is_encoded(found.part) && !m_in_encoded)
            encoded_mail(found, depth);
        else
            attached(depth);
    } else {
        leaf(found);
    }
}

// A part whose boundary is open, and whose first part begins here.
void mail_reader::multipart(const content& found, unsigned depth) {
    const std::size_t level = m_open - 1;
    m_visitor->multipart(found.part.subtype);
    const bool is_digest = equals_ignoring_case(found.part.subtype, "digest");
    while (m_hit == level && !m_hit_last)
        entity(depth + 1, is_digest);
    m_open = level;
    if (m_hit == level)
        until_boundary();
}

// An attached mail, whose header begins here.
void mail_reader::attached(unsigned depth) {
    content inner;
    header(inner, false);
    m_visitor->message(m_words.decode(inner.subject));
    body(inner, depth + 1);
}

void mail_reader::encoded_mail(const content& found, unsigned depth) {
    const std::string_view encoded = until_boundary();
    // One mail of this kind is opened at a time: memory stays within twice that of the message.
    std::string room;
    const std::string_view decoded = decode_transfer(encoded, found.part.encoding, m_limits.opened, room);
    const auto hit = m_hit;
    const auto hit_last = m_hit_last;
    const auto raw = std::exchange(m_raw, decoded);
    const auto at = std::exchange(m_at, 0);
    const auto line_end = std::exchange(m_line_end, line_end_of(decoded));
    const auto first = std::exchange(m_first, m_open);
    m_in_encoded = true;
    attached(depth);
    m_in_encoded = false;
    m_first = first;
    m_line_end = line_end;
    m_raw = raw;
    m_at = at;
    m_hit = hit;
    m_hit_last = hit_last;
    if (m_parts >= m_limits.parts)
        give_up();
}

void mail_reader::leaf(content& found) {
    mail_part& part = found.part;
    part.charset = m_type_parameters.text(charset_of_type);
    part.file = m_disposition_parameters.text(file_of_disposition);
    if (!part.file)
        part.file = m_type_parameters.text(name_of_type);
    if (part.file && part.file->find("=?") != std::string_view::npos)
        part.file = m_words.decode(part.file->substr(0, longest_value));
    const std::size_t wanted = m_visitor->part(part);
    const std::string_view text = until_boundary();
    if (wanted > 0)
        m_visitor->text(part, decode_transfer(text, part.encoding, wanted, m_decoded));
}

// The first line that looks like a boundary: with the header of a part after it, and before the next
// boundary of a part around this one. Empty if there is none.
std::string_view mail_reader::find_boundary() {
    for (std::size_t line = m_at; line < m_raw.size() && !meets_boundary(m_raw.substr(line));) {
        const std::size_t end = find_line_end(m_raw, line, m_line_end);
        const std::string_view text = trim(m_raw.substr(line, end - line), blanks);
        line = end + 1;
        if (text.size() > 2 && text.starts_with("--") && line < m_raw.size() &&
            starts_with_ignoring_case(m_raw.substr(line), "content-"))
            return text.substr(2);
    }
    return {};
}

// Moves past the first line of a boundary, which is open then. False, where the reader was, if it never
// comes.
bool mail_reader::open_boundary(std::string_view boundary) {
    if (boundary.empty())
        return false;
    const std::size_t start = m_at;
    const std::size_t level = m_open;
    if (m_boundaries.size() == level)
        m_boundaries.emplace_back();
    m_boundaries[level] = boundary;
    ++m_open;
    until_boundary();
    if (m_hit == level)
        return true;
    m_open = level;
    m_at = start;
    return false;
}

// Tells whether the text begins with the line of an open boundary, and notes which.
bool mail_reader::meets_boundary(std::string_view text) {
    if (!text.starts_with("--"))
        return false;
    text.remove_prefix(2);
    const std::string_view line = text.substr(0, text.find(m_line_end));
    for (std::size_t level = m_open; level-- > m_first;) {
        if (!line.starts_with(m_boundaries[level]))
            continue;
        std::string_view behind = line.substr(m_boundaries[level].size());
        const bool last = behind.starts_with("--");
        if (last)
            behind.remove_prefix(2);
        if (behind.find_first_not_of(" \t\r") != std::string_view::npos)
            continue;
        m_hit = level;
        m_hit_last = last;
        return true;
    }
    return false;
}

// What precedes the next line of an open boundary, without its line break. The reader moves past
// the line.
std::string_view mail_reader::until_boundary() {
    const std::size_t start = m_at;
    m_hit = none;
    for (std::size_t line = start; m_open > m_first && line < m_raw.size();) {
        if (m_raw[line] == '-' && meets_boundary(m_raw.substr(line))) {
            std::size_t end = line;
            if (end > start && m_raw[end - 1] == m_line_end)
                --end;
            if (end > start && m_line_end == '\n' && m_raw[end - 1] == '\r')
                --end;
            m_at = std::min(find_line_end(m_raw, line, m_line_end) + 1, m_raw.size());
            return m_raw.substr(start, end - start);
        }
        line = find_line_end(m_raw, line, m_line_end) + 1;
    }
    m_at = m_raw.size();
    return m_raw.substr(start);
}

void mail_reader::give_up() {
    m_at = m_raw.size();
    m_hit = none;
}

} // namespace tvr
