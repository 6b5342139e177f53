// The folded form of a message ID, by which the index is ordered.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/bytes.h"

namespace tvr {

// 11 bytes in a file: the low byte of the ID's length and ten bytes of the ID folded by XOR, with every
// zero replaced by a space. Different IDs can give one key. Kept as two big-endian numbers that overlap
// in one byte, so that comparing them is comparing the bytes.
struct key11 {
    static constexpr std::size_t size = 11; // bytes

    std::uint64_t high = 0; // bytes 0 to 7
    std::uint32_t low = 0;  // bytes 7 to 10

    static key11 of(std::string_view id) noexcept;
    static key11 load(const std::uint8_t* from) noexcept;
    void store(std::uint8_t* to) const noexcept;

    friend bool operator==(const key11&, const key11&) = default;
    friend auto operator<=>(const key11&, const key11&) = default;
};

namespace detail {

constexpr std::uint64_t swap_bytes(std::uint64_t value) noexcept {
    value = (value & 0x00FF00FF00FF00FF) << 8 | (value >> 8 & 0x00FF00FF00FF00FF);
    value = (value & 0x0000FFFF0000FFFF) << 16 | (value >> 16 & 0x0000FFFF0000FFFF);
    return value << 32 | value >> 32;
}

constexpr std::uint32_t swap_bytes(std::uint32_t value) noexcept {
    value = (value & 0x00FF00FF) << 8 | (value >> 8 & 0x00FF00FF);
    return value << 16 | value >> 16;
}

} // namespace detail

inline key11 key11::load(const std::uint8_t* from) noexcept {
    return {detail::swap_bytes(load_le<std::uint64_t>(from)), detail::swap_bytes(load_u32(from + 7))};
}

inline void key11::store(std::uint8_t* to) const noexcept {
    store_le(to, detail::swap_bytes(high));
    store_le(to + 7, detail::swap_bytes(low));
}

} // namespace tvr
