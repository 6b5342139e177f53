#include "msid/msid_key.h"

#include <array>

namespace tvr {

key11 key11::of(std::string_view id) noexcept {
    // One byte of length and ten folded ones; the fold takes ten bytes of the ID at a time.
    std::uint64_t first_eight = 0;
    std::uint16_t last_two = 0;
    const char* at = id.data();
    std::size_t left = id.size();
    for (; left >= 10; at += 10, left -= 10) {
        first_eight ^= load_le<std::uint64_t>(at);
        last_two = static_cast<std::uint16_t>(last_two ^ load_le<std::uint16_t>(at + 8));
    }
    std::array<std::uint8_t, size> bytes{};
    bytes[0] = static_cast<std::uint8_t>(id.size());
    store_le(&bytes[1], first_eight);
    store_le(&bytes[9], last_two);
    for (std::size_t i = 0; i < left; ++i)
        bytes[1 + i] = static_cast<std::uint8_t>(bytes[1 + i] ^ static_cast<std::uint8_t>(at[i]));
    for (std::uint8_t& byte : bytes) {
        if (byte == 0)
            byte = ' ';
    }
    return load(bytes.data());
}

} // namespace tvr
