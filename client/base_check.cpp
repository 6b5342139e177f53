#include "client/base_check.h"

#include <cstdint>

#include "client/user_folder.h"
#include "common/file_stream.h"
#include "compiled/base_header.h"
#include "platform/error.h"

namespace tvr {

namespace {

bool read_head(file_stream& file, base_header& head) {
    return head.header.read(file) || (file.seek(0, platform::origin::begin) &&
                                      head.header.readheader_s(file, base_header::deprecated_signature));
}

// The tokens up to the end of the file, or to one that isn't whole. `bytes` is what they take.
std::uint64_t count_tokens(file_stream& file, std::uint64_t& bytes) {
    constexpr std::size_t value_size = 4;
    std::uint64_t count = 0;
    std::uint8_t length = 0;
    char entry[255 + value_size];
    for (bytes = 0; file.read_exact(&length, 1) && length != 0 && file.read_exact(entry, length + value_size);
         ++count)
        bytes += 1 + length + value_size;
    return count;
}

} // namespace

std::string base_defect(std::string_view path) {
    file_stream file;
    if (!file.open_to_read(path))
        return reason_text(platform::last_error());
    base_header head;
    std::uint32_t count = 0;
    std::uint32_t bytes = 0;
    if (!read_head(file, head) || !file.read_u32(count) || !file.read_u32(bytes))
        return "damaged: its head isn't one of a base";
    std::uint64_t found_bytes = 0;
    const std::uint64_t found = count_tokens(file, found_bytes);
    const std::uint64_t size = file.size().value_or(0);
    const std::uint64_t whole = head.header.size() + 8 + std::uint64_t{bytes};
    if (found == count && found_bytes == bytes && size == whole)
        return {};
    return "damaged: its head tells of " + std::to_string(count) + " tokens and " + std::to_string(whole) +
           " bytes, there are " + std::to_string(found) + " and " + std::to_string(size);
}

} // namespace tvr
