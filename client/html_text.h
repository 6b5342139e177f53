// What a reader sees of an HTML text, and what it is made of.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tvr {

// Strips HTML. Comments and inline tags vanish without a trace, so that a word cut up by them becomes
// whole again; all other tags separate words. Text that is styled not to be seen is left out. Linear in
// the text, whatever it holds. Belongs to one thread; made to be used again and again.
class html_text {
public:
    static constexpr std::size_t most_links = 500;

    // `html` is UTF-8 (other bytes pass through). The text and the lists are those of the last call.
    void strip(std::string_view html);

    [[nodiscard]] const std::string& text() const noexcept { return m_text; }
    // The addresses of links, images, forms and frames, entities decoded.
    [[nodiscard]] const std::vector<std::string>& links() const noexcept { return m_links; }

    // Marks of how the text is made, one bit each.
    enum feature : std::uint32_t {
        has_link = 1U << 0,
        has_image = 1U << 1,
        has_form = 1U << 2,
        has_script = 1U << 3,
        has_style = 1U << 4,
        has_table = 1U << 5,
        has_font = 1U << 6,
        has_frame = 1U << 7,
        has_hidden = 1U << 8,     // text that is not to be seen
        has_split_word = 1U << 9, // a comment or an unknown tag within a word
        has_unknown_tag = 1U << 10,
        has_numeric_entity = 1U << 11, // for a plain letter
        has_event = 1U << 12,          // an on... attribute
        has_object = 1U << 13,
        has_big_font = 1U << 14,
        has_color = 1U << 15,
        has_background = 1U << 16,
        has_center = 1U << 17,
    };
    static constexpr unsigned feature_count = 18;
    static const char* feature_name(unsigned bit) noexcept;
    [[nodiscard]] std::uint32_t features() const noexcept { return m_features; }

private:
    std::size_t markup(std::string_view html, std::size_t at); // returns the place after it
    std::size_t entity(std::string_view html, std::size_t at);
    void open_tag(std::string_view name, std::string_view attributes);
    void close_tag(std::string_view name);
    void attribute(std::string_view tag, std::string_view name, std::string_view value);
    void add_link(std::string_view address);
    void separate();
    void note_split(std::string_view html, std::size_t behind);

    std::string m_text;
    std::string m_name;   // of the tag at hand, in lower case
    std::string m_key;    // of the attribute at hand, in lower case
    std::string m_hiding; // the tag whose content is hidden; empty outside
    std::uint32_t m_hiding_depth = 0;
    bool m_hides = false; // an attribute of the tag at hand hides its content
    std::vector<std::string> m_links;
    std::uint32_t m_features = 0;
    bool m_comment_ends = true; // false once no end of a comment or tag was found ahead
    bool m_tag_ends = true;
};

// Decodes the entity at the start of `text` ("&amp;..."), which begins with "&". Returns its length and
// sets `code`, or 0 if it is none.
std::size_t decode_entity(std::string_view text, std::uint32_t& code);

} // namespace tvr
