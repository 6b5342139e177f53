// What the names of charsets in mail mean.
#pragma once

#include <string_view>

#include "client/mail/single_byte.h"

namespace tvr {

enum class charset_kind {
    plain, // UTF-8, ASCII, windows-1252 and what isn't known: told apart by the bytes
    one_byte,
    two_bytes, // ASCII and pairs of bytes of a code page
    euc_jp,
    iso_2022_jp,
    iso_2022_kr,
    hz,
    utf_7,
    utf_16,
    utf_32,
};

struct charset {
    charset_kind kind = charset_kind::plain;
    const single_byte_table* table = nullptr;
    unsigned code_page = 0;     // of pairs of bytes: 932, 936, 949, 950
    bool little_endian = false; // without a mark of the byte order
};

// Case, signs and well-known nicknames don't matter: "ISO_8859-5:1988", "x-cp1251", "utf16le".
[[nodiscard]] charset find_charset(std::string_view name) noexcept;

} // namespace tvr
