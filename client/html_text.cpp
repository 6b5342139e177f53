#include "client/html_text.h"

#include <algorithm>
#include <array>
#include <utility>

#include "client/mail/utf8.h"
#include "common/text.h"
#include "platform/ascii.h"

namespace tvr {

namespace {

using namespace std::string_view_literals;

// The names of U+00A0 to U+00FF, in their order.
constexpr std::array latin_entities = {
    "nbsp"sv,   "iexcl"sv,  "cent"sv,   "pound"sv,  "curren"sv, "yen"sv,    "brvbar"sv, "sect"sv,
    "uml"sv,    "copy"sv,   "ordf"sv,   "laquo"sv,  "not"sv,    "shy"sv,    "reg"sv,    "macr"sv,
    "deg"sv,    "plusmn"sv, "sup2"sv,   "sup3"sv,   "acute"sv,  "micro"sv,  "para"sv,   "middot"sv,
    "cedil"sv,  "sup1"sv,   "ordm"sv,   "raquo"sv,  "frac14"sv, "frac12"sv, "frac34"sv, "iquest"sv,
    "Agrave"sv, "Aacute"sv, "Acirc"sv,  "Atilde"sv, "Auml"sv,   "Aring"sv,  "AElig"sv,  "Ccedil"sv,
    "Egrave"sv, "Eacute"sv, "Ecirc"sv,  "Euml"sv,   "Igrave"sv, "Iacute"sv, "Icirc"sv,  "Iuml"sv,
    "ETH"sv,    "Ntilde"sv, "Ograve"sv, "Oacute"sv, "Ocirc"sv,  "Otilde"sv, "Ouml"sv,   "times"sv,
    "Oslash"sv, "Ugrave"sv, "Uacute"sv, "Ucirc"sv,  "Uuml"sv,   "Yacute"sv, "THORN"sv,  "szlig"sv,
    "agrave"sv, "aacute"sv, "acirc"sv,  "atilde"sv, "auml"sv,   "aring"sv,  "aelig"sv,  "ccedil"sv,
    "egrave"sv, "eacute"sv, "ecirc"sv,  "euml"sv,   "igrave"sv, "iacute"sv, "icirc"sv,  "iuml"sv,
    "eth"sv,    "ntilde"sv, "ograve"sv, "oacute"sv, "ocirc"sv,  "otilde"sv, "ouml"sv,   "divide"sv,
    "oslash"sv, "ugrave"sv, "uacute"sv, "ucirc"sv,  "uuml"sv,   "yacute"sv, "thorn"sv,  "yuml"sv};
static_assert(latin_entities.size() == 96);

constexpr std::array<std::pair<std::string_view, std::uint32_t>, 20> other_entities = {{
    {"amp", '&'},      {"lt", '<'},       {"gt", '>'},        {"quot", '"'},     {"apos", '\''},
    {"ndash", 0x2013}, {"mdash", 0x2014}, {"lsquo", 0x2019},  {"rsquo", 0x2019}, {"ldquo", 0x201C},
    {"rdquo", 0x201D}, {"bull", 0x2022},  {"hellip", 0x2026}, {"euro", 0x20AC},  {"trade", 0x2122},
    {"zwnj", 0x200C},  {"zwj", 0x200D},   {"ensp", ' '},      {"emsp", ' '},     {"thinsp", ' '},
}};

// Tags that stand within a line: they don't separate words.
constexpr std::array inline_tags = {"a"sv,      "abbr"sv,   "b"sv,   "big"sv, "cite"sv, "code"sv,  "em"sv,
                                    "font"sv,   "i"sv,      "ins"sv, "kbd"sv, "s"sv,    "small"sv, "span"sv,
                                    "strike"sv, "strong"sv, "sub"sv, "sup"sv, "tt"sv,   "u"sv};
constexpr std::array block_tags = {
    "address"sv,    "applet"sv,  "area"sv,    "article"sv, "base"sv,     "basefont"sv, "bgsound"sv,
    "blockquote"sv, "body"sv,    "br"sv,      "button"sv,  "caption"sv,  "center"sv,   "col"sv,
    "dd"sv,         "del"sv,     "dir"sv,     "div"sv,     "dl"sv,       "dt"sv,       "embed"sv,
    "fieldset"sv,   "footer"sv,  "form"sv,    "frame"sv,   "frameset"sv, "h1"sv,       "h2"sv,
    "h3"sv,         "h4"sv,      "h5"sv,      "h6"sv,      "head"sv,     "header"sv,   "hr"sv,
    "html"sv,       "iframe"sv,  "img"sv,     "input"sv,   "label"sv,    "layer"sv,    "li"sv,
    "link"sv,       "map"sv,     "marquee"sv, "menu"sv,    "meta"sv,     "nobr"sv,     "noframes"sv,
    "noscript"sv,   "object"sv,  "ol"sv,      "option"sv,  "p"sv,        "param"sv,    "pre"sv,
    "script"sv,     "section"sv, "select"sv,  "style"sv,   "table"sv,    "tbody"sv,    "td"sv,
    "textarea"sv,   "tfoot"sv,   "th"sv,      "thead"sv,   "title"sv,    "tr"sv,       "ul"sv,
    "var"sv,        "wbr"sv};
static_assert(std::is_sorted(inline_tags.begin(), inline_tags.end()));
static_assert(std::is_sorted(block_tags.begin(), block_tags.end()));

constexpr std::array<const char*, html_text::feature_count> feature_names = {
    "link",  "image",  "form",     "script",     "style",       "table",
    "font",  "frame",  "hidden",   "split word", "unknown tag", "numeric entity",
    "event", "object", "big font", "color",      "background",  "center"};

template <std::size_t size>
bool is_one_of(std::string_view name, const std::array<std::string_view, size>& names) {
    return std::binary_search(names.begin(), names.end(), name);
}

constexpr std::pair<std::string_view, std::uint32_t> tag_features[] = {
    {"a", html_text::has_link},        {"img", html_text::has_image},     {"form", html_text::has_form},
    {"input", html_text::has_form},    {"script", html_text::has_script}, {"style", html_text::has_style},
    {"table", html_text::has_table},   {"font", html_text::has_font},     {"frame", html_text::has_frame},
    {"iframe", html_text::has_frame},  {"object", html_text::has_object}, {"embed", html_text::has_object},
    {"applet", html_text::has_object}, {"center", html_text::has_center},
};

constexpr bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
// A byte that can stand within a word.
constexpr bool is_wordy(char c) {
    return is_letter(c) || is_digit(c) || static_cast<unsigned char>(c) >= 0x80;
}

void assign_lower(std::string& target, std::string_view text) {
    target.resize(text.size());
    std::transform(text.begin(), text.end(), target.begin(), lower);
}

bool is_void_tag(std::string_view name) {
    constexpr std::array voids = {"area"sv, "base"sv,  "br"sv,   "col"sv,  "embed"sv, "hr"sv,
                                  "img"sv,  "input"sv, "link"sv, "meta"sv, "param"sv, "wbr"sv};
    return is_one_of(name, voids);
}

// True if the style holds "name: value" with a value that begins as given; blanks don't count.
bool style_has(std::string_view style, std::string_view name, std::string_view value) {
    for (std::size_t at = style.find(name); at != std::string_view::npos; at = style.find(name, at + 1)) {
        std::size_t behind = at + name.size();
        while (behind < style.size() && (is_space(style[behind]) || style[behind] == ':'))
            ++behind;
        if (style.substr(behind).starts_with(value))
            return true;
    }
    return false;
}

bool hides(std::string_view style) {
    if (style_has(style, "display", "none") || style_has(style, "visibility", "hidden"))
        return true;
    const std::size_t at = style.find("font-size");
    if (at == std::string_view::npos)
        return false;
    const std::string_view size = style.substr(std::min(style.size(), at + 10));
    const std::size_t digit = size.find_first_not_of(" :");
    return digit != std::string_view::npos && (size[digit] == '0' || size.substr(digit).starts_with("1px")) &&
           !(digit + 1 < size.size() && size[digit] == '0' && size[digit + 1] == '.');
}

} // namespace

const char* html_text::feature_name(unsigned bit) noexcept {
    return feature_names[bit];
}

namespace {

std::size_t decode_number(std::string_view text, std::uint32_t& code) {
    const bool hex = text.size() > 2 && lower(text[2]) == 'x';
    const std::size_t first = hex ? 3 : 2;
    std::size_t at = first;
    code = 0;
    for (; at < text.size() && at < first + 8; ++at) {
        const char c = lower(text[at]);
        if (is_digit(c))
            code = code * (hex ? 16 : 10) + static_cast<std::uint32_t>(c - '0');
        else if (hex && c >= 'a' && c <= 'f')
            code = code * 16 + static_cast<std::uint32_t>(c - 'a' + 10);
        else
            break;
    }
    if (at == first)
        return 0;
    if (code == 0 || code >= 0x110000)
        code = 0xFFFD;
    return at + (at < text.size() && text[at] == ';' ? 1 : 0);
}

} // namespace

std::size_t decode_entity(std::string_view text, std::uint32_t& code) {
    if (text.size() < 3)
        return 0;
    if (text[1] == '#')
        return decode_number(text, code);
    std::size_t end = 1;
    while (end < text.size() && end < 9 && (is_letter(text[end]) || is_digit(text[end])))
        ++end;
    const std::string_view name = text.substr(1, end - 1);
    const std::size_t length = end + (end < text.size() && text[end] == ';' ? 1 : 0);
    for (const auto& [known, value] : other_entities)
        if (known == name) {
            code = value;
            return length;
        }
    const auto* const found = std::find(latin_entities.begin(), latin_entities.end(), name);
    if (found == latin_entities.end())
        return 0;
    code = 0xA0 + static_cast<std::uint32_t>(found - latin_entities.begin());
    return length;
}

void html_text::separate() {
    if (!m_text.empty() && m_text.back() != '\n')
        m_text.push_back('\n');
}

void html_text::note_split(std::string_view html, std::size_t behind) {
    if (!m_text.empty() && is_wordy(m_text.back()) && behind < html.size() && is_wordy(html[behind]))
        m_features |= has_split_word;
}

std::size_t html_text::entity(std::string_view html, std::size_t at) {
    std::uint32_t code = 0;
    const std::size_t length = decode_entity(html.substr(at, 16), code);
    if (length == 0) {
        if (m_hiding.empty())
            m_text.push_back('&');
        return at + 1;
    }
    if (html[at + 1] == '#' && code < 0x80 && is_letter(static_cast<char>(code)))
        m_features |= has_numeric_entity;
    if (m_hiding.empty())
        append_utf8(m_text, code == 0xA0 ? ' ' : code);
    return at + length;
}

void html_text::add_link(std::string_view address) {
    address = trim(address, " \t\r\n\"'");
    if (address.empty() || m_links.size() >= most_links || address.size() > 4096)
        return;
    std::string& link = m_links.emplace_back();
    for (std::size_t at = 0; at < address.size();) {
        std::uint32_t code = 0;
        const std::size_t length = address[at] == '&' ? decode_entity(address.substr(at, 16), code) : 0;
        if (length != 0)
            append_utf8(link, code);
        else
            link.push_back(address[at]);
        at += length != 0 ? length : 1;
    }
}

void html_text::attribute(std::string_view tag, std::string_view name, std::string_view value) {
    if (name == "href" || name == "src" || name == "action" || name == "background") {
        if (name == "background")
            m_features |= has_background;
        add_link(value);
    } else if (name == "style") {
        assign_lower(m_key, value.substr(0, 1024));
        m_hides = m_hides || hides(m_key);
        if (m_key.find("color") != std::string::npos)
            m_features |= has_color;
    } else if (name == "color" || name == "bgcolor") {
        m_features |= has_color;
    } else if (name == "size" && tag == "font") {
        const std::string_view size = trim(value, "+ \"'");
        if (!size.empty() && size[0] >= '4' && size[0] <= '9')
            m_features |= has_big_font;
    } else if (name == "hidden" && tag != "input") {
        m_hides = true;
    } else if (name.size() > 4 && name.starts_with("on")) {
        m_features |= has_event;
    }
}

void html_text::open_tag(std::string_view name, std::string_view attributes) {
    for (const auto& [tag, bit] : tag_features)
        if (tag == name)
            m_features |= bit;
    m_hides = false;
    std::size_t at = 0;
    for (unsigned count = 0; at < attributes.size() && count < 64; ++count) {
        while (at < attributes.size() && (is_space(attributes[at]) || attributes[at] == '/'))
            ++at;
        const std::size_t key = at;
        while (at < attributes.size() && attributes[at] != '=' && !is_space(attributes[at]))
            ++at;
        const std::size_t key_end = at;
        while (at < attributes.size() && is_space(attributes[at]))
            ++at;
        std::string_view value;
        if (at < attributes.size() && attributes[at] == '=') {
            ++at;
            while (at < attributes.size() && is_space(attributes[at]))
                ++at;
            const char quote = at < attributes.size() ? attributes[at] : '\0';
            std::size_t end;
            if (quote == '"' || quote == '\'') {
                end = std::min(attributes.find(quote, ++at), attributes.size());
                value = attributes.substr(at, end - at);
                at = end + 1;
            } else {
                end = at;
                while (end < attributes.size() && !is_space(attributes[end]))
                    ++end;
                value = attributes.substr(at, end - at);
                at = end;
            }
        }
        std::array<char, 12> lowered{};
        const std::size_t length = std::min(key_end - key, lowered.size());
        std::transform(attributes.begin() + static_cast<std::ptrdiff_t>(key),
                       attributes.begin() + static_cast<std::ptrdiff_t>(key + length), lowered.begin(),
                       lower);
        attribute(name, {lowered.data(), length}, value);
    }
    const bool closed = !attributes.empty() && attributes.back() == '/';
    if (!m_hiding.empty()) {
        if (name == m_hiding && !closed)
            ++m_hiding_depth;
    } else if (!is_void_tag(name) && !closed && (m_hides || name == "script" || name == "style")) {
        m_hiding = name;
        m_hiding_depth = 1;
        if (m_hides)
            m_features |= has_hidden;
    }
}

void html_text::close_tag(std::string_view name) {
    if (name == m_hiding && --m_hiding_depth == 0)
        m_hiding.clear();
}

// `at` is the place of a "<".
std::size_t html_text::markup(std::string_view html, std::size_t at) {
    const std::string_view rest = html.substr(at);
    if (rest.starts_with("<!--")) {
        std::size_t end = m_comment_ends ? html.find("-->", at + 4) : std::string_view::npos;
        m_comment_ends = end != std::string_view::npos;
        // Browsers end an unclosed comment at its first ">".
        if (end == std::string_view::npos)
            end = html.find('>', at);
        else
            end += 2;
        const std::size_t behind = end == std::string_view::npos ? html.size() : end + 1;
        note_split(html, behind);
        return behind;
    }
    const bool closing = rest.size() > 1 && rest[1] == '/';
    std::size_t name_end = at + (closing ? 2 : 1);
    const std::size_t name_start = name_end;
    const char first = name_start < html.size() ? html[name_start] : '\0';
    if (!is_letter(first) && first != '!' && first != '?') {
        if (m_hiding.empty())
            m_text.push_back('<');
        return at + 1;
    }
    while (name_end < html.size() && name_end - name_start < 32 &&
           (is_letter(html[name_end]) || is_digit(html[name_end]) || html[name_end] == '!'))
        ++name_end;
    // The end of the tag; a ">" within quotes is part of it, if the quotes end soon.
    std::size_t end = m_tag_ends ? html.find('>', name_end) : std::string_view::npos;
    m_tag_ends = end != std::string_view::npos;
    if (end == std::string_view::npos) {
        // A cut-off tag, or no tag at all.
        if (m_hiding.empty())
            m_text.push_back(' ');
        return name_end;
    }
    const std::size_t quote = html.substr(name_end, end - name_end).find("=\"");
    if (quote != std::string_view::npos) {
        const auto quotes = std::count(html.begin() + static_cast<std::ptrdiff_t>(name_end),
                                       html.begin() + static_cast<std::ptrdiff_t>(end), '"');
        if (quotes % 2 != 0) {
            const std::size_t closing_quote =
                html.substr(0, std::min(html.size(), end + 1024)).find('"', end);
            if (closing_quote != std::string_view::npos) {
                const std::size_t next =
                    html.substr(0, std::min(html.size(), closing_quote + 1024)).find('>', closing_quote);
                if (next != std::string_view::npos)
                    end = next;
            }
        }
    }
    assign_lower(m_name, html.substr(name_start, name_end - name_start));
    const bool is_inline = is_one_of(m_name, inline_tags);
    const bool is_block = !is_inline && is_one_of(m_name, block_tags);
    if (is_inline || is_block) {
        if (closing)
            close_tag(m_name);
        else
            open_tag(m_name, html.substr(name_end, std::min<std::size_t>(end - name_end, 8192)));
        if (is_block && m_hiding.empty() && m_name != "wbr")
            separate();
    } else if (first != '!' && first != '?' && m_name.find(':') == std::string::npos &&
               html[name_end] != ':') {
        m_features |= has_unknown_tag;
        note_split(html, end + 1);
    }
    return end + 1;
}

void html_text::strip(std::string_view html) {
    m_text.clear();
    m_links.clear();
    m_features = 0;
    m_hiding.clear();
    m_hiding_depth = 0;
    m_comment_ends = m_tag_ends = true;
    for (std::size_t at = 0; at < html.size();) {
        std::size_t special = at;
        while (special < html.size() && html[special] != '<' && html[special] != '&')
            ++special;
        if (m_hiding.empty())
            m_text.append(html, at, special - at);
        if (special == html.size())
            break;
        at = html[special] == '<' ? markup(html, special) : entity(html, special);
    }
}

} // namespace tvr
