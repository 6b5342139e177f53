#include "client/mail/transfer_encoding.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "common/text.h"

namespace tvr {

namespace {

using namespace std::string_view_literals;

struct encoding_name {
    std::string_view name;
    transfer_encoding encoding;
};
// The first name of each is the one that name_of() gives.
constexpr std::array<encoding_name, 11> encoding_names = {{
    {"7bit", transfer_encoding::seven_bit},
    {"8bit", transfer_encoding::eight_bit},
    {"binary", transfer_encoding::binary},
    {"base64", transfer_encoding::base64},
    {"quoted-printable", transfer_encoding::quoted_printable},
    {"x-uuencode", transfer_encoding::uuencode},
    {"uuencode", transfer_encoding::uuencode},
    {"x-uue", transfer_encoding::uuencode},
    {"7-bit", transfer_encoding::seven_bit},
    {"8-bit", transfer_encoding::eight_bit},
    {"base-64", transfer_encoding::base64},
}};

// The 65th character pads.
constexpr std::string_view base64_alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
constexpr std::uint8_t padding = 64, not_base64 = 255;
constexpr std::size_t longest_line = 128; // of base-64 that is looked at after an "="

constexpr std::array<std::uint8_t, 256> make_base64_values() {
    std::array<std::uint8_t, 256> values{};
    values.fill(not_base64);
    for (std::size_t i = 0; i < base64_alphabet.size(); ++i)
        values[static_cast<unsigned char>(base64_alphabet[i])] = static_cast<std::uint8_t>(i);
    return values;
}
constexpr std::array<std::uint8_t, 256> base64_values = make_base64_values();

constexpr std::uint8_t base64_value(char c) {
    return base64_values[static_cast<unsigned char>(c)];
}

// True if a whole line of base-64 begins at `at`, or after blanks there. After the end of one text there
// may be another one, but also what a mailing list put there as it is.
bool goes_on(std::string_view text, std::size_t at) {
    at = text.find_first_not_of(" \t\r\n", at);
    if (at == std::string_view::npos)
        return false;
    if (text[at] == '=')
        return true;
    text = text.substr(at, longest_line);
    const std::string_view line = text.substr(0, text.find_first_of(" \t\r\n"));
    return line.size() % 4 == 0 &&
           std::all_of(line.begin(), line.end(), [](char c) { return base64_value(c) <= padding; });
}

constexpr int hex_digit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                  : -1;
}

// The end of the line break that an "=" at the end of a line leaves out; npos if the "=" at `at` is none.
std::size_t soft_break(std::string_view text, std::size_t at) {
    ++at;
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t'))
        ++at;
    if (at < text.size() && text[at] == '\r')
        return at + (at + 1 < text.size() && text[at + 1] == '\n' ? 2 : 1);
    if (at < text.size() && text[at] == '\n')
        return at + 1;
    return at == text.size() ? at : std::string_view::npos;
}

constexpr unsigned uu_value(char c) {
    return static_cast<unsigned>(c - ' ') & 0x3FU;
}

// A line of data tells its own length. Some programs add a check sum of one byte.
bool is_uu_line(std::string_view line) {
    if (line.empty() || !std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '`'; }))
        return false;
    const std::size_t bytes = uu_value(line[0]);
    return line.size() > (bytes * 8 + 5) / 6 && line.size() <= (bytes + 2) / 3 * 4 + 2;
}

void append_uu_line(std::string& target, std::string_view line, std::size_t end) {
    const auto value = [&](std::size_t at) { return at < line.size() ? uu_value(line[at]) : 0U; };
    end = std::min(end, target.size() + value(0));
    for (std::size_t at = 1; target.size() < end; at += 4) {
        const unsigned bits = value(at) << 18 | value(at + 1) << 12 | value(at + 2) << 6 | value(at + 3);
        for (unsigned shift = 24; shift > 0 && target.size() < end;)
            target.push_back(static_cast<char>(bits >> (shift -= 8)));
    }
}

} // namespace

std::optional<transfer_encoding> find_encoding(std::string_view name) noexcept {
    name = name.substr(0, name.find_first_of(" \t\r\n;("));
    for (const auto& known : encoding_names)
        if (equals_ignoring_case(known.name, name))
            return known.encoding;
    return std::nullopt;
}

