// What the user's mail taught about single tokens: weights of a logistic regression over all tokens, found by
// their hash. It remembers more than the base: how often a token that only one half has was seen, and what
// has aged out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "client/verdict/evidence.h"
#include "client/verdict/place_table.h"

namespace tvr {

// A token by 29 bits of its hash, and its kind in the lowest three (7 is none).
using token_key = std::uint32_t;
[[nodiscard]] token_key key_of(std::string_view token) noexcept;
constexpr unsigned kind_of_key(token_key key) noexcept {
    return key & 7U;
}

// One thread. Every build computes alike: what isn't of integers are basic operations, roots, and one
// function of our own.
class token_memory {
public:
    static constexpr unsigned index_bits = 16;
    static constexpr std::size_t places = std::size_t{1} << index_bits;
    static constexpr std::int32_t unit = 4096; // of a weight
    static constexpr std::int32_t most_bias = 1 << 24;

    // What one token says, a logit in 1/unit.
    [[nodiscard]] std::int32_t weight(token_key key) const noexcept {
        return weight_in(m_weights.at(place_of(key)));
    }
    [[nodiscard]] static constexpr std::size_t place_of(token_key key) noexcept {
        return key >> (32 - index_bits);
    }
    // How much one token counts in a message of so many: in a long message each says less.
    [[nodiscard]] static double scale(std::size_t tokens) noexcept;
    // What the sum of the weights of so many tokens says of their message: a logit in 1/unit, and one in
    // 1/64.
    [[nodiscard]] std::int64_t logit(std::int64_t sum, std::size_t tokens) const noexcept;
    [[nodiscard]] std::int16_t verdict(std::int64_t sum, std::size_t tokens) const noexcept;
    [[nodiscard]] std::int16_t say(std::span<const token_key> tokens) const noexcept;
    // Learns from one message; the surer the memory was right, the less, and the less by weights that have
    // learned much.
    void learn(std::span<const token_key> tokens, bool spam);

    using weight_table = place_table<std::int16_t, places>; // with what each erred
    [[nodiscard]] const weight_table& weights() const noexcept { return m_weights; }
    [[nodiscard]] weight_table& weights() noexcept { return m_weights; }
    std::int32_t bias = 0; // 1/unit; most_bias at most, either way

private:
    // A place holds a weight of whole steps, and in the bits below them how much it erred.
    static constexpr std::int32_t weight_step = 16;
    static constexpr std::int32_t root_mask = weight_step - 1;
    static constexpr std::int32_t weight_in(std::int16_t place) noexcept { return place & ~root_mask; }
    [[nodiscard]] std::int64_t sum_of(std::span<const token_key> tokens) const noexcept;

    weight_table m_weights;
};

} // namespace tvr
