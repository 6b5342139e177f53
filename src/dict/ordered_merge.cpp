// The one-pass merge of counts and differences, both in the order of their hashes.

#include <algorithm>
#include <utility>
#include <vector>

#include "common/bytes.h"
#include "common/token_hash.h"
#include "dict/hashmap.h"

namespace tvr {

namespace {

constexpr std::size_t overhead = 5; // bytes of an entry without its key
constexpr std::uint32_t used_up = 0xFFFFFFFF;

std::string_view key_at(const std::uint8_t* entry) {
    return {reinterpret_cast<const char*>(entry + 1), *entry};
}

std::uint32_t count_at(const std::uint8_t* entry) {
    return load_u32(entry + 1 + *entry);
}

class ordered_merge {
public:
    ordered_merge(std::span<const std::uint8_t> counts, const dword_map& differences)
        : m_counts(counts), m_added(differences.entries()), m_order(differences.ordered()) {}

    bool run() {
        std::uint32_t last = 0;
        for (std::size_t size = 0; m_at < m_counts.size(); m_at += size) {
            const std::uint8_t* const entry = m_counts.data() + m_at;
            const std::string_view key = key_at(entry);
            size = key.size() + overhead;
            const std::uint32_t hash = order_hash(key);
            if (key.empty() || hash < last || !take_new_below(hash))
                return false;
            last = hash;
            const std::uint32_t difference = take_difference(hash, key);
            if (difference != 0 || count_at(entry) == 0) {
                if (!take_run() || !put(key, count_at(entry) + difference))
                    return false;
                m_run = m_at + size;
            } else {
                ++m_run_entries;
            }
        }
        constexpr std::uint32_t all = 0x10000000;
        return take_new_below(all) && take_run();
    }

    dword_map merged;
    dword_map::change done;

private:
    [[nodiscard]] static std::uint32_t hash_of(std::uint64_t added) {
        return static_cast<std::uint32_t>(added >> 32);
    }
    [[nodiscard]] const std::uint8_t* entry_of(std::uint64_t added) const {
        return m_added.data() + static_cast<std::uint32_t>(added);
    }

    // The difference of a key that the counts have.
    std::uint32_t take_difference(std::uint32_t hash, std::string_view key) {
        for (std::size_t i = m_next; i < m_order.size() && hash_of(m_order[i]) == hash; ++i) {
            std::uint64_t& added = m_order[i];
            if (static_cast<std::uint32_t>(added) == used_up || key_at(entry_of(added)) != key)
                continue;
            const std::uint32_t difference = count_at(entry_of(added));
            note(difference);
            added |= used_up;
            return difference;
        }
        return 0;
    }

    // The differences of lower hashes that are left: the counts don't have their keys.
    bool take_new_below(std::uint32_t hash) {
        for (; m_next < m_order.size() && hash_of(m_order[m_next]) < hash; ++m_next) {
            const std::uint64_t added = m_order[m_next];
            if (static_cast<std::uint32_t>(added) == used_up)
                continue;
            const std::uint8_t* const entry = entry_of(added);
            if (key_at(entry).empty() || !take_run() || !put(key_at(entry), count_at(entry)))
                return false;
            note(count_at(entry));
        }
        return true;
    }

    void note(std::uint32_t difference) {
        done.sum += difference;
        done.any = done.any || difference != 0;
    }

    // Takes the counts up to here as they are.
    bool take_run() {
        const bool taken =
            merged.append(m_counts.subspan(m_run, m_at - m_run), std::exchange(m_run_entries, 0));
        m_run = m_at;
        return taken;
    }

    bool put(std::string_view key, std::uint32_t count) {
        if (count == 0)
            return true;
        m_entry.resize(key.size() + overhead);
        m_entry[0] = static_cast<std::uint8_t>(key.size());
        std::ranges::copy(key, m_entry.begin() + 1);
        store_u32(m_entry.data() + 1 + key.size(), count);
        return merged.append(m_entry, 1);
    }

    std::span<const std::uint8_t> m_counts;
    std::span<const std::uint8_t> m_added;
    std::vector<std::uint64_t> m_order; // of what is added; the lower half all ones: done
    std::size_t m_next = 0;             // in m_order
    std::size_t m_at = 0;               // in the counts
    std::size_t m_run = 0;              // start of what is still to be taken as it is
    std::uint32_t m_run_entries = 0;
    std::vector<std::uint8_t> m_entry;
};

} // namespace

std::optional<dword_map::change> dword_map::add_in_order(const dword_map& differences) {
    ordered_merge merge(entries(), differences);
    if (!merge.run())
        return std::nullopt;
    swap(merge.merged);
    return merge.done;
}

} // namespace tvr
