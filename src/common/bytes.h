// Little-endian loads and stores at any alignment.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace tvr {

static_assert(std::endian::native == std::endian::little, "the formats are read in place");

template <class T>
[[nodiscard]] T load_le(const void* from) noexcept {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <class T>
void store_le(void* to, T value) noexcept {
    std::memcpy(to, &value, sizeof value);
}

[[nodiscard]] inline std::uint32_t load_u32(const void* from) noexcept {
    return load_le<std::uint32_t>(from);
}

inline void store_u32(void* to, std::uint32_t value) noexcept {
    store_le<std::uint32_t>(to, value);
}

} // namespace tvr
