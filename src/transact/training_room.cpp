#include "transact/training_room.h"

#include <algorithm>
#include <array>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/logger.h"
#include "dict/atom.h"
#include "platform/disk_room.h"
#include "platform/file.h"
#include "platform/registry.h"

namespace tvr {

namespace {

constexpr std::uint64_t index_bytes = 56;         // of a message ID, in half-filled pages that grow ahead
constexpr std::uint64_t plan_bytes = 40;          // of a message, in the column files
constexpr std::uint64_t atom_plan_bytes = 400;    // of an atom, in the same
constexpr std::uint64_t log_bytes = 512;          // of a message
constexpr std::uint64_t least_atom = 4;           // messages
constexpr std::uint64_t least_record = 6;         // bytes of a message ID in its list
constexpr std::uint64_t growth = 256 * 1024;      // of lists and indexes, ahead of what they hold
constexpr std::uint64_t fixed_bytes = 256 * 1024; // both files of the statistic, and logs
constexpr std::uint64_t fixed_files = 48;         // folders, markers, plans, lists, the base and its mark

std::uint64_t size_of(const std::string& path) {
    return platform::size_on_disk(path).value_or(0);
}

std::uint32_t word_of(const std::string& path, std::uint64_t place) {
    std::array<std::uint8_t, 4> word{};
    return platform::peek_file(path, place, word.data(), word.size()) == word.size() ? load_u32(word.data())
                                                                                     : 0;
}

// In the engine, or as far as a client can know.
bool logs_are_on() {
    platform::registry_key key;
    if (logger::enabled())
        return true;
    if (!key.open(platform::registry_root::local_machine, "Software"))
        return false;
    const auto flags = key.query("EnableKWILLog");
    return flags && flags->data.find_first_not_of('\0') != std::string::npos;
}

struct half_size {
    std::uint64_t bytes = 0; // of the atoms
    std::uint64_t files = 0;
    std::uint64_t undated = 0; // bytes of atoms that will be divided
};

half_size atoms_of(const std::string& base, const std::string& name) {
    half_size sum;
    platform::directory_search search;
    platform::directory_entry entry;
    for (bool more = search.first(base + name + names::any_atom, entry); more; more = search.next(entry)) {
        const std::string path = base + entry.name;
        const std::uint64_t size = size_of(path);
        ++sum.files;
        sum.bytes += size;
        atom_head head;
        if (head.peek(path) && head.oldest == 0 && head.newest == 0)
            sum.undated += size;
    }
    return sum;
}

// What waits and what is there, and what the steps make of it. Each sum is an upper bound.
class estimate {
public:
    explicit estimate(const std::string& base)
        : m_spam(atoms_of(base, names::spam_half)), m_good(atoms_of(base, names::good_half)) {
        for (const char* cache : {names::cache, names::snapshot, names::merged_snapshot}) {
            const std::string path = base + names::transact_folder + cache;
            m_batch += size_of(path);
            m_messages += std::min<std::uint64_t>(word_of(path, 0), size_of(path));
        }
        for (const char* half : {names::spam_list, names::good_list}) {
            const std::uint64_t size = size_of(base + half);
            m_lists += size;
            m_ids += std::min<std::uint64_t>(word_of(base + half, 8), size / least_record);
        }
    }

    [[nodiscard]] bool has_messages() const noexcept { return m_batch > 4; }

    [[nodiscard]] std::uint64_t bytes(bool has_links, std::uint32_t block) const {
        return std::max({joining(), writing(has_links), generating(has_links)}) + bytes_beside(block) +
               undated() + fixed_bytes + m_messages * log_bytes;
    }
    // Of temporary files: the message IDs of one atom, the pieces of another, and the packed batch.
    [[nodiscard]] std::uint64_t bytes_beside(std::uint32_t block) const {
        return atoms() + m_batch + ids() + undated() + archive() + files() * block;
    }
    // A new atom is made beside full ones only: one for each gap between atoms, and one for what fills them.
    [[nodiscard]] std::uint64_t files() const {
        return 4 * (2 * (m_spam.files + m_good.files) + m_messages / least_atom) + fixed_files;
    }

private:
    [[nodiscard]] std::uint64_t atoms() const { return m_spam.bytes + m_good.bytes; }
    [[nodiscard]] std::uint64_t undated() const { return 3 * (m_spam.undated + m_good.undated); }
    [[nodiscard]] std::uint64_t ids() const {
        return m_lists + m_lists / 4 + m_batch + index_bytes * (m_ids + m_messages) + growth;
    }
    [[nodiscard]] std::uint64_t plans() const { return plan_bytes * m_messages + atom_plan_bytes * files(); }
    [[nodiscard]] std::uint64_t archive() const {
        return m_logs ? atoms() + ids() + plans() + m_batch + growth : 0;
    }

    // A snapshot is copied, extended, and copied again where there are no links.
    [[nodiscard]] std::uint64_t joining() const { return 2 * m_batch; }
    // The stage folders with the changed halves. Unchanged atoms and the batch are links.
    [[nodiscard]] std::uint64_t writing(bool has_links) const {
        const std::uint64_t copies = has_links ? 0 : atoms() + m_batch;
        return copies + atoms() + m_batch + ids() + plans() + archive();
    }
    // The new halves and the base made of them, each of whose tokens stands in an atom; and the list of
    // tokens of spam, with a backslash in front of each byte at most.
    [[nodiscard]] std::uint64_t generating(bool has_links) const {
        const std::uint64_t list = 2 * (m_spam.bytes + m_batch);
        return m_batch + ids() + atoms() + m_batch + (has_links ? list : 2 * list) + archive();
    }

    half_size m_spam, m_good;
    const bool m_logs = logs_are_on();
    std::uint64_t m_batch = 0; // bytes that wait
    std::uint64_t m_messages = 0;
    std::uint64_t m_lists = 0; // bytes
    std::uint64_t m_ids = 0;
};

std::string kibibytes(std::uint64_t bytes, bool up) {
    return std::to_string(bytes / 1024 + (up && bytes % 1024 != 0 ? 1 : 0)) + " KiB";
}

} // namespace

std::string training_room::text() const {
    const std::string where = " free in " + platform::display_path(folder) + ", a training may need ";
    return needed_bytes > free_bytes
               ? kibibytes(free_bytes, false) + " are" + where + kibibytes(needed_bytes, true)
               : std::to_string(free_files) + " files are" + where + std::to_string(needed_files);
}

training_room room_for_training(const std::string& base) {
    const estimate needs(base);
    const auto here = platform::room_at(base);
    if (!needs.has_messages() || !here)
        return {};
    const training_room room = {base, needs.bytes(here->has_links, here->block), here->bytes, needs.files(),
                                here->files};
    const std::string temporary = platform::temp_folder_path();
    const auto beside = platform::room_at(temporary);
    if (!beside)
        return room;
    const training_room other = {temporary, needs.bytes_beside(beside->block), beside->bytes, needs.files(),
                                 beside->files};
    return room.is_enough() && !other.is_enough() ? other : room;
}

} // namespace tvr
