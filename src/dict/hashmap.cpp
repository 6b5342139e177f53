#include "dict/hashmap.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <utility>
#include <vector>

#include "common/bytes.h"
#include "common/file_stream.h"
#include "common/logger.h"
#include "common/token_hash.h"
#include "platform/error.h"
#include "platform/memory.h"

namespace tvr {

namespace {

constexpr std::array<std::uint32_t, 42> primes = {
    1021,      1481,      2153,       3121,       4547,       6599,      9587,      13901,     20147,
    29201,     42323,     61339,      88903,      128857,     186757,    270667,    392279,    568523,
    823961,    1194157,   1730671,    2508223,    3635113,    5268281,   7635191,   11065511,  16036981,
    23242027,  33684127,  48817577,   70750157,   102536471,  148603591, 215367533, 312126883, 452357831,
    655591091, 950132039, 1377003007, 1995656543, 2892255881, 4191675247};

constexpr double maximal_load = 0.69;
constexpr std::uint32_t fallback_step = 101;
constexpr unsigned suspicious_probes = 64; // far more than the load asks for
constexpr std::size_t commit_step = 16384; // bytes; a multiple of the page size wherever this runs
constexpr std::uint64_t filled_up = 4096;  // bytes of zeros after a file that is cut short

std::size_t round_up(std::size_t size, std::size_t unit) {
    return (size + unit - 1) / unit * unit;
}

std::uint32_t step_of(std::string_view key, std::uint32_t tablesize) {
    const std::uint32_t step = step_hash(key) % tablesize;
    return step == 0 ? fallback_step : step;
}

std::uint32_t advance(std::uint32_t slot, std::uint32_t step, std::uint32_t tablesize) {
    const std::uint64_t next = std::uint64_t{slot} + step; // both are below the size
    return static_cast<std::uint32_t>(next < tablesize ? next : next - tablesize);
}

// Entries as order_hash above and offset below, in rising offsets: in the order of the hashes, then of the
// offsets. By the digits of the hash, from the lowest on, each time without changing what is equal.
void order(std::vector<std::uint64_t>& entries) {
    constexpr std::size_t few = 256; // then the digits cost more than they save
    if (entries.size() < few) {
        std::sort(entries.begin(), entries.end());
        return;
    }
    constexpr unsigned hash_bits = 28, digit_bits = 10;
    constexpr std::uint64_t digit_mask = (1U << digit_bits) - 1;
    std::vector<std::uint64_t> other(entries.size());
    for (unsigned shift = 32; shift < 32 + hash_bits; shift += digit_bits) {
        std::array<std::uint32_t, digit_mask + 2> starts{};
        for (const std::uint64_t entry : entries)
            ++starts[(entry >> shift & digit_mask) + 1];
        std::partial_sum(starts.begin(), starts.end(), starts.begin());
        for (const std::uint64_t entry : entries)
            other[starts[entry >> shift & digit_mask]++] = entry;
        entries.swap(other);
    }
}

void log_file_error(const char* operation) {
    const std::uint32_t code = platform::last_error();
    TVR_LOG(default_log, "[-] %s failed (0x%s)", operation, pointer_text(code).c_str());
}

// Count and data size of a block. What the file is too short for reads as 0; false, with a log line, only if
// the read call failed.
bool read_head(file_stream& file, std::uint32_t (&head)[2]) {
    head[0] = head[1] = 0;
    std::size_t got = 0;
    if (file.read(head, sizeof head, got))
        return true;
    log_file_error("ReadFile");
    return false;
}

} // namespace

hashmap_impl::hashmap_impl() {
    clear();
}

hashmap_impl::~hashmap_impl() {
    platform::release_range(m_hashmem, m_hashreserved);
    platform::release_range(m_datamem, m_datareserved);
}

bool hashmap_impl::counts_sane() const noexcept {
    if (m_count == 0 || m_datasize == 0)
        return m_count == m_datasize;
    return m_datasize >= 6 * std::uint64_t{m_count};
}

void hashmap_impl::log_invalid(const char* where) const {
    TVR_LOG(default_log, "[-] ERROR: hashmap is invalid at %s m_hashmem/m_datamem 0x%s/0x%s", where,
            pointer_text(reinterpret_cast<std::uintptr_t>(m_hashmem)).c_str(),
            pointer_text(reinterpret_cast<std::uintptr_t>(m_datamem)).c_str());
}

bool hashmap_impl::clear() {
    m_prime_index = m_tablesize = m_count = m_datasize = 0;
    m_datacommitted = m_cursor = 0;
    const std::size_t granule = platform::allocation_granularity();
    for (const auto& [base, reserved] :
         {std::pair{&m_hashmem, &m_hashreserved}, {&m_datamem, &m_datareserved}}) {
        if (*base)
            platform::release_range(*base, *reserved);
        *reserved = granule;
        *base = platform::reserve_range(granule);
    }
    m_slots = nullptr;
    m_data = nullptr;
    m_expected = 0;
    m_resize_owed = false;
    if (is_valid())
        return true;
    log_invalid("end of clear.");
    return false;
}

bool hashmap_impl::grow_range(void*& base, std::size_t& reserved, std::uint8_t** committed,
                              std::size_t bytes) {
    std::size_t size = bytes != 0 ? bytes : reserved;
    if (size == 0)
        size = platform::allocation_granularity();
    size = round_up(size + commit_step, platform::page_size());
    if (base && size <= platform::range_room(reserved)) {
        reserved = size;
        return true;
    }
    void* fresh = platform::reserve_range(size);
    if (!fresh)
        return false;
    if (committed && *committed) {
        if (!platform::commit_range(fresh, bytes)) {
            platform::release_range(fresh, size);
            return false;
        }
        std::memcpy(fresh, *committed, bytes);
        *committed = static_cast<std::uint8_t*>(fresh);
    }
    platform::release_range(base, reserved);
    base = fresh;
    reserved = size;
    return true;
}

bool hashmap_impl::commit_table() {
    const std::size_t bytes = round_up(4 * std::size_t{m_tablesize}, platform::page_size());
    if (bytes > m_hashreserved && !grow_range(m_hashmem, m_hashreserved, nullptr, bytes))
        return false;
    m_slots = static_cast<std::uint32_t*>(platform::commit_range(m_hashmem, bytes));
    return m_slots != nullptr;
}

bool hashmap_impl::make_room(std::size_t size) {
    while (m_datasize + size > m_datacommitted) {
        if (!m_data) {
            m_data = static_cast<std::uint8_t*>(platform::commit_range(m_datamem, m_datareserved));
            if (!m_data)
                return false;
        }
        if (m_datacommitted + commit_step > m_datareserved &&
            !grow_range(m_datamem, m_datareserved, &m_data, m_datacommitted))
            return false;
        std::uint8_t* wanted = m_data + m_datacommitted;
        if (platform::commit_range(wanted, commit_step) != wanted)
            return false;
        m_datacommitted += commit_step;
    }
    return true;
}

// Returns the entry's offset + 1; 0 if there was no room.
std::uint32_t hashmap_impl::__insert_datat(std::string_view key, const void* value) {
    if (!is_valid()) {
        log_invalid("__insert_datat!");
        return 0;
    }
    const std::size_t size = key.size() + 1 + value_size();
    if (m_datasize + std::uint64_t{size} > 0xFFFFFFFE || !make_room(size))
        return 0;
    std::uint8_t* entry = m_data + m_datasize;
    *entry = static_cast<std::uint8_t>(key.size());
    std::memcpy(entry + 1, key.data(), key.size());
    if (value)
        std::memcpy(entry + 1 + key.size(), value, value_size());
    const std::uint32_t place = m_datasize + 1;
    m_datasize += static_cast<std::uint32_t>(size);
    return place;
}

// The value of the slot's entry, or null if it has another key.
std::uint8_t* hashmap_impl::value_if_key(std::uint32_t slot, std::uint32_t hash,
                                         std::string_view key) const noexcept {
    if (((slot ^ hash) & ~m_place_mask) != 0)
        return nullptr;
    std::uint8_t* entry = m_data + (slot & m_place_mask) - 1;
    if (*entry != key.size() || std::memcmp(entry + 1, key.data(), key.size()) != 0)
        return nullptr;
    return entry + 1 + key.size();
}

bool hashmap_impl::make_table() {
    if (m_slots && m_place_mask < wanted_mask())
        m_resize_owed = true; // no more bits to spare
    resize_if_owed();
    if (m_slots)
        return true;
    m_place_mask = wanted_mask();
    m_tablesize = primes[m_prime_index];
    if (!commit_table())
        return false;
    m_count = 0;
    return true;
}

[[gnu::always_inline]] inline hashmap_impl::probe hashmap_impl::find(std::string_view key,
                                                                     std::uint32_t hash) const noexcept {
    std::uint32_t slot = hash % m_tablesize;
    if (m_slots[slot] == 0)
        return {slot, hash, nullptr, true};
    if (std::uint8_t* const value = value_if_key(m_slots[slot], hash, key))
        return {slot, hash, value, true};
    const std::uint32_t step = step_of(key, m_tablesize);
    for (slot = advance(slot, step, m_tablesize); m_slots[slot] != 0; slot = advance(slot, step, m_tablesize))
        if (std::uint8_t* const value = value_if_key(m_slots[slot], hash, key))
            return {slot, hash, value, false};
    return {slot, hash, nullptr, false};
}

// Returns the value's place, or null if there was no room.
std::uint8_t* hashmap_impl::insert_at(const probe& where, std::string_view key, const void* value) {
    const std::uint32_t entry = __insert_datat(key, value);
    m_slots[where.slot] = entry != 0 ? entry | (where.hash & ~m_place_mask) : 0;
    if (entry != 0)
        ++m_count;
    if (m_filtered)
        m_filter.add(where.hash);
    // deliberate: the load isn't looked at unless the insertion had to probe.
    if (!where.is_first &&
        static_cast<double>(static_cast<float>(m_count) / static_cast<float>(m_tablesize)) > maximal_load)
        __resize();
    return entry != 0 ? m_data + entry + key.size() : nullptr;
}

bool hashmap_impl::_assign(std::string_view key, const void* value) {
    if (!is_valid()) {
        log_invalid("_assign!");
        return false;
    }
    if (!make_table())
        return false;
    const probe where = find(key, probe_hash(key));
    if (!where.value)
        return insert_at(where, key, value) != nullptr;
    if (value && value_size() != 0)
        std::memcpy(where.value, value, value_size());
    return true;
}

std::uint8_t* hashmap_impl::_get_value(std::string_view key) {
    if (!m_slots || m_resize_owed) {
        if (!is_valid()) {
            log_invalid("_get_value!");
            return nullptr;
        }
        resize_if_owed();
    }
    if (key.empty() || !m_slots)
        return nullptr;
    const std::uint32_t hash = probe_hash(key);
    return m_filter.passes(hash) ? find(key, hash).value : nullptr;
}

std::uint8_t* hashmap_impl::value_or_new(std::string_view key, const void* value) {
    if (!make_table())
        return nullptr;
    const probe where = find(key, probe_hash(key));
    return where.value ? where.value : insert_at(where, key, value);
}

void hashmap_impl::expect(std::uint32_t more) noexcept {
    m_expected = more;
    m_resize_owed = true;
}

std::uint32_t hashmap_impl::tablesize() {
    resize_if_owed();
    return m_tablesize;
}

void hashmap_impl::resize_if_owed() {
    if (std::exchange(m_resize_owed, false))
        __resize();
}

std::uint32_t hashmap_impl::prime_for(std::uint32_t count) noexcept {
    std::uint32_t index = 0;
    while (index + 1 < primes.size() &&
           static_cast<double>(count) / static_cast<double>(primes[index]) > maximal_load)
        ++index;
    return index;
}

void hashmap_impl::swap(hashmap_impl& other) noexcept {
    std::swap(m_prime_index, other.m_prime_index);
    std::swap(m_count, other.m_count);
    std::swap(m_datasize, other.m_datasize);
    std::swap(m_slots, other.m_slots);
    std::swap(m_place_mask, other.m_place_mask);
    std::swap(m_tablesize, other.m_tablesize);
    std::swap(m_hashmem, other.m_hashmem);
    std::swap(m_hashreserved, other.m_hashreserved);
    std::swap(m_data, other.m_data);
    std::swap(m_datacommitted, other.m_datacommitted);
    std::swap(m_datamem, other.m_datamem);
    std::swap(m_datareserved, other.m_datareserved);
    std::swap(m_cursor, other.m_cursor);
    std::swap(m_expected, other.m_expected);
    std::swap(m_filter, other.m_filter);
    std::swap(m_filtered, other.m_filtered);
    std::swap(m_resize_owed, other.m_resize_owed);
}

// Makes the table again for the entries of the data area. It may become smaller.
void hashmap_impl::__resize() {
    if (!is_valid())
        log_invalid("__resize!");
    if (m_hashmem)
        platform::decommit_range(m_hashmem, m_hashreserved);
    m_slots = nullptr;
    m_prime_index = prime_for(m_count + std::exchange(m_expected, 0));
    m_place_mask = wanted_mask();
    m_tablesize = primes[m_prime_index];
    if (!m_hashmem || !commit_table())
        return;
    if (m_filtered)
        m_filter.make(m_count);
    std::size_t offset = 0;
    bool has_empty = false;
    for (std::uint32_t i = 0; i < m_count; ++i) {
        const std::string_view key(reinterpret_cast<const char*>(m_data + offset + 1), m_data[offset]);
        if (key.empty() && std::exchange(has_empty, true)) {
            // There may be a great many of them; one has a slot.
            offset += 1 + value_size();
            continue;
        }
        const std::uint32_t hash = probe_hash(key);
        if (m_filtered)
            m_filter.add(hash);
        const std::uint32_t first = hash % m_tablesize;
        std::uint32_t slot = first;
        if (m_slots[slot] != 0) {
            const std::uint32_t step = step_of(key, m_tablesize);
            unsigned probes = 0;
            do
                slot = advance(slot, step, m_tablesize);
            while (m_slots[slot] != 0 && ++probes != suspicious_probes);
            // A damaged block may hold one key over and over: then the walk would take ever longer, and no
            // lookup comes to the repeated entry anyway.
            if (m_slots[slot] != 0) {
                for (slot = first; m_slots[slot] != 0 && !value_if_key(m_slots[slot], hash, key);)
                    slot = advance(slot, step, m_tablesize);
            }
        }
        if (m_slots[slot] == 0)
            m_slots[slot] = (static_cast<std::uint32_t>(offset) + 1) | (hash & ~m_place_mask);
        offset += key.size() + 1 + value_size();
    }
}

bool hashmap_impl::flush(file_stream& file) {
    if (!file.write_u32(m_count) || !file.write_u32(m_datasize)) {
        log_file_error("WriteFile");
        return false;
    }
    return m_datasize == 0 || file.write(m_data, m_datasize);
}

std::vector<std::uint64_t> hashmap_impl::ordered() const {
    std::vector<std::uint64_t> parray(m_count);
    const std::size_t overhead = 1 + value_size();
    std::uint32_t offset = 0;
    for (std::uint64_t& each : parray) {
        const std::string_view key(reinterpret_cast<const char*>(m_data + offset + 1), m_data[offset]);
        each = std::uint64_t{order_hash(key)} << 32 | offset;
        offset += static_cast<std::uint32_t>(key.size() + overhead);
    }
    order(parray);
    return parray;
}

std::uint8_t* hashmap_impl::move_entries_up(std::size_t bytes) {
    if (!is_valid() || m_datasize + std::uint64_t{bytes} > 0xFFFFFFFE || !make_room(bytes))
        return nullptr;
    std::memmove(m_data + bytes, m_data, m_datasize);
    return m_data;
}

void hashmap_impl::set_entries(std::size_t bytes, std::uint32_t count) noexcept {
    m_datasize = static_cast<std::uint32_t>(bytes);
    m_count = count;
    m_slots = nullptr;
    m_resize_owed = true;
}

bool hashmap_impl::flush_ordered(file_stream& file) {
    // Handed over at once, so that a full disk is told here.
    if (!file.write_u32(m_count) || !file.write_u32(m_datasize) || !file.flush()) {
        log_file_error("flush_ordered - WriteFile");
        return false;
    }
    if (m_datasize == 0)
        return true;
    platform::decommit_range(m_hashmem, m_hashreserved);
    m_slots = nullptr;
    m_resize_owed = true;
    for (const std::uint64_t each : ordered()) {
        const std::uint8_t* entry = m_data + static_cast<std::uint32_t>(each);
        file.write(entry, std::size_t{*entry} + 1 + value_size());
    }
    return true;
}

// Counts the entries that lie wholly in the data area; a head that lies is corrected.
void hashmap_impl::trust_only_whole_entries() noexcept {
    std::size_t offset = 0;
    std::uint32_t whole = 0;
    while (whole < m_count && offset < m_datasize) {
        const std::size_t end = offset + m_data[offset] + 1 + value_size();
        if (end > m_datasize)
            break;
        offset = end;
        ++whole;
    }
    m_count = whole;
    m_datasize = static_cast<std::uint32_t>(offset);
}

bool hashmap_impl::init_from_file(file_stream& file) {
    clear();
    // deliberate: after clear() the counts are sane, unless a derived class has a word in it
    if (!is_valid() || !counts_sane())
        return false;
    std::uint32_t head[2];
    if (!read_head(file, head))
        return false;
    if (head[0] > head[1] / entry_overhead)
        return false;
    // deliberate: what a file lacks reads as zeros, which are empty entries. They mean nothing, so that the
    // first of them will do, and a head that lies costs no more than its file.
    const std::uint64_t size = file.size().value_or(0);
    const std::uint64_t left = size - std::min(size, file.position());
    m_count = head[0];
    m_datasize = static_cast<std::uint32_t>(std::min<std::uint64_t>(head[1], left + filled_up));
    const std::size_t wanted = round_up(m_datasize, commit_step);
    if (wanted == 0)
        return true;
    if (wanted <= m_datareserved || grow_range(m_datamem, m_datareserved, nullptr, wanted))
        m_data = static_cast<std::uint8_t*>(platform::commit_range(m_datamem, wanted));
    if (!m_data) {
        const std::uint32_t code = platform::last_error();
        TVR_LOG(default_log, "[-] VirtualAlloc failed! (0x%08X)", code);
        clear();
        return false;
    }
    m_datacommitted = wanted;
    std::size_t got = 0;
    if (!file.read(m_data, m_datasize, got)) {
        clear();
        log_file_error("ReadFile");
        return false;
    }
    trust_only_whole_entries();
    m_resize_owed = true;
    return true;
}

// deliberate: an odd data size stops one byte short, as the sides of the format have agreed.
bool hashmap_impl::skip(file_stream& file) {
    std::uint32_t head[2];
    return read_head(file, head) && file.seek(head[1] & ~1U, platform::origin::current).has_value();
}

bool hashmap_impl::next(std::string_view& key, std::uint8_t*& value) {
    if (m_cursor >= m_datasize)
        return false;
    std::uint8_t* entry = m_data + m_cursor;
    key = {reinterpret_cast<const char*>(entry + 1), *entry};
    value = entry + 1 + key.size();
    m_cursor += key.size() + 1 + value_size();
    return true;
}

void hashmap_impl::compact() {
    std::size_t kept = 0;
    std::uint32_t count = 0;
    for (std::size_t offset = 0; offset < m_datasize;) {
        const std::size_t size = std::size_t{m_data[offset]} + 1 + value_size();
        if (!is_dropped(m_data + offset + size - value_size())) {
            if (kept != offset)
                std::memmove(m_data + kept, m_data + offset, size);
            kept += size;
            ++count;
        }
        offset += size;
    }
    m_count = count;
    m_datasize = static_cast<std::uint32_t>(kept);
    m_cursor = 0;
    m_slots = nullptr;
    m_resize_owed = true;
}

bool dword_map::is_dropped(const std::uint8_t* value) const noexcept {
    return load_u32(value) == 0;
}

std::uint8_t* dword_map::get_or_add(std::string_view key) {
    constexpr std::uint32_t zero = 0;
    if (key.empty() || !is_valid()) // one is entered and never found, the other told of
        return !_get_value(key) && _assign(key, &zero) ? _get_value(key) : nullptr;
    return value_or_new(key, &zero);
}

bool float_map::is_dropped(const std::uint8_t* value) const noexcept {
    return load_le<float>(value) == 0.0F;
}

} // namespace tvr
