// In how much spam and good mail single tokens were seen. The base keeps its halves in balance, and leaves
// out what one of them has more; this grades by all mail. It stays small: a token that was seen once makes
// room for a new one, and all counts age.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "client/verdict/token_memory.h"

namespace tvr {

// One thread. All arithmetic is of integers, but for the grade.
class seen_tokens {
public:
    static constexpr unsigned bucket_bits = 14;   // of the hash
    static constexpr std::size_t bucket_size = 8; // tokens
    // A place where both counts are 0 is free.
    struct bucket {
        std::array<std::uint8_t, bucket_size> tags{}; // the lower eight of twelve more bits of the hash
        // The upper four; then in how many messages the token was, six bits each of spam and of good mail:
        // exact below 16, then in steps of a quarter.
        std::array<std::uint16_t, bucket_size> counts{};
    };
    using bucket_table = place_table<bucket, std::size_t{1} << bucket_bits>;
    // Of spam, or of good mail: then its counts are halved. What was seen once stays.
    static constexpr std::uint32_t most_messages = 8192;

    // 0.01 to 0.99, as the engine grades; 0 for a token that was seen too little.
    [[nodiscard]] double grade(token_key key) const noexcept;
    void add(std::span<const token_key> tokens, bool spam);
    // The same, for a message that was added with the other verdict before.
    void correct(std::span<const token_key> tokens, bool spam);

    [[nodiscard]] std::uint32_t messages(bool spam) const noexcept { return m_messages[spam ? 1 : 0]; }
    // Whether it can grade by at least so much mail.
    [[nodiscard]] bool knows(message_counts least) const noexcept {
        return messages(true) >= least.spam && messages(false) >= least.ham;
    }
    [[nodiscard]] message_counts messages() const noexcept { return {messages(true), messages(false)}; }

    [[nodiscard]] static constexpr std::size_t bucket_of(token_key key) noexcept {
        return key >> (32 - bucket_bits);
    }
    [[nodiscard]] std::size_t tokens() const noexcept; // that are counted; all buckets are kept
    [[nodiscard]] const bucket_table& buckets() const noexcept { return m_buckets; }
    [[nodiscard]] bucket_table& buckets() noexcept { return m_buckets; }
    void set_messages(std::uint32_t spam, std::uint32_t ham) noexcept { m_messages = {ham, spam}; }

private:
    void age(bool spam);

    bucket_table m_buckets;
    std::array<std::uint32_t, 2> m_messages{}; // good mail, spam
};

} // namespace tvr
