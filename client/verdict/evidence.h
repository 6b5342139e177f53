// What the score of a message is made of: how many of its tokens, kind by kind, fall into which class of
// grades, how much mail the grades are of, and what the memory of tokens says.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tvr {

// The kinds that have a vote of their own. With all tokens in one pot, the many words of the body would drown
// the few of sender and links.
enum class token_kind : std::uint8_t { subject, received, body, header, address, structure, path };
constexpr std::size_t kind_count = 7;

// Nothing for a token that begins like none of them: it has no vote.
[[nodiscard]] std::optional<token_kind> kind_of(std::string_view token) noexcept;
[[nodiscard]] const char* name_of(token_kind kind) noexcept;

// Grades up to 0.01, 0.1, 0.3, 0.7, 0.9, below 0.99, 0.99, and tokens without a grade.
constexpr std::size_t class_count = 8;
constexpr std::size_t unknown_class = 7;
[[nodiscard]] std::size_t class_of(double grade) noexcept; // 0 is no grade

struct message_counts {
    std::uint32_t spam = 0;
    std::uint32_t ham = 0;
};
// What the engine, with its usual settings, would grade a token with that was in so many messages of so many:
// 0.01 to 0.99; 0 if it was in too few.
[[nodiscard]] double grade_of(message_counts in, message_counts of) noexcept;

// A count in few bits: exact below 4 * parts, then in steps of one of so many parts of the power of two below
// it, rounded down. `parts`: a power of two.
template <std::uint32_t parts>
[[nodiscard]] constexpr std::uint32_t unpack_parts(std::uint32_t packed) noexcept {
    return packed < 4 * parts ? packed : (parts + packed % parts) << (packed / parts - 2);
}
template <std::uint32_t parts>
[[nodiscard]] constexpr std::uint32_t pack_parts(std::uint32_t count) noexcept {
    if (count < 4 * parts)
        return count;
    const auto shift = static_cast<std::uint32_t>(std::bit_width(count / parts)) - 1;
    return parts * (shift + 2) + (count >> shift) % parts;
}

// In one byte: exact up to 64, then in steps of a sixteenth.
[[nodiscard]] std::uint8_t pack_count(std::uint32_t count) noexcept;
[[nodiscard]] constexpr std::uint32_t unpack_count(std::uint8_t packed) noexcept {
    return unpack_parts<16>(packed);
}

struct graded_tokens {
    std::array<std::array<std::uint8_t, class_count>, kind_count> counts{}; // packed
    std::uint16_t spam_messages = 0xFFFF;                                   // that the grades are of
    std::uint16_t ham_messages = 0xFFFF;

    bool operator==(const graded_tokens&) const = default;
};

// The tokens are graded twice: by the published base, and by all mail that the user has judged (seen_tokens).
struct evidence {
    graded_tokens by_base;
    graded_tokens by_all;    // the same as by_base as long as too little mail was judged
    std::int16_t memory = 0; // what token_memory says, a logit in 1/64
    bool crossed = false;    // graded by other mail that came with it, not by the published base

    bool operator==(const evidence&) const = default;
};

using grade_counts = std::array<std::array<std::uint32_t, class_count>, kind_count>;
[[nodiscard]] graded_tokens pack_counts(const grade_counts& counts, message_counts messages) noexcept;

} // namespace tvr
