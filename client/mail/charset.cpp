#include "client/mail/charset.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "client/mail/charset_names.h"
#include "client/mail/transfer_encoding.h"
#include "common/text.h"
#include "platform/charset.h"

namespace tvr {

namespace {

constexpr char32_t no_character = 0xFFFD;

constexpr std::uint8_t byte_at(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

// --- pairs of bytes

// The characters of one code page, fetched from the system by the first byte when one is met first.
class pair_table {
public:
    explicit pair_table(unsigned code_page) : m_code_page(code_page) {}

    char32_t character(std::uint8_t first, std::uint8_t second) {
        auto& row = m_rows[first];
        if (!row) {
            row = std::make_unique<platform::pair_row>();
            if (!platform::read_pair_row(m_code_page, first, *row))
                row->fill(0);
        }
        const char32_t code = (*row)[second];
        // What is for private use differs between systems.
        return code == 0 || (code >= 0xE000 && code < 0xF900) ? no_character : code;
    }

private:
    unsigned m_code_page;
    std::array<std::unique_ptr<platform::pair_row>, 256> m_rows;
};

pair_table& pairs_of(unsigned code_page) {
    thread_local pair_table japanese(932), chinese(936), korean(949), taiwanese(950);
    return code_page == 932 ? japanese : code_page == 936 ? chinese : code_page == 949 ? korean : taiwanese;
}

constexpr bool is_first(unsigned code_page, std::uint8_t byte) {
    return code_page == 932 ? (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC)
                            : byte >= 0x81 && byte <= 0xFE;
}

// A character of JIS X 0208, whose rows and cells count from 0x21.
char32_t japanese_character(std::uint8_t row, std::uint8_t cell) {
    if (row < 0x21 || row > 0x7E || cell < 0x21 || cell > 0x7E)
        return no_character;
    const unsigned half = (row + 1U) / 2;
    const unsigned first = half + (row < 0x5F ? 0x70 : 0xB0);
    const unsigned second = row % 2 != 0 ? cell + 0x1FU + (cell >= 0x60 ? 1 : 0) : cell + 0x7EU;
    return pairs_of(932).character(static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(second));
}

constexpr char32_t half_width_kana(std::uint8_t byte) {
    return byte >= 0xA1 && byte <= 0xDF ? 0xFF61 + (byte - 0xA1U) : no_character;
}

void from_pairs(std::string_view bytes, unsigned code_page, std::string& room) {
    pair_table& pairs = pairs_of(code_page);
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const std::uint8_t first = byte_at(bytes, at);
        if (first < 0x80) {
            room.push_back(bytes[at]);
        } else if (is_first(code_page, first) && at + 1 < bytes.size() && byte_at(bytes, at + 1) >= 0x40) {
            const std::uint8_t second = byte_at(bytes, at + 1);
            const char32_t code = pairs.character(first, second);
            append_utf8(room, code);
            at += code != no_character || second >= 0x80 ? 1 : 0; // ASCII after a bad byte stays
        } else if (code_page == 936 && is_first(936, first) && at + 3 < bytes.size() &&
                   byte_at(bytes, at + 1) >= 0x30 && byte_at(bytes, at + 1) <= 0x39 &&
                   is_first(936, byte_at(bytes, at + 2))) {
            append_utf8(room, no_character); // four bytes, of a rare script
            at += 3;
        } else {
            append_utf8(room, code_page == 932                    ? half_width_kana(first)
                              : code_page == 936 && first == 0x80 ? 0x20AC
                                                                  : no_character);
        }
    }
}

void from_euc_jp(std::string_view bytes, std::string& room) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const std::uint8_t first = byte_at(bytes, at);
        const std::uint8_t second = at + 1 < bytes.size() ? byte_at(bytes, at + 1) : 0;
        if (first < 0x80) {
            room.push_back(bytes[at]);
        } else if (second < 0xA1) {
            append_utf8(room, no_character);
        } else if (first == 0x8E) {
            append_utf8(room, half_width_kana(second));
            ++at;
        } else if (first == 0x8F) {
            append_utf8(room, no_character); // of the supplementary set
            at += at + 2 < bytes.size() && byte_at(bytes, at + 2) >= 0xA1 ? 2 : 1;
        } else {
            append_utf8(room, japanese_character(first & 0x7F, second & 0x7F));
            ++at;
        }
    }
}

// --- charsets that switch

void from_iso_2022_jp(std::string_view bytes, std::string& room) {
    enum { ascii, kana, kanji, other } set = ascii;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const std::string_view rest = bytes.substr(at);
        if (rest[0] == '\x1B' && rest.size() >= 3) {
            const bool pairs = rest[1] == '$';
            set = rest.starts_with("\x1B(B") || rest.starts_with("\x1B(J") ? ascii
                  : rest.starts_with("\x1B(I")                             ? kana
                  : pairs && (rest[2] == '@' || rest[2] == 'B')            ? kanji
                                                                           : other;
            at += pairs && rest[2] == '(' ? 3 : 2;
            continue;
        }
        const std::uint8_t first = byte_at(bytes, at);
        if (first == '\n' || first == '\r')
            set = ascii; // a line begins again
        if (set == ascii || first <= ' ') {
            append_utf8(room, first < 0x80 ? first : no_character);
        } else if (set == kana) {
            append_utf8(room, half_width_kana(first | 0x80));
        } else if (rest.size() >= 2 && byte_at(rest, 1) <= ' ') {
            append_utf8(room, no_character); // the pair is torn; what follows may switch
        } else if (rest.size() >= 2) {
            append_utf8(room, set == kanji ? japanese_character(first & 0x7F, byte_at(rest, 1) & 0x7F)
                                           : no_character);
            ++at;
        }
    }
}

