// What is left on a disk, and what files take of it. Opens no file, so that nobody is in the way of others.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tvr::platform {

// The state of a file system, as this user finds it.
struct disk_room {
    std::uint64_t bytes = 0; // free
    std::uint64_t files = 0; // that can still be made
    std::uint32_t block = 0; // bytes; each file takes whole blocks
    bool has_links = false;  // hard links are known to work
};

// Of the file system that a folder lies on; nothing if it isn't there.
std::optional<disk_room> room_at(std::string_view folder);

// The size of a file in bytes; nothing if there is none.
std::optional<std::uint64_t> size_on_disk(std::string_view path);

} // namespace tvr::platform
