// Charsets of one byte a character.
#pragma once

#include <array>
#include <cstddef>

namespace tvr {

enum class single_byte : std::size_t {
    windows_874,
    windows_1250,
    windows_1251,
    windows_1252,
    windows_1253,
    windows_1254,
    windows_1255,
    windows_1256,
    windows_1257,
    windows_1258,
    iso_2,
    iso_3,
    iso_4,
    iso_5,
    iso_6,
    iso_7,
    iso_8,
    iso_10,
    iso_13,
    iso_14,
    iso_15,
    iso_16,
    koi8_r,
    koi8_u,
    ibm866,
    macintosh,
    count
};

// What the bytes from 0x80 on stand for; U+FFFD for nothing. Those below are ASCII.
using single_byte_table = std::array<char16_t, 128>;
extern const std::array<single_byte_table, static_cast<std::size_t>(single_byte::count)> single_byte_tables;

} // namespace tvr