std::string_view name_of(transfer_encoding encoding) noexcept {
    return std::find_if(encoding_names.begin(), encoding_names.end(),
                        [&](const encoding_name& known) { return known.encoding == encoding; })
        ->name;
}

int base64_digit(char c) noexcept {
    const std::uint8_t value = base64_value(c);
    return value < padding ? value : -1;
}

int hex_byte(std::string_view text) noexcept {
    if (text.size() < 2)
        return -1;
    const int high = hex_digit(text[0]), low = hex_digit(text[1]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

void append_base64(std::string& target, std::string_view text, std::size_t most) {
    const std::size_t start = target.size();
    const std::size_t room = text.size() / 4 * 3 + 3;
    most = std::min(most, room);
    target.resize(start + most + 3);
    char* out = target.data() + start;
    const char* const out_end = out + most;
    const auto put = [&](unsigned bits, unsigned shift) { *out++ = static_cast<char>(bits >> shift); };
    unsigned bits = 0, held = 0; // characters in `bits`
    for (std::size_t at = 0; at < text.size() && out < out_end;) {
        if (held == 0 && text.size() - at >= 4) {
            const unsigned a = base64_value(text[at]), b = base64_value(text[at + 1]),
                           c = base64_value(text[at + 2]), d = base64_value(text[at + 3]);
            if ((a | b | c | d) < padding) {
                bits = a << 18 | b << 12 | c << 6 | d;
                put(bits, 16), put(bits, 8), put(bits, 0);
                at += 4;
                continue;
            }
        }
        const std::uint8_t value = base64_value(text[at++]);
        if (value < padding) {
            bits = bits << 6 | value;
            if (++held == 4) {
                put(bits, 16), put(bits, 8), put(bits, 0);
                held = 0;
            }
        } else if (value == padding) {
            if (held == 2)
                put(bits, 4);
            else if (held == 3)
                put(bits, 10), put(bits, 2);
            held = 0;
            if (!goes_on(text, at))
                break;
        }
    }
    if (held == 2 && out < out_end)
        put(bits, 4);
    else if (held == 3 && out < out_end)
        put(bits, 10), put(bits, 2);
    target.resize(start + std::min(static_cast<std::size_t>(out - target.data()) - start, most));
}

void append_quoted_printable(std::string& target, std::string_view text, std::size_t most, bool in_word) {
    const std::size_t end = target.size() + std::min(most, text.size());
    for (std::size_t at = 0; at < text.size() && target.size() < end;) {
        const std::size_t special = std::min(in_word ? text.find_first_of("=_", at) : text.find('=', at),
                                             std::min(text.size(), at + (end - target.size())));
        target.append(text, at, special - at);
        at = special;
        if (at == text.size() || target.size() == end)
            break;
        const int byte = text[at] == '=' ? hex_byte(text.substr(at + 1)) : ' ';
        if (byte >= 0) {
            target.push_back(static_cast<char>(byte));
            at += text[at] == '=' ? 3 : 1;
            continue;
        }
        const std::size_t behind = in_word ? std::string_view::npos : soft_break(text, at);
        if (behind == std::string_view::npos)
            target.push_back(text[at++]);
        else
            at = behind;
    }
}

void append_uuencoded(std::string& target, std::string_view text, std::size_t most) {
    std::size_t at = text.starts_with("begin ") ? 0 : text.find("\nbegin ");
    if (at != std::string_view::npos)
        at = std::min(text.find('\n', at + 1), text.size() - 1) + 1;
    else
        at = 0;
    const std::size_t limit = target.size() + most;
    while (at < text.size() && target.size() < limit) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view line = trim(text.substr(at, end - at), "\r");
        at = end + 1;
        if (line == "end")
            return;
        if (is_uu_line(line))
            append_uu_line(target, line, limit);
    }
}

std::string_view decode_transfer(std::string_view text, std::optional<transfer_encoding> encoding,
                                 std::size_t most, std::string& room) {
    room.clear();
    switch (encoding.value_or(transfer_encoding::binary)) {
    case transfer_encoding::base64:
        append_base64(room, text, most);
        return room;
    case transfer_encoding::quoted_printable:
        append_quoted_printable(room, text, most, false);
        return room;
    case transfer_encoding::uuencode:
        append_uuencoded(room, text, most);
        return room;
    default:
        return text.substr(0, most);
    }
}

} // namespace tvr
