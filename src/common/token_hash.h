// The three hashes over token bytes. All take the bytes as signed values.
#pragma once

#include <cstdint>
#include <string_view>

namespace tvr {

// The order of tokens in all files, below 0x10000000. deliberate: the last byte is left out, because both
// sides of a format must get the same number. An empty text gives 0.
std::uint32_t order_hash(std::string_view text) noexcept;
// The first probe of the token table, before the modulo.
std::uint32_t probe_hash(std::string_view key) noexcept;
// The step between probes, before the modulo.
std::uint32_t step_hash(std::string_view key) noexcept;

} // namespace tvr
