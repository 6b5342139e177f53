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

std::size_t encode_utf8(std::uint32_t code, char* room) noexcept {
    if (code < 0x80) {
        *room = static_cast<char>(code);
        return 1;
    }
    if (code >= 0x110000 || (code >= 0xD800 && code < 0xE000))
        return 0;
    const std::size_t more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    constexpr std::array<std::uint32_t, 4> lead = {0, 0xC0, 0xE0, 0xF0};
    room[0] = static_cast<char>(lead[more] | code >> (6 * more));
    for (std::size_t i = 1; i <= more; ++i)
        room[i] = static_cast<char>(0x80 | (code >> (6 * (more - i)) & 0x3F));
    return more + 1;
}

void append_utf8(std::string& text, std::uint32_t code) {
    std::array<char, 4> room;
    text.append(room.data(), encode_utf8(code, room.data()));
}

} // namespace tvr
