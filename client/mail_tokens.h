// The tokens of one mail, made of kinds and texts.
#pragma once

#include <cstddef>
#include <string_view>

#include "client/token_table.h"
#include "client/tokenizer.h"

namespace tvr {

// The whole part of the binary logarithm; 0 for 0.
[[nodiscard]] std::size_t power_of_two_below(std::size_t number) noexcept;

// What all pieces of the tokenizer put their tokens into. The kinds stand in tokenizer.h.
class mail_tokens {
public:
    explicit mail_tokens(const tokenizer_limits& limits) : m_limits(limits), m_table(limits.tokens) {}

    void clear() { m_table.clear(); }
    [[nodiscard]] const token_table& table() const noexcept { return m_table; }

    // A whole token, its kind in front.
    void put(std::string_view token);
    // A token of a kind ("B "); the text is hashed if it is too long for its kind.
    void add(std::string_view kind, std::string_view text);
    // A mark of the structure: "M " and the text, perhaps with a number or a value after. Of the value count
    // 60 bytes, in lower case.
    void mark(std::string_view text);
    void mark(std::string_view text, std::size_t number);
    void mark_pair(std::string_view text, std::string_view value);

private:
    tokenizer_limits m_limits;
    token_table m_table;
};

} // namespace tvr