// Pairs of bytes with the high bits off, between `on` and `off`.
void from_shifted(std::string_view bytes, unsigned code_page, std::string_view on, std::string_view off,
                  std::string& room) {
    bool shifted = false;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const std::string_view rest = bytes.substr(at);
        const std::uint8_t first = byte_at(bytes, at);
        if (rest.starts_with(shifted ? off : on)) {
            at += (shifted ? off : on).size() - 1;
            shifted = !shifted;
        } else if (rest.starts_with("\x1B$)C")) {
            at += 3; // tells which set follows
        } else if (first == '\n') {
            shifted = false;
            room.push_back('\n');
        } else if (shifted && first > ' ' && rest.size() >= 2 && byte_at(rest, 1) > ' ') {
            append_utf8(room, pairs_of(code_page).character(first | 0x80, byte_at(rest, 1) | 0x80));
            ++at;
        } else {
            append_utf8(room, first < 0x80 ? first : no_character);
        }
    }
}

// --- Unicode

// Puts surrogates together.
class utf_16_writer {
public:
    explicit utf_16_writer(std::string& room) : m_room(room) {}
    void put(char32_t unit) {
        if (unit >= 0xDC00 && unit < 0xE000 && m_high != 0) {
            append_utf8(m_room, 0x10000 + ((m_high - 0xD800) << 10) + (unit - 0xDC00));
            m_high = 0;
            return;
        }
        end();
        if (unit >= 0xD800 && unit < 0xDC00)
            m_high = unit;
        else
            append_utf8(m_room, unit >= 0xDC00 && unit < 0xE000 ? no_character : unit);
    }
    void end() {
        if (m_high != 0)
            append_utf8(m_room, no_character);
        m_high = 0;
    }

private:
    std::string& m_room;
    char32_t m_high = 0;
};

void from_utf_16(std::string_view bytes, bool little_endian, std::string& room) {
    if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) {
        little_endian = bytes[0] == '\xFF';
        bytes.remove_prefix(2);
    } else if (bytes.size() >= 2 && (bytes[0] == '\0') != (bytes[1] == '\0')) {
        little_endian = bytes[1] == '\0'; // ASCII tells the order
    }
    utf_16_writer writer(room);
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        const unsigned a = byte_at(bytes, at), b = byte_at(bytes, at + 1);
        writer.put(little_endian ? b << 8 | a : a << 8 | b);
    }
    writer.end();
}

void from_utf_32(std::string_view bytes, bool little_endian, std::string& room) {
    for (std::size_t at = 0; at + 3 < bytes.size(); at += 4) {
        std::uint32_t code = 0;
        for (std::size_t i = 0; i < 4; ++i)
            code = code << 8 | byte_at(bytes, at + (little_endian ? 3 - i : i));
        if (at == 0 && code == 0xFFFE0000) {
            little_endian = true;
            continue;
        }
        append_utf8(room, code >= 0x110000 || (code >= 0xD800 && code < 0xE000) ? no_character : code);
    }
}

void from_utf_7(std::string_view bytes, std::string& room) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (bytes[at] != '+') {
            append_utf8(room, byte_at(bytes, at) < 0x80 ? byte_at(bytes, at) : no_character);
            continue;
        }
        const std::size_t start = ++at;
        utf_16_writer writer(room);
        std::uint32_t bits = 0;
        unsigned held = 0;
        for (; at < bytes.size() && base64_digit(bytes[at]) >= 0; ++at) {
            bits = bits << 6 | static_cast<std::uint32_t>(base64_digit(bytes[at]));
            held += 6;
            if (held >= 16)
                writer.put(bits >> (held -= 16) & 0xFFFF);
        }
        writer.end();
        if (at == start)
            room.push_back('+');
        if (at == bytes.size() || bytes[at] != '-')
            --at; // it stands for itself
    }
}

// --- one byte a character

void from_table(std::string_view bytes, const single_byte_table& table, std::string& room) {
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        if (byte < 0x80)
            room.push_back(c);
        else
            append_utf8(room, table[byte - 0x80U]);
    }
}

} // namespace

std::string_view to_utf8(std::string_view bytes, std::string_view charset, std::string& room) {
    const tvr::charset found = charset.empty() ? tvr::charset{} : find_charset(charset);
    if (found.kind <= charset_kind::euc_jp && is_ascii(bytes))
        return bytes;
    if (found.kind == charset_kind::plain && is_utf8(bytes))
        return bytes;
    room.clear();
    room.reserve(bytes.size() + bytes.size() / 2);
    switch (found.kind) {
    case charset_kind::plain:
        from_table(bytes, single_byte_tables[static_cast<std::size_t>(single_byte::windows_1252)], room);
        break;
    case charset_kind::one_byte:
        from_table(bytes, *found.table, room);
        break;
    case charset_kind::two_bytes:
        from_pairs(bytes, found.code_page, room);
        break;
    case charset_kind::euc_jp:
        from_euc_jp(bytes, room);
        break;
    case charset_kind::iso_2022_jp:
        from_iso_2022_jp(bytes, room);
        break;
    case charset_kind::iso_2022_kr:
        from_shifted(bytes, found.code_page, "\x0E", "\x0F", room);
        break;
    case charset_kind::hz:
        from_shifted(bytes, found.code_page, "~{", "~}", room);
        break;
    case charset_kind::utf_7:
        from_utf_7(bytes, room);
        break;
    case charset_kind::utf_16:
        from_utf_16(bytes, found.little_endian, room);
        break;
    case charset_kind::utf_32:
        from_utf_32(bytes, found.little_endian, room);
        break;
    }
    return room;
}

} // namespace tvr
