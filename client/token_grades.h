// The grades of the tokens of one message, found in one pass over the published base: for who grades a single
// message, and needs no table of the whole base.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "client/base_check.h"
#include "client/token_table.h"

namespace tvr {

// One thread.
class token_grades {
public:
    explicit token_grades(const token_table& wanted); // which stays until the pass is over

    void take(base_entries entries); // of a pass over the base, in its order
    // As hashreg::grade(), of the wanted tokens.
    [[nodiscard]] double grade(std::string_view token) const noexcept;

private:
    static constexpr unsigned filter_bits = 15;

    // What can't be a wanted token is told by a bit.
    std::array<std::uint64_t, (std::size_t{1} << filter_bits) / 64> m_filter{};
    const token_table& m_wanted;
    token_table m_found; // with the bits of the grades
};

} // namespace tvr
