// A text of fixed room, for the making of tokens without an allocation.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include "client/token_table.h"
#include "platform/ascii.h"

namespace tvr {

// Has room for the longest token; what doesn't fit is cut off.
class short_text {
public:
    short_text& operator<<(std::string_view text) {
        const std::size_t taken = std::min(text.size(), m_room.size() - m_size);
        std::copy_n(text.begin(), taken, m_room.begin() + static_cast<std::ptrdiff_t>(m_size));
        m_size += taken;
        return *this;
    }
    short_text& operator<<(std::size_t number) {
        std::array<char, 24> digits;
        const int length = std::snprintf(digits.data(), digits.size(), "%zu", number);
        return *this << std::string_view(digits.data(), static_cast<std::size_t>(length));
    }
    short_text& lower_from(std::size_t at) {
        std::transform(m_room.begin() + static_cast<std::ptrdiff_t>(at),
                       m_room.begin() + static_cast<std::ptrdiff_t>(m_size),
                       m_room.begin() + static_cast<std::ptrdiff_t>(at), lower);
        return *this;
    }
    [[nodiscard]] std::string_view view() const { return {m_room.data(), m_size}; }
    [[nodiscard]] std::size_t size() const { return m_size; }

private:
    std::array<char, token_table::longest> m_room;
    std::size_t m_size = 0;
};

} // namespace tvr
