// The container of tokens: a hash table of offsets over a packed data area that is also the file format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "dict/key_filter.h"

namespace tvr {

class file_stream;

// Belongs to one thread; even lookups change it. Keys are 1 to 255 bytes. Pointers to values are
// unaligned (use load_u32 and store_u32) and die at the next insertion, compaction, load or clear.
class hashmap_impl {
public:
    static constexpr std::size_t entry_overhead = 5; // bytes of an entry besides its key, with a value of 4

    hashmap_impl();
    virtual ~hashmap_impl();
    hashmap_impl(const hashmap_impl&) = delete;
    hashmap_impl& operator=(const hashmap_impl&) = delete;

    [[nodiscard]] virtual std::uint32_t value_size() const noexcept = 0; // bytes
    [[nodiscard]] virtual bool counts_sane() const noexcept;
    // True if compact() is to take out an entry with this value.
    [[nodiscard]] virtual bool is_dropped(const std::uint8_t* value) const noexcept = 0;

    bool clear(); // false, with a log line, if no addresses could be reserved
    // So many more entries are to come: the table, which isn't made yet, has room for them from the start.
    void expect(std::uint32_t more) noexcept;
    // Many keys that aren't there will be asked for: a filter, which costs 8 to 16 bits for each entry, tells
    // most of them without a look at the table. Holds for all that the map will contain.
    void expect_absent_keys() noexcept { m_filtered = m_resize_owed = true; }
    void swap(hashmap_impl& other) noexcept; // of the same class
    // The value of a key, or null if it is absent or empty.
    std::uint8_t* _get_value(std::string_view key);
    // Inserts the key if it is absent, and stores the value (null: leaves it as it is, or undefined).
    bool _assign(std::string_view key, const void* value);

    // The block of count, data size and entries, at the stream's position.
    bool flush(file_stream& file);
    bool flush_ordered(file_stream& file); // entries in ascending order_hash; equal ones in storage order
    // Replaces the content. A file that is at its end has an empty block. False, with an empty map, if the
    // file can't be read or counts and data don't go together.
    bool init_from_file(file_stream& file);
    // Moves past a block without reading it, by an even number of bytes.
    static bool skip(file_stream& file);

    // Iteration in storage order.
    void rewind() noexcept { m_cursor = 0; }
    bool next(std::string_view& key, std::uint8_t*& value);

    void compact(); // takes out the entries that is_dropped() names; keeps the order

    // The data area, and the entries in the order of flush_ordered(): the order_hash above, the offset below.
    [[nodiscard]] std::span<const std::uint8_t> entries() const noexcept { return {m_data, m_datasize}; }
    [[nodiscard]] std::vector<std::uint64_t> ordered() const;

    [[nodiscard]] bool is_valid() const noexcept { return m_hashmem && m_datamem; }
    [[nodiscard]] std::uint32_t count() const noexcept { return m_count; }
    [[nodiscard]] std::uint32_t datasize() const noexcept { return m_datasize; } // bytes
    [[nodiscard]] std::uint32_t tablesize();                                     // slots

protected:
    // The value of a key, which is inserted with `value` if it is absent. Null if there was no room. The map
    // is valid.
    std::uint8_t* value_or_new(std::string_view key, const void* value);
    // Moves the entries up by so many bytes: the start of the data area, or null, with nothing done, if there
    // is no room. Then they are to be written anew from there on, and counted by set_entries().
    std::uint8_t* move_entries_up(std::size_t bytes);
    void set_entries(std::size_t bytes, std::uint32_t count) noexcept;

private:
    // Where a key is, or would be.
    struct probe {
        std::uint32_t slot;
        std::uint32_t hash;
        std::uint8_t* value; // null: the slot is empty
        bool is_first;       // no slot was taken on the way to it
    };

    std::uint32_t __insert_datat(std::string_view key, const void* value);
    void __resize();
    static constexpr std::uint32_t all_bits = 0xFFFFFFFF;
    static constexpr std::uint32_t lower_bits = 0x00FFFFFF;

    // As far as the data area is small enough to spare bits of a place, also after one more entry.
    [[nodiscard]] std::uint32_t wanted_mask() const noexcept {
        return m_datasize < lower_bits - 512 ? lower_bits : all_bits;
    }
    static std::uint32_t prime_for(std::uint32_t count) noexcept; // its index
    void resize_if_owed();
    bool make_table(); // if there is none
    [[nodiscard]] probe find(std::string_view key, std::uint32_t hash) const noexcept;
    bool grow_range(void*& base, std::size_t& reserved, std::uint8_t** committed, std::size_t bytes);
    bool commit_table();
    bool make_room(std::size_t size); // in the data area
    std::uint8_t* insert_at(const probe& where, std::string_view key, const void* value);
    void trust_only_whole_entries() noexcept;
    void log_invalid(const char* where) const;
    [[nodiscard]] std::uint8_t* value_if_key(std::uint32_t slot, std::uint32_t hash,
                                             std::string_view key) const noexcept;

    std::uint32_t m_prime_index = 0;
    std::uint32_t m_count = 0;
    std::uint32_t m_datasize = 0;
    // 0: empty, otherwise offset + 1, and above m_place_mask the bits that the key's hash has there: so most
    // entries with another key need not be looked at.
    std::uint32_t* m_slots = nullptr;
    std::uint32_t m_place_mask = all_bits;
    std::uint32_t m_tablesize = 0;
    void* m_hashmem = nullptr;
    std::size_t m_hashreserved = 0;
    std::uint8_t* m_data = nullptr;
    std::size_t m_datacommitted = 0;
    void* m_datamem = nullptr;
    std::size_t m_datareserved = 0;
    std::size_t m_cursor = 0;
    std::uint32_t m_expected = 0; // entries beyond the present ones
    key_filter m_filter;
    bool m_filtered = false;
    bool m_resize_owed = false; // many a map is never asked again: its table is made at the next lookup
};

// Tokens with unsigned 32-bit counts. A count of 0 is dropped at compaction.
class dword_map : public hashmap_impl {
public:
    [[nodiscard]] std::uint32_t value_size() const noexcept override { return 4; }
    [[nodiscard]] bool is_dropped(const std::uint8_t* value) const noexcept override;
    // The count's place, inserted with 0 if the token is new.
    std::uint8_t* get_or_add(std::string_view key);

    // What the adding of differences has done.
    struct change {
        bool any = false;      // of a count
        std::uint32_t sum = 0; // of the differences; wraps
    };
    // Adds the differences to the counts and takes out what is 0 then, in one pass over entries that lie in
    // the order of flush_ordered(), as they do afterwards. Nothing, with nothing done, if they don't, or
    // there is an empty key or no room.
    std::optional<change> add_in_order(const dword_map& differences);
};

// Tokens with 32-bit floats. A value of 0.0 is dropped at compaction; a NaN stays.
class float_map : public hashmap_impl {
public:
    [[nodiscard]] std::uint32_t value_size() const noexcept override { return 4; }
    [[nodiscard]] bool is_dropped(const std::uint8_t* value) const noexcept override;
};

} // namespace tvr
