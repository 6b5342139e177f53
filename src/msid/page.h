// One page of the index: 32 slots of 16 bytes, the used ones at the start in ascending order of keys.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/bytes.h"
#include "msid/msid_key.h"

namespace tvr {

inline constexpr std::uint32_t index_signature = 0x12351237; // of a .idx file
// Pages on the way from the root to a leaf: far more than any sound tree needs, to end the walk through a
// damaged one.
inline constexpr unsigned tree_depth_limit = 64;

// A page in the mapped file. Owns nothing; dies with the view. A slot is a value (4 bytes), flags (1) and
// a key (11). A page holds leaf slots only or inner slots only, whose values are the offsets of children.
class page_view {
public:
    static constexpr std::uint32_t size = 512; // bytes
    static constexpr unsigned slots = 32;
    static constexpr std::size_t slot_size = 16; // bytes
    static constexpr std::uint8_t inner = 1;
    static constexpr std::uint8_t in_use = 2;

    explicit page_view(std::uint8_t* bytes) noexcept : m_bytes(bytes) {}

    [[nodiscard]] std::uint32_t value(unsigned i) const noexcept { return load_u32(slot(i)); }
    [[nodiscard]] std::uint8_t flags(unsigned i) const noexcept { return slot(i)[4]; }
    [[nodiscard]] key11 key(unsigned i) const noexcept { return key11::load(slot(i) + 5); }
    [[nodiscard]] key11 first_key() const noexcept { return key(0); }

    void set_value(unsigned i, std::uint32_t value) noexcept { store_u32(slot(i), value); }
    void set_flags(unsigned i, std::uint8_t flags) noexcept { slot(i)[4] = flags; }
    void set_key(unsigned i, const key11& key) noexcept { key.store(slot(i) + 5); }

    // The number of used slots, by binary search.
    [[nodiscard]] unsigned used() const noexcept {
        unsigned low = 0;
        unsigned high = slots;
        while (low < high) {
            const unsigned middle = (low + high) / 2;
            if (flags(middle) & in_use)
                low = middle + 1;
            else
                high = middle;
        }
        return low;
    }
    [[nodiscard]] unsigned free() const noexcept { return slots - used(); }

    // An empty page counts as a leaf.
    [[nodiscard]] bool is_leaf() const noexcept {
        for (unsigned i = 0; i < slots && flags(i) != 0; ++i) {
            if (flags(i) & inner)
                return false;
        }
        return true;
    }

    // The first of `n` slots whose key is not lower than `key`; `n` if there is none.
    [[nodiscard]] unsigned not_lower(const key11& key, unsigned n) const noexcept {
        unsigned i = 0;
        while (i < n && this->key(i) < key)
            ++i;
        return i;
    }
    // The first of the slots `from` to `n` - 1 whose key is greater than `key`; `n` if there is none.
    [[nodiscard]] unsigned greater(const key11& key, unsigned from, unsigned n) const noexcept {
        while (from < n && this->key(from) <= key)
            ++from;
        return from;
    }

    // Shifts the slots `i` to `n` - 1 up by one; `n` is below 32.
    void open_gap(unsigned i, unsigned n) noexcept {
        std::memmove(slot(i + 1), slot(i), (n - i) * slot_size);
    }
    void clear_from(unsigned i) noexcept { std::memset(slot(i), 0, (slots - i) * slot_size); }

    // Block moves between two different pages, of at most as many slots as there are and have room.
    void move_first_to_end_of(page_view target, unsigned number) noexcept;
    void move_last_to_start_of(page_view target, unsigned number) noexcept;

private:
    [[nodiscard]] std::uint8_t* slot(unsigned i) const noexcept { return m_bytes + i * slot_size; }

    std::uint8_t* m_bytes;
};

} // namespace tvr
