#include "client/token_grades.h"

#include <bit>
#include <cstddef>
#include <cstring>

#include "common/bytes.h"

namespace tvr {

namespace {

constexpr std::size_t word = 8; // bytes

// A hash of the first and the last bytes. Reads a word at `text`, whatever the size.
std::uint32_t quick_hash(const std::uint8_t* text, std::size_t size, unsigned bits) noexcept {
    std::uint64_t mixed = load_le<std::uint64_t>(text);
    if (size < word)
        mixed &= (std::uint64_t{1} << 8 * size) - 1;
    else
        mixed ^= std::rotl(load_le<std::uint64_t>(text + size - word), 29);
    return static_cast<std::uint32_t>((mixed + size) * 0x9E3779B97F4A7C15ULL >> (64 - bits));
}

} // namespace

token_grades::token_grades(const token_table& wanted) : m_wanted(wanted) {
    wanted.for_each([this](std::string_view token, std::uint32_t) {
        std::array<std::uint8_t, token_table::longest + word> text{};
        std::memcpy(text.data(), token.data(), token.size());
        const std::uint32_t hash = quick_hash(text.data(), token.size(), filter_bits);
        m_filter[hash / 64] |= std::uint64_t{1} << hash % 64;
    });
}

// Of a token that a damaged base has twice the first one counts, as in a table.
void token_grades::take(base_entries entries) {
    for (std::size_t at = 0; at < entries.size();) {
        const std::size_t size = entries[at];
        const std::uint8_t* const text = entries.data() + at + 1;
        at += size + 5;
        const std::uint32_t hash = quick_hash(text, size, filter_bits);
        if ((m_filter[hash / 64] >> hash % 64 & 1) == 0)
            continue;
        const std::string_view token(reinterpret_cast<const char*>(text), size);
        if (m_wanted.find(token) && !m_found.find(token))
            m_found.mark(token, load_u32(text + size));
    }
}

double token_grades::grade(std::string_view token) const noexcept {
    const auto bits = m_found.find(token);
    return bits ? static_cast<double>(std::bit_cast<float>(*bits)) : 0.0;
}

} // namespace tvr
