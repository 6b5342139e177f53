// The archive of a stage folder: a stream of one-byte tags, for people to look at.

#include <vector>

#include "common/file_stream.h"
#include "common/files.h"
#include "common/path.h"
#include "platform/file.h"
#include "stage/archive_format.h"
#include "stage/temp_folder.h"

namespace tvr {

namespace {

void write_tag(file_stream& archive, archive_tag value) {
    archive.write(&value, 1);
}

// Names come from a file that anybody may have written: one that leads out of its folder is refused.
bool is_plain_name(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find_first_of("\\/:") == std::string::npos &&
           name.find('\0') == std::string::npos;
}

} // namespace

void temp_folder::pack(std::string& out, std::uint32_t stage) {
    const auto made = platform::make_temp_file(platform::temp_folder_path(), "tmp");
    file_stream archive;
    if (!made || !archive.create_to_write(*made))
        return;
    // The outermost folder has no name.
    pack_folder(archive, path(stage), {});
    write_tag(archive, archive_tag::archive_ends);
    out = *made;
}

void temp_folder::pack_folder(file_stream& archive, const std::string& folder, std::string_view name) {
    write_tag(archive, archive_tag::folder_begins);
    write_short_string(archive, name);
    platform::directory_search search;
    platform::directory_entry entry;
    for (bool found = search.first(join_path(folder, "*.*"), entry); found; found = search.next(entry)) {
        if (entry.name == "." || entry.name == "..")
            continue;
        const std::string path = join_path(folder, entry.name);
        if (entry.attributes & platform::attribute::directory) {
            pack_folder(archive, path, entry.name);
            continue;
        }
        file_stream probe;
        if (!probe.open_to_read(path) || probe.size().value_or(0) == 0)
            continue;
        write_tag(archive, archive_tag::file_begins);
        write_short_string(archive, entry.name);
        m_zlib.compress_file(path, archive);
        write_tag(archive, archive_tag::file_ends);
    }
    write_tag(archive, archive_tag::folder_ends);
}

void temp_folder::unpack(std::uint32_t stage, std::string_view archive_path) {
    file_stream archive;
    if (archive.open_to_read(archive_path))
        unpack_folder(archive, path(stage), deepest_archive_folder);
}

// deliberate: a nested folder ends its level, so that a file after one is not restored.
void temp_folder::unpack_folder(file_stream& archive, const std::string& folder, unsigned levels) {
    archive_tag value{};
    std::string name;
    while (archive.read_exact(&value, 1)) {
        if (value == archive_tag::file_ends)
            continue;
        if (value != archive_tag::file_begins)
            break;
        if (!read_short_string(archive, name) || !is_plain_name(name) ||
            !m_zlib.restore_file(archive, join_path(folder, name)))
            return;
    }
    if (value != archive_tag::folder_begins || levels == 0 || !read_short_string(archive, name))
        return;
    if (!name.empty() && !is_plain_name(name))
        return;
    const std::string inner = join_path(folder, name);
    platform::create_directory(inner);
    unpack_folder(archive, inner, levels - 1);
}

} // namespace tvr
