#include "client/base_check.h"

#include <cstddef>
#include <cstring>
#include <memory>

#include "client/user_folder.h"
#include "common/file_stream.h"
#include "platform/error.h"

namespace tvr {

namespace {

constexpr std::size_t entry_overhead = 5; // length byte and grade
constexpr std::size_t longest_entry = 255 + entry_overhead;
constexpr std::size_t piece = 65536; // bytes
constexpr std::size_t readable = 8;  // behind the last entry

bool read_head(file_stream& file, base_header& head) {
    return head.header.read(file) || (file.seek(0, platform::origin::begin) &&
                                      head.header.readheader_s(file, base_header::deprecated_signature));
}

struct sums {
    std::uint64_t tokens = 0;
    std::uint64_t bytes = 0;
};

// The entries up to the end of the file, or to one that isn't whole or is empty.
sums visit_entries(file_stream& file, const std::function<void(base_entries)>& visit) {
    const auto buffer = std::make_unique<std::uint8_t[]>(longest_entry + piece + readable);
    sums all;
    std::size_t left = 0; // bytes of an entry that isn't whole yet
    std::size_t got = 0;
    while (file.read(buffer.get() + left, piece, got) && got != 0) {
        const std::size_t end = left + got;
        std::size_t at = 0;
        while (at < end && buffer[at] != 0 && buffer[at] + entry_overhead <= end - at) {
            at += buffer[at] + entry_overhead;
            ++all.tokens;
        }
        all.bytes += at;
        visit({buffer.get(), at});
        if (at < end && buffer[at] == 0)
            break;
        left = end - at;
        std::memmove(buffer.get(), buffer.get() + at, left);
    }
    return all;
}

} // namespace

std::string read_base(std::string_view path, base_header& head,
                      const std::function<void(base_entries)>& visit) {
    file_stream file;
    if (!file.open_to_read(path))
        return reason_text(platform::last_error());
    std::uint32_t count = 0;
    std::uint32_t bytes = 0;
    if (!read_head(file, head) || !file.read_u32(count) || !file.read_u32(bytes))
        return "damaged: its head isn't one of a base";
    const sums found = visit_entries(file, visit);
    const std::uint64_t size = file.size().value_or(0);
    const std::uint64_t whole = head.header.size() + 8 + std::uint64_t{bytes};
    if (found.tokens == count && found.bytes == bytes && size == whole)
        return {};
    return "damaged: its head tells of " + std::to_string(count) + " tokens and " + std::to_string(whole) +
           " bytes, there are " + std::to_string(found.tokens) + " and " + std::to_string(size);
}

std::string base_defect(std::string_view path) {
    base_header head;
    return read_base(path, head, [](base_entries) {});
}

} // namespace tvr
