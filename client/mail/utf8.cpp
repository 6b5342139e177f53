#include "client/mail/utf8.h"

#include <array>
#include <cstdint>

#include "common/bytes.h"

namespace tvr {

bool is_ascii(std::string_view bytes) noexcept {
    constexpr std::uint64_t high_bits = 0x8080808080808080ULL;
    std::size_t at = 0;
    for (; at + 8 <= bytes.size(); at += 8)
        if (load_le<std::uint64_t>(bytes.data() + at) & high_bits)
            return false;
    for (; at < bytes.size(); ++at)
        if (static_cast<unsigned char>(bytes[at]) >= 0x80)
            return false;
    return true;
}

char32_t next_code_point(std::string_view text, std::size_t& at) noexcept {
    const auto byte = [&](std::size_t place) { return static_cast<unsigned char>(text[place]); };
    const unsigned first = byte(at++);
    if (first < 0x80)
        return first;
    const unsigned more = first >= 0xF0 && first < 0xF5   ? 3
                          : first >= 0xE0 && first < 0xF0 ? 2
                          : first >= 0xC2 && first < 0xE0 ? 1
                                                          : 0;
    if (more == 0 || text.size() - at < more)
        return 0xFFFD;
    char32_t code = first & (0x3FU >> more);
    for (unsigned i = 0; i < more; ++i) {
        if ((byte(at + i) & 0xC0U) != 0x80)
            return 0xFFFD;
        code = code << 6 | (byte(at + i) & 0x3FU);
    }
    constexpr std::array<char32_t, 4> least = {0, 0x80, 0x800, 0x10000};
    if (code < least[more] || code >= 0x110000 || (code >= 0xD800 && code < 0xE000))
        return 0xFFFD;
    at += more;
    return code;
}

bool is_utf8(std::string_view bytes) noexcept {
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t start = at;
        if (next_code_point(bytes, at) == 0xFFFD && !bytes.substr(start).starts_with("\xEF\xBF\xBD"))
            return false;
    }
    return true;
}

void append_utf8(std::string& text, std::uint32_t code) {
    const auto put = [&](std::uint32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xC0 | code >> 6), put(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        if (code >= 0xD800 && code < 0xE000)
            return;
        put(0xE0 | code >> 12), put(0x80 | (code >> 6 & 0x3F)), put(0x80 | (code & 0x3F));
    } else if (code < 0x110000) {
        put(0xF0 | code >> 18), put(0x80 | (code >> 12 & 0x3F)), put(0x80 | (code >> 6 & 0x3F)),
            put(0x80 | (code & 0x3F));
    }
}

} // namespace tvr
