#include "tools/watch/watch_memory.h"

#include <algorithm>
#include <set>
#include <utility>

#include "common/bytes.h"
#include "common/file_stream.h"
#include "common/fileheader.h"
#include "common/files.h"
#include "common/path.h"
#include "platform/error.h"
#include "platform/file.h"
#include "tools/formats/file_view.h"
#include "tools/formats/signatures.h"

namespace tvr {

namespace {

constexpr std::size_t entry_size = 16;      // bytes
constexpr std::size_t spare_entries = 4096; // out of date, before the file is written again for them

} // namespace

watch_memory::watch_memory(std::string_view path) : m_path(path) {}

std::string watch_memory::load(const std::vector<std::uint64_t>& folders) {
    m_folders.clear();
    m_verdicts.clear();
    m_whole = false;
    std::string told;
    if (file_exists(m_path) && !read(m_path)) {
        m_folders.clear();
        m_verdicts.clear();
        const std::string bad = std::string(folder_part(m_path)) + "watch.bad";
        platform::delete_file(bad);
        platform::move_file(m_path, bad);
        told = platform::display_path(m_path) +
               ": damaged, and set aside as watch.bad; the mail that lies in the folders counts as known";
    }
    const std::set<std::uint64_t> wanted(folders.begin(), folders.end());
    std::erase_if(m_folders, [&](const auto& one) { return !wanted.contains(one.first); });
    forget_old_verdicts();
    std::string why = write_anew();
    return told.empty() || why.empty() ? told + why : told + "\n" + why;
}

// False if it can't be read, or anything in it has no meaning. A last entry that is cut short is what the
// death of a process leaves.
bool watch_memory::read(const std::string& path) {
    file_stream file;
    if (!file.open_to_read(path))
        return false;
    fileheader head(signature::watch);
    if (!head.read(file))
        return false;
    file_map* current = nullptr;
    for (;;) {
        std::uint8_t bytes[entry_size];
        std::size_t got = 0;
        if (!file.read(bytes, sizeof bytes, got))
            return false;
        if (got < sizeof bytes)
            return true;
        if (!apply(
                {static_cast<kind>(load_u32(bytes)), load_u32(bytes + 4), load_le<std::uint64_t>(bytes + 8)},
                current))
            return false;
    }
}

bool watch_memory::apply(const entry& read, file_map*& current) {
    switch (read.what) {
    case kind::folder:
        current = &m_folders[read.key];
        return true;
    case kind::present:
    case kind::gone:
        if (!current)
            return false;
        if (read.what == kind::present)
            (*current)[read.key] = read.stamp;
        else
            current->erase(read.key);
        return true;
    case kind::ham:
    case kind::spam:
        m_verdicts[read.key] = {read.what == kind::spam, ++m_turn};
        return true;
    default:
        return false;
    }
}

void watch_memory::note(std::uint64_t in_folder, entry added) {
    if (!m_whole)
        return; // all is written again the next time
    if ((added.what == kind::present || added.what == kind::gone) && m_noted_folder != in_folder) {
        m_unsaved.push_back({kind::folder, 0, in_folder});
        m_noted_folder = in_folder;
    }
    m_unsaved.push_back(added);
}

void watch_memory::add_folder(std::uint64_t key) {
    if (!m_folders.try_emplace(key).second)
        return;
    note(key, {kind::folder, 0, key});
    m_noted_folder = key;
}

bool watch_memory::knows_file(std::uint64_t in_folder, std::uint64_t name, std::uint32_t stamp) const {
    const auto files = m_folders.find(in_folder);
    if (files == m_folders.end())
        return false;
    const auto found = files->second.find(name);
    return found != files->second.end() && found->second == stamp;
}

void watch_memory::add_file(std::uint64_t in_folder, std::uint64_t name, std::uint32_t stamp) {
    add_folder(in_folder);
    if (knows_file(in_folder, name, stamp))
        return;
    m_folders[in_folder][name] = stamp;
    note(in_folder, {kind::present, stamp, name});
}

void watch_memory::drop_file(std::uint64_t in_folder, std::uint64_t name) {
    const auto files = m_folders.find(in_folder);
    if (files != m_folders.end() && files->second.erase(name) != 0)
        note(in_folder, {kind::gone, 0, name});
}

std::vector<std::uint64_t> watch_memory::files(std::uint64_t in_folder) const {
    std::vector<std::uint64_t> names;
    if (const auto files = m_folders.find(in_folder); files != m_folders.end())
        for (const auto& [name, stamp] : files->second)
            names.push_back(name);
    return names;
}

std::optional<bool> watch_memory::learned(std::uint64_t message) const {
    const auto found = m_verdicts.find(message);
    return found == m_verdicts.end() ? std::nullopt : std::optional(found->second.spam);
}

void watch_memory::set_learned(std::uint64_t message, bool is_spam) {
    m_verdicts[message] = {is_spam, ++m_turn};
    note(0, {is_spam ? kind::spam : kind::ham, 0, message});
    if (m_verdicts.size() >= 2 * most_verdicts)
        forget_old_verdicts();
}

void watch_memory::forget_old_verdicts() {
    if (m_verdicts.size() <= most_verdicts)
        return;
    std::vector<std::uint64_t> turns;
    turns.reserve(m_verdicts.size());
    for (const auto& [message, known] : m_verdicts)
        turns.push_back(known.turn);
    const auto oldest_kept = turns.end() - static_cast<std::ptrdiff_t>(most_verdicts);
    std::nth_element(turns.begin(), oldest_kept, turns.end());
    std::erase_if(m_verdicts, [turn = *oldest_kept](const auto& one) { return one.second.turn < turn; });
}

std::vector<watch_memory::entry> watch_memory::all_entries() const {
    std::vector<entry> all;
    std::vector<std::pair<std::uint64_t, entry>> verdicts; // by turn
    verdicts.reserve(m_verdicts.size());
    for (const auto& [message, known] : m_verdicts)
        verdicts.push_back({known.turn, {known.spam ? kind::spam : kind::ham, 0, message}});
    std::sort(verdicts.begin(), verdicts.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [turn, one] : verdicts)
        all.push_back(one);
    for (const auto& [key, files] : m_folders) {
        all.push_back({kind::folder, 0, key});
        for (const auto& [name, stamp] : files)
            all.push_back({kind::present, stamp, name});
    }
    return all;
}

namespace {

template <class Entries>
bool put_entries(file_stream& file, const Entries& entries) {
    for (const auto& one : entries)
        if (!file.write_u32(static_cast<std::uint32_t>(one.what)) || !file.write_u32(one.stamp) ||
            !file.write(&one.key, sizeof one.key))
            return false;
    return true;
}

} // namespace

std::string watch_memory::write_anew() {
    m_whole = false;
    m_unsaved.clear();
    m_noted_folder.reset();
    const std::vector<entry> all = all_entries();
    const rewritten result = rewrite_durably(m_path, [&all](file_stream& file) {
        return fileheader(signature::watch).write(file) && put_entries(file, all);
    });
    if (result == rewritten::not_written)
        return failure(tilde_name(m_path), "can't be written");
    if (result == rewritten::not_replaced)
        return failure(m_path, "can't be replaced");
    m_in_file = all.size();
    m_whole = true;
    return {};
}

std::string watch_memory::save() {
    if (m_whole && m_unsaved.empty())
        return {};
    std::size_t live = m_verdicts.size();
    for (const auto& [key, files] : m_folders)
        live += files.size() + 1;
    if (!m_whole || m_in_file + m_unsaved.size() > 2 * live + spare_entries) {
        forget_old_verdicts();
        return write_anew();
    }
    file_stream file;
    if (!file.open(m_path, platform::access::read_write, platform::share::read,
                   platform::creation::open_existing) ||
        !file.seek(0, platform::origin::end) || !put_entries(file, m_unsaved) || !file.raw().flush() ||
        !file.close()) {
        m_whole = false; // what stands at its end is unknown
        return failure(m_path, "can't be written");
    }
    m_in_file += m_unsaved.size();
    m_unsaved.clear();
    return {};
}

} // namespace tvr
