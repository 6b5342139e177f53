// Ageing and balance: old atoms are divided, the oldest are forgotten, and both halves are made to weigh
// about the same.

#include "dict/optimiser.h"

#include <algorithm>
#include <cstdlib>
#include <span>
#include <utility>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/filemap.h"
#include "common/logger.h"
#include "common/minutes.h"
#include "common/path.h"
#include "dict/dict_folder.h"
#include "dict/hashmap.h"
#include "dict/ring.h"
#include "msid/msidmap.h"
#include "platform/file.h"
#include "settings/settings.h"

namespace tvr {

namespace {

// A sequential writer of a temporary atom file that holds a token block only. It collects a little at a
// time, since a division has one writer open for each piece.
class atom_writer {
public:
    explicit atom_writer(const std::string& prefix) {
        if (auto made = platform::make_temp_file(platform::temp_folder_path(), prefix)) {
            m_path = std::move(*made);
            m_file.open(m_path, platform::access::write, platform::share::read,
                        platform::creation::create_always);
        }
        m_collected.resize(head_size);
    }
    ~atom_writer() {
        m_file.close();
        if (!m_path.empty())
            platform::delete_file(m_path);
    }
    atom_writer(const atom_writer&) = delete;
    atom_writer& operator=(const atom_writer&) = delete;

    void write(std::span<const std::uint8_t> record) { // a length byte, the token and its count
        m_collected.insert(m_collected.end(), record.begin(), record.end());
        if (m_collected.size() >= collect_limit)
            hand_over();
        ++count;
        bytes += static_cast<std::uint32_t>(record.size());
        occurrences += load_u32(record.data() + record.size() - 4);
    }
    void finish() { // corrects the head
        hand_over();
        std::uint8_t head[head_size];
        store_u32(head, count);
        store_u32(head + 4, bytes);
        m_file.seek(0, platform::origin::begin);
        m_file.write(head, sizeof head);
        m_file.close();
    }
    bool load(dword_map& tokens) const {
        file_stream file;
        return file.open_to_read(m_path) && tokens.init_from_file(file);
    }

    std::uint32_t count = 0;
    std::uint32_t bytes = 0;
    std::uint32_t occurrences = 0;

private:
    static constexpr std::size_t head_size = 8;
    static constexpr std::size_t collect_limit = 2048; // bytes

    void hand_over() {
        if (m_file.is_open())
            m_file.write(m_collected.data(), m_collected.size());
        m_collected.clear();
    }

