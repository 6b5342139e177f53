// The column file: a ring's plan on its way from the sorting stage to the finalize stages.

#include <string_view>
#include <utility>

#include "common/bytes.h"
#include "common/file_names.h"
#include "common/file_stream.h"
#include "common/files.h"
#include "common/logger.h"
#include "common/path.h"
#include "dict/ring.h"

namespace tvr {

namespace {

constexpr std::size_t change_size = 9; // bytes

struct column_head {
    column_head() : header(column_signature) { header.add(atoms, 0); }
    column_head(const column_head&) = delete;
    column_head& operator=(const column_head&) = delete;

    std::uint32_t atoms = 0;
    fileheader header;
};

// A name that would leave the folder of the half.
bool is_foreign(std::string_view name) {
    return name == "." || name == ".." || name.find('/') != std::string_view::npos;
}

} // namespace

bool bye_atom::save_record(file_stream& file) const {
    const auto count = static_cast<std::uint32_t>(m_changes.size());
    const std::uint8_t merge = m_to_merge ? 1 : 0;
    if (!write_short_string(file, m_path) || !header.write(file) || !file.write(&merge, 1) ||
        !file.write_u32(count))
        return false;
    for (const change& planned : m_changes) {
        std::uint8_t bytes[change_size];
        store_le(bytes, planned.offset);
        bytes[8] = planned.positive ? 1 : 0;
        if (!file.write(bytes, sizeof bytes))
            return false;
    }
    return true;
}

bool bye_atom::load_record(file_stream& file) {
    m_has_msids = false;
    m_msids.reset();
    m_changes.clear();
    if (!read_short_string(file, m_path) || is_foreign(file_part(m_path)) || !read(file))
        return false;
    std::uint8_t merge = 0;
    std::uint32_t count = 0;
    file.read_exact(&merge, 1);
    m_to_merge = merge != 0;
    if (!file.read_u32(count))
        return true;
    std::uint8_t bytes[change_size];
    for (; count != 0 && file.read_exact(bytes, sizeof bytes); --count)
        m_changes.push_back({load_le<std::uint64_t>(bytes), bytes[8] != 0});
    return true;
}

std::string bye_ring::col_path(std::uint32_t stage) {
    return folder().path_of(stage, m_name + names::column_ending);
}

// deliberate: an old file is not cut. The count in the head makes what is left of it harmless. A file that
// can't be written whole goes again: read as a part, it would cost the half all atoms that it doesn't name.
void bye_ring::save_col(std::uint32_t stage) {
    const std::string path = col_path(stage);
    file_stream file;
    if (!file.open(path, platform::access::read_write, platform::share::read,
                   platform::creation::open_always))
        return;
    column_head head;
    head.atoms = static_cast<std::uint32_t>(m_atoms.size());
    bool whole = head.header.write(file);
    for (const auto& atom : m_atoms)
        whole = whole && atom->save_record(file);
    if (!file.close() || !whole) {
        TVR_LOG(transact_log, "[-] .col writing failed (%s)", path.c_str());
        platform::delete_file(path);
    }
}

// What is missing after the head of a damaged file is not reported: the ring gets the atoms that are there.
void bye_ring::load_col(std::uint32_t stage) {
    file_stream file;
    if (!file.open_to_read(col_path(stage)))
        return;
    column_head head;
    if (!head.header.read(file))
        return; // no column file at all
    m_atoms.clear();
    for (std::uint32_t left = head.atoms; left != 0; --left) {
        auto atom = std::make_unique<bye_atom>();
        if (!atom->load_record(file))
            break;
        messages_seen += atom->messages;
        m_atoms.push_back(std::move(atom));
    }
}

} // namespace tvr
