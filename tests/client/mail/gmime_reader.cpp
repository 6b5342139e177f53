#include "client/mail/gmime_reader.h"

#include <algorithm>
#include <array>
#include <memory>

#include <gmime/gmime.h>

namespace tvr {

namespace {

struct gobject_deleter {
    void operator()(void* object) const noexcept { g_object_unref(object); }
};
template <class T>
using gobject = std::unique_ptr<T, gobject_deleter>;

std::string_view view_of(const char* text) {
    return text ? std::string_view(text) : std::string_view();
}

std::optional<std::string_view> said(const char* text) {
    return text ? std::optional<std::string_view>(text) : std::nullopt;
}

std::optional<transfer_encoding> encoding_of(GMimePart* object) {
    const char* const name = g_mime_content_encoding_to_string(g_mime_part_get_content_encoding(object));
    return name ? find_encoding(name) : std::nullopt;
}

class walk {
public:
    explicit walk(mail_visitor& visitor) : m_visitor(visitor) {}

    void headers(GMimeMessage* message);
    void part(GMimeObject* object, unsigned depth);
    [[nodiscard]] unsigned parts() const { return m_parts; }

private:
    void leaf(GMimePart* object);
    void content(GMimePart* object, std::size_t room);

    const mail_limits m_limits;
    mail_visitor& m_visitor;
    unsigned m_parts = 0;
    std::string m_decoded;
};

void walk::headers(GMimeMessage* message) {
    GMimeHeaderList* const list = g_mime_object_get_header_list(GMIME_OBJECT(message));
    const int count = std::min(g_mime_header_list_get_count(list), static_cast<int>(m_limits.headers));
    for (int i = 0; i < count; ++i) {
        GMimeHeader* const item = g_mime_header_list_get_header_at(list, i);
        m_visitor.header(view_of(g_mime_header_get_name(item)), view_of(g_mime_header_get_raw_value(item)));
    }
    m_visitor.end_of_headers();
}

void walk::content(GMimePart* object, std::size_t room) {
    m_decoded.clear();
    GMimeDataWrapper* const wrapper = g_mime_part_get_content(object);
    if (!wrapper)
        return;
    GMimeStream* const source = g_mime_data_wrapper_get_stream(wrapper);
    g_mime_stream_reset(source);
    GMimeEncoding state;
    g_mime_encoding_init_decode(&state, g_mime_data_wrapper_get_encoding(wrapper));
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
}

void walk::leaf(GMimePart* object) {
    GMimeContentType* const type = g_mime_object_get_content_type(GMIME_OBJECT(object));
    const mail_part described = {
        view_of(g_mime_content_type_get_media_type(type)),
        view_of(g_mime_content_type_get_media_subtype(type)),
        encoding_of(object),
        said(g_mime_content_type_get_parameter(type, "charset")),
        said(g_mime_object_get_disposition(GMIME_OBJECT(object))),
        said(g_mime_part_get_filename(object)),
    };
    if (const std::size_t room = m_visitor.part(described); room > 0) {
        content(object, room);
        m_visitor.text(described, m_decoded);
    }
}

void walk::part(GMimeObject* object, unsigned depth) {
    if (!object || depth > m_limits.depth || m_parts >= m_limits.parts)
        return;
    ++m_parts;
    if (GMIME_IS_MULTIPART(object)) {
        GMimeContentType* const type = g_mime_object_get_content_type(object);
        m_visitor.multipart(view_of(g_mime_content_type_get_media_subtype(type)));
        const int count = g_mime_multipart_get_count(GMIME_MULTIPART(object));
        for (int i = 0; i < count && m_parts < m_limits.parts; ++i)
            part(g_mime_multipart_get_part(GMIME_MULTIPART(object), i), depth + 1);
    } else if (GMIME_IS_MESSAGE_PART(object)) {
        GMimeMessage* const inner = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
        m_visitor.message(inner ? view_of(g_mime_message_get_subject(inner)) : std::string_view());
        if (inner)
            part(g_mime_message_get_mime_part(inner), depth + 1);
    } else if (GMIME_IS_PART(object)) {
        leaf(GMIME_PART(object));
    }
}

} // namespace

unsigned read_with_gmime(std::string_view raw, mail_visitor& visitor) {
    static const bool ready = (g_mime_init(), true);
    static_cast<void>(ready);
    // The stream reads from the bytes where they are, and does not own them.
    GByteArray bytes{reinterpret_cast<guint8*>(const_cast<char*>(raw.data())),
                     static_cast<guint>(raw.size())};
    const gobject<GMimeStream> stream(g_mime_stream_mem_new_with_byte_array(&bytes));
    g_mime_stream_mem_set_owner(GMIME_STREAM_MEM(stream.get()), FALSE);
    const gobject<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
    g_mime_parser_set_format(parser.get(), GMIME_FORMAT_MESSAGE);
    const gobject<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), nullptr));
    walk found(visitor);
    if (message) {
        found.headers(message.get());
        found.part(g_mime_message_get_mime_part(message.get()), 0);
    }
    return found.parts();
}

std::string decode_with_gmime(std::string_view value) {
    char* const decoded = g_mime_utils_header_decode_text(nullptr, std::string(value).c_str());
    std::string result(view_of(decoded));
    g_free(decoded);
    return result;
}

} // namespace tvr
