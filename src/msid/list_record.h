// The records of a list file (.lst): a length byte, the message ID, and its 32-bit value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "common/bytes.h"

namespace tvr {

inline constexpr std::uint32_t list_signature = 0x4449536E; // "nSID", of a .lst file

// Live records survive a rebuild.
[[nodiscard]] inline bool is_live_id(std::string_view id, std::uint32_t value) noexcept {
    return value != 0 && !id.empty() && id.find('\0') == std::string_view::npos;
}

struct list_record {
    static constexpr std::size_t overhead = 5; // bytes of a record without its ID

    std::string_view id; // empty in a dead record, which is one with the value 0
    std::uint32_t value = 0;
    std::size_t size = 0; // bytes

    [[nodiscard]] bool is_live() const noexcept { return is_live_id(id, value); }
};

// Reads the record at `position`, which points into `list`. False if the list holds no whole one there.
inline bool read_record(std::span<const std::uint8_t> list, std::size_t position,
                        list_record& record) noexcept {
    if (position >= list.size() || list.size() - position < list_record::overhead)
        return false;
    const std::uint8_t* at = list.data() + position;
    const std::size_t length = at[0];
    if (list.size() - position < length + list_record::overhead)
        return false;
    record.value = load_u32(at + 1 + length);
    record.size = length + list_record::overhead;
    record.id = record.value == 0 ? std::string_view()
                                  : std::string_view(reinterpret_cast<const char*>(at + 1), length);
    return true;
}

// Writes a record. Only the low byte of the ID's length fits in front: an ID of more than 255 bytes must
// not be passed.
inline void write_record(std::uint8_t* at, std::string_view id, std::uint32_t value) noexcept {
    *at = static_cast<std::uint8_t>(id.size());
    std::memcpy(at + 1, id.data(), id.size());
    store_u32(at + 1 + id.size(), value);
}

// Makes a record dead in a way that it can still be walked over.
inline void blank_record(std::uint8_t* at, std::size_t size) noexcept {
    std::memset(at + 1, 0, size - 1);
}

// Calls visit(offset, record) for each live record of a list whose header is skipped by its own count.
template <class Visitor>
void for_each_live(std::span<const std::uint8_t> list, Visitor&& visit) {
    if (list.size() < 8)
        return;
    const std::uint64_t head = 8 + std::uint64_t{load_u32(list.data() + 4)} * 4;
    if (head > list.size())
        return;
    list_record record;
    for (auto position = static_cast<std::size_t>(head); read_record(list, position, record);
         position += record.size) {
        if (record.is_live())
            visit(position, record);
    }
}

} // namespace tvr
