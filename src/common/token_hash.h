// The three hashes over token bytes. All take the bytes as signed values.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/bytes.h"

namespace tvr {

// The order of tokens in all files, below 0x10000000. deliberate: the last byte is left out, because both
// sides of a format must get the same number. An empty text gives 0.
std::uint32_t order_hash(std::string_view text) noexcept;
// A byte as the hashes take it.
inline std::uint32_t extended(char byte) noexcept {
    return static_cast<std::uint32_t>(static_cast<signed char>(byte));
}
// The first probe of the token table, before the modulo.
inline std::uint32_t probe_hash(std::string_view key) noexcept {
    std::uint32_t h = 0x521365FF;
    const char* at = key.data();
    std::size_t left = key.size();
    for (; left > 4; --left, ++at)
        h = std::rotl(h, 5) ^ load_u32(at);
    for (; left > 0; --left, ++at)
        h = std::rotl(h, 5) ^ extended(*at);
    return h;
}
// The step between probes, before the modulo.
std::uint32_t step_hash(std::string_view key) noexcept;

} // namespace tvr
