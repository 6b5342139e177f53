// The one-pass merge of counts and differences, both in the order of their hashes.

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/bytes.h"
#include "common/token_hash.h"
#include "dict/hashmap.h"

namespace tvr {

namespace {

std::string_view key_at(const std::uint8_t* entry) {
    return {reinterpret_cast<const char*>(entry + 1), *entry};
}

std::size_t size_at(const std::uint8_t* entry) {
    return *entry + dword_map::entry_overhead;
}

std::uint32_t count_at(const std::uint8_t* entry) {
    return load_u32(entry + 1 + *entry);
}

// The hashes of entries that are in order and have keys; otherwise nothing.
std::optional<std::vector<std::uint32_t>> hashes_in_order(std::span<const std::uint8_t> entries,
                                                          std::uint32_t count) {
    std::vector<std::uint32_t> hashes;
    hashes.reserve(count);
    std::uint32_t last = 0;
    for (std::size_t at = 0; at < entries.size(); at += size_at(entries.data() + at)) {
        const std::string_view key = key_at(entries.data() + at);
        const std::uint32_t hash = order_hash(key);
        if (key.empty() || hash < last)
            return std::nullopt;
        hashes.push_back(last = hash);
    }
    return hashes;
}

// Differences in the order of their hashes, each of which is taken once.
class difference_list {
public:
    explicit difference_list(const dword_map& from) : m_entries(from.entries()), m_order(from.ordered()) {}

    [[nodiscard]] bool has_empty_key() const { // its hash is the lowest
        for (const std::uint64_t each : m_order)
            if (hash_of(each) != 0 || key_at(entry_of(each)).empty())
                return hash_of(each) == 0;
        return false;
    }

    // The difference for a key, whose hash isn't below any that was asked for; 0 if there is none.
    std::uint32_t take(std::uint32_t hash, std::string_view key) {
        for (std::size_t i = m_next; i < m_order.size() && hash_of(m_order[i]) == hash; ++i)
            if (!is_taken(m_order[i]) && key_at(entry_of(m_order[i])) == key) {
                const std::uint32_t difference = noted(count_at(entry_of(m_order[i])));
                m_order[i] |= taken;
                return difference;
            }
        return 0;
    }
    // The next entry of a hash below this one that nobody has taken; null after the last.
    const std::uint8_t* next_below(std::uint32_t hash) {
        while (m_next < m_order.size() && hash_of(m_order[m_next]) < hash)
            if (const std::uint64_t each = m_order[m_next++]; !is_taken(each)) {
                noted(count_at(entry_of(each)));
                return entry_of(each);
            }
        return nullptr;
    }

    dword_map::change done;

private:
    static constexpr std::uint64_t taken = 0xFFFFFFFF; // in place of the offset

    static std::uint32_t hash_of(std::uint64_t each) { return static_cast<std::uint32_t>(each >> 32); }
    static bool is_taken(std::uint64_t each) { return (each & taken) == taken; }
    [[nodiscard]] const std::uint8_t* entry_of(std::uint64_t each) const {
        return m_entries.data() + (each & taken);
    }
    std::uint32_t noted(std::uint32_t difference) {
        done.sum += difference;
        done.any = done.any || difference != 0;
        return difference;
    }

    std::span<const std::uint8_t> m_entries;
    std::vector<std::uint64_t> m_order;
    std::size_t m_next = 0;
};

} // namespace

std::optional<dword_map::change> dword_map::add_in_order(const dword_map& differences) {
    constexpr std::uint32_t above_all = 0x10000000;
    const auto hashes = hashes_in_order(entries(), count());
    difference_list added(differences);
    if (!hashes || added.has_empty_key())
        return std::nullopt;
    // What is written never gets to what is still to be read: all differences fit in front of it.
    std::uint8_t* const start = move_entries_up(differences.datasize());
    if (!start)
        return std::nullopt;
    std::uint8_t* out = start;
    const std::uint8_t* in = start + differences.datasize();
    std::uint32_t kept = 0;
    const auto put = [&](const std::uint8_t* entry, std::uint32_t count) {
        if (count == 0)
            return;
        const std::size_t size = size_at(entry);
        std::memmove(out, entry, size);
        out += size;
        store_u32(out - sizeof count, count);
        ++kept;
    };
    const auto put_new_below = [&](std::uint32_t hash) {
        while (const std::uint8_t* const entry = added.next_below(hash))
            put(entry, count_at(entry));
    };
    for (const std::uint32_t hash : *hashes) {
        const std::size_t size = size_at(in);
        put_new_below(hash);
        put(in, count_at(in) + added.take(hash, key_at(in)));
        in += size;
    }
    put_new_below(above_all);
    set_entries(static_cast<std::size_t>(out - start), kept);
    return added.done;
}

} // namespace tvr
