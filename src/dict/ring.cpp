#include "dict/ring.h"

#include <algorithm>
#include <utility>

#include "common/path.h"
#include "dict/hashmap.h"
#include "dict/message_reader.h"

namespace tvr {

void bye_ring::open(std::string_view final_folder, std::string_view name, std::uint32_t stage) {
    init(final_folder);
    m_name = name;
    const std::string stage_folder = folder().path(stage);
    m_files.emplace(stage_folder, m_name);
    if (m_files->reload_atoms(false) == 0) {
        m_files->reload(final_folder, true);
        m_files->copy_all(stage_folder, false);
        m_files->reload(stage_folder, false);
    }
    messages_seen = 0;
    m_atoms.clear();
    m_atoms.reserve(m_files->files().size() + 10);
    for (const std::string& file : m_files->files()) {
        m_atoms.push_back(std::make_unique<bye_atom>());
        m_atoms.back()->open(join_path(stage_folder, file));
    }
    sort_atoms();
}

void bye_ring::sort_atoms() {
    std::stable_sort(m_atoms.begin(), m_atoms.end(), [](const auto& a, const auto& b) {
        return atom_is_before(*a, a->path(), *b, b->path());
    });
}

std::uint32_t bye_ring::messages_total() const noexcept {
    std::uint32_t total = 0;
    for (const auto& atom : m_atoms)
        total += atom->messages;
    return total;
}

void bye_ring::set_atom_size(std::uint32_t usual_quota, std::uint32_t calculated_size) noexcept {
    m_calculated_size = calculated_size;
    m_usual_quota = calculated_size != 0 ? usual_quota : 0;
}

std::uint32_t bye_ring::limit_in_force() const noexcept {
    return m_calculated_size != 0 && messages_seen >= m_usual_quota ? m_calculated_size : atom_size;
}

bool bye_ring::place_in_span(std::uint64_t offset, std::uint32_t stamp, bool positive) {
    return std::any_of(m_atoms.begin(), m_atoms.end(), [&](const auto& atom) {
        const bool undated = atom->oldest == 0 && atom->newest == 0;
        return (undated || stamp == atom->oldest || stamp <= atom->newest) &&
               atom->try_add(offset, stamp, positive, limit_in_force());
    });
}

void bye_ring::place_by_time(std::uint64_t offset, std::uint32_t stamp, bool positive) {
    if (!positive)
        return;
    const auto takes = [&](const auto& place) {
        return (*place)->try_add(offset, stamp, positive, limit_in_force());
    };
    const auto pos =
        std::find_if(m_atoms.begin(), m_atoms.end(), [&](const auto& atom) { return atom->oldest > stamp; });
    if (pos != m_atoms.begin() && takes(pos - 1))
        return;
    if (pos != m_atoms.end() && takes(pos))
        return;
    auto atom = std::make_unique<bye_atom>();
    atom->open(m_files->new_file(0));
    atom->add_message(offset, stamp, positive);
    m_atoms.push_back(std::move(atom));
    sort_atoms();
}

void bye_ring::finalize(std::uint32_t stage, const std::string& message_file, msid_access& msids) {
    message_reader reader;
    if (!reader.open(message_file))
        return;
    const msid_access::run run(msids);
    const std::string target = folder().path(stage);
    dword_map final;
    bye_atom* prev = nullptr;
    bool any_ordinal = false;
    for (const auto& atom : m_atoms) {
        if (atom->is_ordinal()) {
            any_ordinal = true;
        } else if (atom->to_merge()) {
            atom->fold(final, reader, msids, prev);
        } else {
            if (prev) {
                const std::uint32_t tokens = final.count();
                prev->rewrite(final, target, true);
                final.expect(tokens + tokens / 4); // the next atom has about as many
            }
            atom->apply_changes(final, reader, msids);
            prev = atom.get();
        }
    }
    if (prev)
        prev->rewrite(final, target, true);
    if (!any_ordinal)
        return;
    // Nobody knows which ordinal atom holds a message's tokens, so they share their differences.
    dword_map shared;
    for (const auto& atom : m_atoms)
        if (atom->is_ordinal())
            atom->apply_changes(shared, reader, msids);
    shared.compact();
    for (const auto& atom : m_atoms)
        if (atom->is_ordinal())
            atom->rewrite(shared, target, false);
}

} // namespace tvr
