// Grades for the mail of a user who has no base yet: each part of the mail is graded by the others.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "client/verdict/token_memory.h"

namespace tvr {

// Messages are added to one of `folds` parts. What the engine would grade a token with, had it learned all
// parts but one, is worked out with its own grading. One thread. Memory: about 50 bytes a different token.
class cross_grading {
public:
    static constexpr std::size_t folds = 4;

    cross_grading();

    void add(std::span<const token_key> tokens, bool spam, std::size_t fold);
    // By the other parts; 0 if they don't grade it.
    [[nodiscard]] double grade(token_key token, std::size_t fold) const noexcept;
    // Messages of the other parts.
    [[nodiscard]] message_counts messages(std::size_t fold) const noexcept;

private:
    struct counts {
        token_key token = 0;
        std::array<std::array<std::uint16_t, folds>, 2> messages{}; // ham, spam
        bool used = false;
    };

    [[nodiscard]] std::size_t place_of(token_key token) const noexcept;
    void grow();

    std::vector<counts> m_table; // its size is a power of two
    std::size_t m_used = 0;
    std::array<std::array<std::uint32_t, folds>, 2> m_messages{};
};

} // namespace tvr
