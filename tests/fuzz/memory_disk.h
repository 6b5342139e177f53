// A disk in memory, in place of the platform's files, views and address ranges.
//
// The programs here link it ahead of the platform library. Reading a file then costs no system call, and
// every view of a file is a block of the heap of just its size, so that the address check sees the first
// byte read after its end; a real view is followed by the rest of a page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tvr::fuzz {

void clear_disk(); // no file is open
// Makes or replaces a file, and the folders above it. Paths as everywhere above the platform.
void put_file(std::string_view path, std::span<const std::uint8_t> bytes);
void put_file(std::string_view path, std::string_view bytes);
[[nodiscard]] bool has_file(std::string_view path);
[[nodiscard]] std::string file_bytes(std::string_view path); // empty if there is none
[[nodiscard]] std::vector<std::string> all_files();          // full paths, in ascending order
[[nodiscard]] std::size_t disk_bytes();                      // of all files

using kept_files = std::vector<std::pair<std::string, std::string>>; // path and bytes
void keep_deleted(kept_files* files); // from now on the files that are deleted; null: no more

} // namespace tvr::fuzz
