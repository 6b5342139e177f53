#include "tools/base_text/base_lines.h"

#include "client/mail/utf8.h"
#include "common/text.h"
#include "platform/ascii.h"

namespace tvr {

namespace {

constexpr std::size_t longest_stem = 64;

} // namespace

bool is_atom_stem(std::string_view stem, std::string_view dictionary) {
    if (!stem.starts_with(dictionary) || stem.size() > longest_stem)
        return false;
    for (const char c : stem)
        if (!is_digit(c) && !is_letter(c) && c != '-' && c != '_')
            return false;
    return true;
}

std::string escape_text(std::string_view text) {
    const bool keeps_high = is_utf8(text);
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\')
            out += "\\\\";
        else if (byte < 0x20 || byte == 0x7F || (byte >= 0x80 && !keeps_high))
            out += "\\x" + to_hex(byte, 2);
        else
            out += c;
    }
    return out;
}

bool unescape_text(std::string_view text, std::string& out) {
    out.clear();
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x20 || byte == 0x7F)
            return false;
        if (text[i] != '\\') {
            out += text[i];
        } else if (text.substr(i, 2) == "\\\\") {
            out += text[++i];
        } else {
            const auto code = text.substr(i, 2) == "\\x" ? from_hex(text, i + 2) : std::nullopt;
            if (!code)
                return false;
            out += static_cast<char>(*code);
            i += 3;
        }
    }
    return true;
}

} // namespace tvr
