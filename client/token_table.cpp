#include "client/token_table.h"

#include <cstring>

#include "common/bytes.h"

namespace tvr {

namespace {

constexpr std::size_t first_slots = 1024; // a power of two, as all sizes of the table
constexpr std::size_t kept_slots = 8192;  // a larger table is given up at the next clear()
constexpr std::size_t longest_data = 0x7FFFFFFF;

// The last bytes of a token, less than 8, as a number: by loads of fixed sizes, which overlap.
std::uint64_t last_bytes(std::string_view token, std::size_t count) noexcept {
    const char* const end = token.data() + token.size();
    if (token.size() >= 8)
        return count != 0 ? load_le<std::uint64_t>(end - 8) >> (64 - 8 * count) : 0;
    if (count >= 4)
        return load_u32(end - count) | std::uint64_t{load_u32(end - 4)} << (8 * (count - 4));
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < count; ++i)
        number |= std::uint64_t{static_cast<std::uint8_t>(*(end - count + i))} << (8 * i);
    return number;
}

std::uint32_t hash_of(std::string_view token) noexcept {
    return static_cast<std::uint32_t>(mixed_token(token) >> 32);
}

} // namespace

std::uint64_t mixed_token(std::string_view token) noexcept {
    std::uint64_t hash = token.size() * 0x9E3779B97F4A7C15ULL;
    const char* at = token.data();
    std::size_t left = token.size();
    for (; left >= 8; at += 8, left -= 8)
        hash = (hash ^ load_le<std::uint64_t>(at)) * 0xD6E8FEB86659FD93ULL, hash ^= hash >> 32;
    return (hash ^ last_bytes(token, left)) * 0xD6E8FEB86659FD93ULL;
}

token_table::token_table(std::uint32_t limit) : m_slots(first_slots), m_limit(limit) {}

void token_table::clear() {
    m_data.clear();
    m_count = 0;
    if (m_slots.size() > kept_slots)
        m_slots = std::vector<slot>(first_slots);
    else
        m_slots.assign(m_slots.size(), slot());
}

std::uint32_t token_table::read_count(std::size_t entry) const noexcept {
    return load_u32(m_data.data() + entry + 1 + m_data[entry]);
}

std::size_t token_table::find_slot(std::string_view token, std::uint32_t hash) const noexcept {
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
        const slot& here = m_slots[at];
        if (here.place == 0)
            return at;
        const std::uint8_t* entry = m_data.data() + here.place - 1;
        if (here.hash == hash && *entry == token.size() &&
            std::memcmp(entry + 1, token.data(), token.size()) == 0)
            return at;
    }
}

void token_table::grow() {
    std::vector<slot> old(m_slots.size() * 2);
    old.swap(m_slots);
    const std::size_t mask = m_slots.size() - 1;
    for (const slot& moved : old) {
        if (moved.place == 0)
            continue;
        std::size_t at = moved.hash & mask;
        while (m_slots[at].place != 0)
            at = (at + 1) & mask;
        m_slots[at] = moved;
    }
}

std::uint8_t* token_table::count_place(std::string_view token) {
    if (token.empty() || token.size() > longest)
        return nullptr;
    const std::uint32_t hash = hash_of(token);
    const std::size_t at = find_slot(token, hash);
    if (m_slots[at].place != 0)
        return m_data.data() + m_slots[at].place + token.size();
    if (m_count >= m_limit || m_data.size() > longest_data)
        return nullptr;
    const std::size_t entry = m_data.size();
    m_data.resize(entry + token.size() + 5);
    m_data[entry] = static_cast<std::uint8_t>(token.size());
    std::memcpy(m_data.data() + entry + 1, token.data(), token.size());
    m_slots[at] = {hash, static_cast<std::uint32_t>(entry + 1)};
    if (++m_count * 2 > m_slots.size())
        grow();
    return m_data.data() + entry + 1 + token.size();
}

std::optional<std::uint32_t> token_table::find(std::string_view token) const noexcept {
    const slot& found = m_slots[find_slot(token, hash_of(token))];
    return found.place != 0 ? std::optional(read_count(found.place - 1)) : std::nullopt;
}

bool token_table::add(std::string_view token, std::uint32_t count) {
    std::uint8_t* place = count_place(token);
    if (!place)
        return false;
    const std::uint32_t old = load_u32(place);
    store_u32(place, count > ~old ? ~0U : old + count);
    return true;
}

bool token_table::mark(std::string_view token, std::uint32_t count) {
    std::uint8_t* place = count_place(token);
    if (place)
        store_u32(place, count);
    return place != nullptr;
}

} // namespace tvr
