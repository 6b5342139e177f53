// FNV-1a, by which texts are told apart where only a number is kept.
#pragma once

#include <cstdint>
#include <string_view>

namespace tvr {

constexpr std::uint64_t fnv_64(std::string_view text) noexcept {
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    return hash;
}

constexpr std::uint32_t fnv_32(std::string_view text) noexcept {
    std::uint32_t hash = 0x811C9DC5;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x01000193;
    return hash;
}

} // namespace tvr