    platform::file m_file;
    std::string m_path;
    std::vector<std::uint8_t> m_collected;
};

using pieces = std::vector<std::unique_ptr<atom_writer>>;

// Deals the records out to the pieces in turn. The end of the file or a record of length 0 ends it.
void deal(std::span<const std::uint8_t> records, std::uint32_t count, const pieces& all) {
    std::size_t place = 0;
    std::size_t turn = 0;
    for (; count != 0 && place < records.size(); --count) {
        const std::size_t size = std::size_t{records[place]} + 5;
        if (size == 5 || size > records.size() - place)
            return;
        all[turn]->write(records.subspan(place, size));
        place += size;
        turn = turn + 1 == all.size() ? 0 : turn + 1;
    }
}

void write_piece(const atom_writer& piece, dword_map& tokens, const std::string& path, atom_head& head) {
    file_stream file;
    file.create_to_write(path);
    head.tokens = piece.count;
    head.occurrences = piece.occurrences;
    head.header.write(file);
    tokens.flush_ordered(file);
    file.close();
}

// Of messages whose times nobody has kept.
bool is_old(const atom_head& head) {
    return head.oldest == 0 && head.newest == 0 && head.messages != 0;
}

// Puts a divided atom aside, in place of one that an earlier division left there. False if it is in the way
// still.
bool put_aside(const std::string& folder, const std::string& name) {
    const std::string from = join_path(folder, name);
    const std::string to = join_path(folder, "_" + name);
    if (platform::move_file(from, to))
        return true;
    platform::delete_file(to);
    return platform::move_file(from, to);
}

// The atom that has to go next: ordinal ones first, as nobody knows their age, then the oldest.
template <class List>
auto next_to_go(List& atoms) {
    const auto ordinal =
        std::find_if(atoms.begin(), atoms.end(), [](const auto& a) { return a->is_ordinal(); });
    return ordinal != atoms.end() ? ordinal : atoms.begin();
}

void add_range(aged_out_list& ranges, const bye_atom& atom) {
    if (!atom.is_ordinal()) {
        ranges.push_back({atom.oldest, atom.newest != 0 ? atom.newest : atom.oldest, false});
        return;
    }
    const auto same = std::find_if(ranges.begin(), ranges.end(), [&](const aged_out_range& range) {
        return range.single && range.first == atom.oldest;
    });
    if (same != ranges.end())
        same->last += atom.messages;
    else
        ranges.push_back({atom.oldest, atom.messages != 0 ? atom.messages : atom.oldest, true});
}

std::int64_t distance(std::uint32_t total, std::uint32_t target) {
    return std::abs(std::int64_t{static_cast<std::int32_t>(total - target)});
}

// A head that claims more pieces than its file could fill is damaged.
bool is_plausible(std::uint32_t piece_count, std::uint64_t file_bytes) {
    return piece_count <= 64 + file_bytes / 16;
}

} // namespace

std::size_t dict_folder::reload_atoms(bool flag) {
    for (;;) {
        m_files.clear();
        enumerate(m_name + names::any_atom);
        const std::vector<std::string> names = m_files;
        bool changed = false;
        for (const std::string& name : names) {
            const std::string path = join_path(m_path, name);
            atom_head head;
            head.peek(path);
            // Only what has left the folder is a change, or a file in use would be met again without end.
            if (flag && head.messages == 0 && platform::delete_file(path))
                changed = true;
            else if (is_old(head) && divide_old_atom(name))
                changed |= put_aside(m_path, name);
        }
        if (!changed)
            return m_files.size();
    }
}

bool dict_folder::divide_old_atom(const std::string& name) {
    const std::string path = join_path(m_path, name);
    const read_map view(path);
    atom_head head;
    std::size_t place = 0;
    head.read(view.bytes(), place);
    if (!is_old(head))
        return false;
    TVR_LOG(transact_log, "[i] divide old dictionary (%s)", path.c_str());
    // deliberate: a size of 0 is not guarded against; it ends the process.
    const std::uint32_t piece_size = current_settings()->optimal_one_dict_size;
    const std::uint32_t piece_count = head.messages / piece_size + (head.messages % piece_size != 0 ? 1 : 0);
    if (!is_plausible(piece_count, view.size()))
        return false;
    const bool only_atom = m_files.size() == 1;
    pieces all;
    for (std::uint32_t i = 0; i < piece_count; ++i)
        all.push_back(std::make_unique<atom_writer>(m_name));
    if (head.header.filecount() > 3)
        place += 8; // the older form has no counts before its records
    const auto memory = view.bytes();
    deal(memory.subspan(std::min(place, memory.size())), head.tokens, all);

    head.messages /= piece_count;
    const std::uint32_t now = now_minutes();
    head.oldest = head.newest = now;
    std::vector<std::string> made;
    for (std::uint32_t i = 0; i < piece_count; ++i) {
        all[i]->finish();
        dword_map tokens;
        if (all[i]->load(tokens))
            write_piece(*all[i], tokens, made.emplace_back(new_file(i)), head);
    }
    if (only_atom)
        msidmap::relabel(made.emplace_back(join_path(m_path, m_name + names::list_ending)), now);
    // Before the divided atom goes.
    made.push_back(join_path(m_path, ""));
    platform::make_durable(made);
    return true;
}

std::uint32_t load_atom_infos(const dict_folder& atoms, atom_info_list& list, std::string_view folder) {
    list.clear();
    list.reserve(atoms.files().size());
    std::uint32_t total = 0;
    for (const std::string& name : atoms.files()) {
        auto info = std::make_unique<atom_info>();
        info->peek(join_path(folder, name));
        info->name = name;
        total += info->messages;
        list.push_back(std::move(info));
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const auto& a, const auto& b) { return atom_is_before(*a, a->name, *b, b->name); });
    return total;
}

void prune_atoms(std::uint32_t target, std::uint32_t total, atom_info_list& list) {
    while (total > target && !list.empty()) {
        const auto atom = next_to_go(list);
        const std::int64_t before = distance(total, target);
        total -= (*atom)->messages;
        if (before < distance(total, target) || total == 0)
            return;
        list.erase(atom);
    }
}

void balance_halves(dict_folder& nspam_folder, dict_folder& spam_folder) {
    const std::uint32_t base_size = current_settings()->optimal_base_size_per_half;
    atom_info_list one;
    atom_info_list second;
    const std::uint32_t total_nspam = load_atom_infos(nspam_folder, one, nspam_folder.path());
    const std::uint32_t total_spam = load_atom_infos(spam_folder, second, spam_folder.path());
    std::uint32_t target = std::min(total_nspam, total_spam);
    if (target > base_size)
        target = base_size + current_settings()->optimal_one_dict_size / 2;
    prune_atoms(target, total_nspam, one);
    prune_atoms(target, total_spam, second);
    const auto names = [](const atom_info_list& list) {
        std::vector<std::string> result;
        for (const auto& info : list)
            result.push_back(info->name);
        return result;
    };
    nspam_folder.set_files(names(one));
    spam_folder.set_files(names(second));
}

void bye_ring::forget_oldest(aged_out_list& ranges) {
    sort_atoms();
    for (;;) {
        const std::uint32_t total = messages_total();
        if (total <= base_limit || m_atoms.empty())
            return;
        const auto atom = next_to_go(m_atoms);
        if (total - (*atom)->messages < base_limit)
            return;
        add_range(ranges, **atom);
        (*atom)->remove_file();
        m_atoms.erase(atom);
    }
}

} // namespace tvr
