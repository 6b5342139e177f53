// The archives of stage folders.

#include <algorithm>
#include <array>
#include <vector>

#include "common/bytes.h"
#include "platform/file.h"
#include "stage/archive_format.h"
#include "tools/formats/signatures.h"
#include "tools/formats/walks.h"
#include "tools/text.h"

namespace tvr {

namespace {

bool is_tag(std::uint8_t byte, archive_tag tag) {
    return byte == static_cast<std::uint8_t>(tag);
}

bool ends_at(const std::string& path, std::uint64_t offset) {
    std::uint8_t byte = 0;
    return platform::peek_file(path, offset, &byte, 1).value_or(0) == 1 &&
           is_tag(byte, archive_tag::file_ends);
}

// What precedes the content of a file in an archive.
struct packed_head {
    bool packed = false;
    std::uint64_t size = 0;   // of the file
    std::uint64_t stored = 0; // bytes in the archive, this head among them
};

// False if no content with an end after it stands there.
bool read_packed_head(file_view& file, packed_head& head) {
    constexpr std::size_t head_size = 16;
    constexpr std::size_t least_stream = 8; // bytes
    const auto bytes = file.ahead(head_size);
    std::array<std::uint8_t, head_size> words{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), head_size), words.begin());
    head.packed = load_u32(words.data()) == signature::packed;
    if (!head.packed) {
        head.size = load_u32(words.data());
        head.stored = head.size + 4;
        return bytes.size() >= 4 && ends_at(file.path(), file.position() + head.stored);
    }
    if (load_u32(words.data() + 4) != 2)
        return false;
    head.size = load_u32(words.data() + 8);
    head.stored = load_u32(words.data() + 12);
    if (head.stored >= head_size && ends_at(file.path(), file.position() + head.stored))
        return true;
    // The last 16 bytes of every packed file are missing; of a small one, part of this head is among them.
    for (std::size_t size = std::min(head_size, bytes.size()) - 1; size >= least_stream; --size) {
        if (!is_tag(bytes[size], archive_tag::file_ends) || (size > 12 && bytes[12] != size))
            continue;
        std::fill(words.begin() + static_cast<std::ptrdiff_t>(size), words.end(), std::uint8_t{0});
        head.size = load_u32(words.data() + 8);
        head.stored = size;
        return true;
    }
    return false;
}

// Reads the content of a file in an archive and tells its entry. False after a defect.
bool take_packed(file_view& file, view_sink& sink, const std::string& name) {
    packed_head head;
    if (!read_packed_head(file, head)) {
        if (!file.has(1) || !is_tag(file.ahead(1)[0], archive_tag::file_ends)) {
            sink.defect(file.position(), "the content of " + visible(name) + " has no end");
            return false;
        }
        head = {}; // it could not be read when the archive was made
    }
    if (sink.wants_entry())
        sink.entry({{"file", name}, {"size", head.size}, {"packed", head.packed ? head.stored : 0}});
    file.skip(head.stored + 1);
    return true;
}

} // namespace

void walk_archive(file_view& file, view_sink& sink) {
    sink.list("files");
    std::vector<std::string> folders;
    std::string name;
    while (file.has(1)) {
        const auto tag = static_cast<archive_tag>(file.ahead(1)[0]);
        const std::uint64_t at = file.position();
        file.skip(1);
        if (tag == archive_tag::archive_ends && folders.empty()) {
            expect_end(file, sink);
            return;
        }
        if (tag == archive_tag::folder_ends && !folders.empty()) {
            folders.pop_back();
            continue;
        }
        const bool fits = tag == archive_tag::folder_begins
                              ? folders.size() < deepest_archive_folder
                              : tag == archive_tag::file_begins && !folders.empty();
        if (!fits) {
            sink.defect(at, "tag " + grouped(static_cast<std::uint64_t>(tag)) + " doesn't belong there");
            return;
        }
        if (!take_short_text(file, sink, name))
            return;
        if (tag == archive_tag::folder_begins) {
            folders.push_back(name);
            continue;
        }
        std::string path;
        for (const std::string& folder : folders)
            path += folder.empty() ? "" : folder + "\\";
        if (!take_packed(file, sink, path + name))
            return;
    }
    cut_short(file, sink, "the archive");
}

} // namespace tvr
