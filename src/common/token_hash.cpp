#include "common/token_hash.h"

#include <bit>

namespace tvr {

std::uint32_t order_hash(std::string_view text) noexcept {
    std::uint32_t h = 0;
    if (text.empty())
        return h;
    for (const char byte : text.substr(0, text.size() - 1)) {
        h = h * 16 + extended(byte);
        h ^= h >> 24 & 0xF0; // the highest four bits are shifted out by the next byte
    }
    return h & 0x0FFFFFFF;
}

std::uint32_t step_hash(std::string_view key) noexcept {
    std::uint32_t h = 0xAC645289;
    for (const char byte : key)
        h = std::rotl(h, 9) ^ extended(byte);
    return h;
}

} // namespace tvr
