// Tells most keys that a token table doesn't have by a look at one word.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tvr {

// Two bits, in one word, for the hash of each key. With room for the keys that were added, some 3 in 100
// absent keys pass. Until make() all do.
class key_filter {
public:
    // Without a key, and with room for so many.
    void make(std::uint32_t keys) {
        constexpr std::uint32_t keys_a_word = 8;
        const std::uint32_t words = std::bit_ceil(std::max(keys / keys_a_word, 2U));
        m_words.assign(words, 0);
        m_shift = 64 - static_cast<unsigned>(std::countr_zero(words));
    }
    void add(std::uint32_t hash) noexcept {
        const std::uint64_t mixed = hash * spread;
        m_words[mixed >> m_shift] |= bits_of(mixed);
    }
    // False: no key of this hash was added.
    [[nodiscard]] bool passes(std::uint32_t hash) const noexcept {
        const std::uint64_t mixed = hash * spread;
        return (~m_words[mixed >> m_shift] & bits_of(mixed)) == 0;
    }

private:
    static constexpr std::uint64_t spread = 0x9E3779B97F4A7C15; // 2 to the 64 by the golden ratio

    static std::uint64_t bits_of(std::uint64_t mixed) noexcept {
        return std::uint64_t{1} << (mixed >> 32 & 63) | std::uint64_t{1} << (mixed >> 38 & 63);
    }

    std::vector<std::uint64_t> m_words{~std::uint64_t{0}, ~std::uint64_t{0}};
    unsigned m_shift = 63;
};

} // namespace tvr
