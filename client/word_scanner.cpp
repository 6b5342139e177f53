#include "client/word_scanner.h"

#include <algorithm>
#include <cstdint>

#include "client/mail/charset.h"
#include "client/mail/utf8.h"
#include "common/text.h"
#include "platform/ascii.h"

namespace tvr {

namespace {

// `marks` separates, too, but may tell what precedes it.
enum kind : std::uint8_t { separates, wordy, joins, marks, high };

constexpr std::array<kind, 256> make_kinds() {
    std::array<kind, 256> kinds{};
    for (unsigned i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        if (is_digit(c) || is_letter(c) || c == '$')
            kinds[i] = wordy;
        else if (i == '\'' || i == '-' || i == '_' || i == '.' || i == ',')
            kinds[i] = joins;
        else if (i == '!' || i == '@' || i == ':')
            kinds[i] = marks;
        else if (i >= 0x80)
            kinds[i] = high;
    }
    return kinds;
}
constexpr std::array<kind, 256> kinds = make_kinds();

constexpr kind kind_of(char c) {
    return kinds[static_cast<unsigned char>(c)];
}
bool is_invisible(char32_t code) {
    return code == 0xAD || (code >= 0x200B && code <= 0x200F) || (code >= 0x202A && code <= 0x202E) ||
           (code >= 0x2060 && code <= 0x2064) || code == 0xFEFF || (code >= 0x300 && code <= 0x36F) ||
           (code >= 0xFE00 && code <= 0xFE0F);
}

bool is_separator(char32_t code) {
    return (code >= 0x80 && code < 0xC0 && code != 0xAA && code != 0xB5 && code != 0xBA) || code == 0xD7 ||
           code == 0xF7 || (code >= 0x2000 && code < 0x2070) || (code >= 0x20A0 && code < 0x2C00) ||
           (code >= 0x3000 && code < 0x3005) || (code >= 0x3008 && code < 0x3031) ||
           (code >= 0xE000 && code < 0xF900) || code >= 0xFFF0;
}

// Characters of scripts that are written without blanks.
bool is_wide(char32_t code) {
    return (code >= 0x3040 && code < 0xA000) || (code >= 0xF900 && code < 0xFB00) ||
           (code >= 0x20000 && code < 0x32000) || (code >= 0x0E00 && code < 0x0E80);
}

// Full-width forms of ASCII become the plain ones.
char32_t fold(char32_t code) {
    return code >= 0xFF01 && code <= 0xFF5E ? code - 0xFEE0 : code;
}

// The end of the word characters that begin at `at`.
std::size_t run_end(std::string_view text, std::size_t at) {
    while (at < text.size() && kind_of(text[at]) == wordy)
        ++at;
    return at;
}

// True if what stands at `at` ends a word and nothing else: most words end so.
bool ends_plainly(std::string_view text, std::size_t at) {
    const kind here = at < text.size() ? kind_of(text[at]) : separates;
    return here == separates ||
           (here == joins && (at + 1 == text.size() || kind_of(text[at + 1]) == separates));
}

void give(const char* word, std::size_t size, word_sink& sink) {
    if (size <= word_scanner::longest)
        sink.word({word, size});
    else
        sink.long_run(*word, size);
}

} // namespace

std::size_t link_end(std::string_view text, std::size_t at) noexcept {
    std::size_t end = at;
    while (end < text.size() && static_cast<unsigned char>(text[end]) > ' ' && text[end] != '"' &&
           text[end] != '<' && text[end] != '>' && end - at < 2048)
        ++end;
    while (end > at && (text[end - 1] == '.' || text[end - 1] == ',' || text[end - 1] == ')'))
        --end;
    return end;
}

void word_scanner::put(char c) noexcept {
    if (m_length < m_word.size())
        m_word[m_length] = c;
    ++m_length;
}

void word_scanner::put(std::string_view run) noexcept {
    if (m_length < m_word.size())
        run.copy(m_word.data() + m_length, m_word.size() - m_length);
    m_length += run.size();
}

void word_scanner::put_code(char32_t code) noexcept {
    if (code < 0x80) {
        put(static_cast<char>(code));
        return;
    }
    std::array<char, 4> room;
    put(std::string_view(room.data(), encode_utf8(code, room.data())));
}

void word_scanner::end_word(word_sink& sink) {
    m_last_wide = 0;
    if (m_length != 0)
        give(m_word.data(), m_length, sink);
    m_length = 0;
}

void word_scanner::wide_character(char32_t code, word_sink& sink) {
    const char32_t last = m_last_wide;
    if (last == 0)
        end_word(sink);
    if (last != 0) {
        put_code(last);
        put_code(code);
        end_word(sink);
    }
    m_last_wide = code;
}

bool word_scanner::high_character(std::string_view text, std::size_t& at, word_sink& sink) {
    const char32_t code = next_code_point(text, at);
    if (is_invisible(code))
        return true;
    if (is_separator(code))
        return false;
    if (is_wide(code)) {
        wide_character(code, sink);
        return true;
    }
    const char32_t folded = fold(code);
    if (folded < 0x80 && kind_of(static_cast<char>(folded)) != wordy)
        return false;
    if (m_last_wide != 0)
        end_word(sink);
    put_code(folded);
    return true;
}

void word_scanner::scan(std::string_view text, word_sink& sink) {
    m_length = 0;
    m_last_wide = 0;
    std::size_t start = 0; // of the word at hand in the text
    for (std::size_t at = 0; at < text.size();) {
        const char c = text[at];
        const kind what = kind_of(c);
        if (what == wordy) {
            m_last_wide = 0;
            const std::size_t end = run_end(text, at);
            if (m_length == 0) {
                start = at;
                if (ends_plainly(text, end)) {
                    give(text.data() + at, end - at, sink);
                    at = end + 1;
                    continue;
                }
            }
            put(text.substr(at, end - at));
            at = end;
            continue;
        }
        if (what == high) {
            if (m_length == 0)
                start = at;
            if (high_character(text, at, sink))
                continue;
            end_word(sink);
            continue;
        }
        if (m_length == 0) {
            m_last_wide = 0;
            ++at;
            continue;
        }
        const char next = at + 1 < text.size() ? text[at + 1] : ' ';
        if (what == joins) {
            const kind behind = kind_of(next);
            const bool number_sign = c == '.' || c == ',';
            const bool within =
                number_sign ? is_digit(text[at - 1]) && is_digit(next) : behind == wordy || behind == high;
            if (within) {
                put(c);
                ++at;
                continue;
            }
            if (c == '.' && m_length == 3 && equals_ignoring_case({m_word.data(), 3}, "www") &&
                behind == wordy) {
                m_length = 0;
                at = link_end(text, start);
                sink.link(text.substr(start, at - start));
                at = std::max(at, start + 4);
                continue;
            }
        } else if (c == '!') {
            put('!');
        } else if (c == '@' && kind_of(next) == wordy) {
            std::size_t end = at + 1;
            while (end < text.size() && end - at < 256 &&
                   (kind_of(text[end]) == wordy || text[end] == '-' || text[end] == '.'))
                ++end;
            sink.mail_address(text.substr(start, end - start));
            m_length = 0;
            at = end;
            continue;
        } else if (c == ':' && next == '/' && text.substr(at).starts_with("://") && m_length <= 5) {
            const std::string_view scheme(m_word.data(), m_length);
            if (equals_ignoring_case(scheme, "http") || equals_ignoring_case(scheme, "https") ||
                equals_ignoring_case(scheme, "ftp")) {
                m_length = 0;
                at = std::max(link_end(text, start), at + 3);
                sink.link(text.substr(start, at - start));
                continue;
            }
        }
        end_word(sink);
        ++at;
    }
    end_word(sink);
}

} // namespace tvr
