// The archives of stage folders: tags of one byte between names and packed files.
#pragma once

#include <cstdint>

namespace tvr {

enum class archive_tag : std::uint8_t {
    file_begins = 1,
    file_ends = 2,
    folder_begins = 3,
    folder_ends = 4,
    archive_ends = 5,
};

inline constexpr unsigned deepest_archive_folder = 32; // none deeper is restored

} // namespace tvr
