// Error numbers of the platform layer. Both backends return the same numbers, because behaviour and
// log lines depend on them.
#pragma once

#include <cstdint>

namespace tvr::platform {

namespace error {
constexpr std::uint32_t none = 0;
constexpr std::uint32_t invalid_function = 1;
constexpr std::uint32_t file_not_found = 2;
constexpr std::uint32_t path_not_found = 3;
constexpr std::uint32_t too_many_open_files = 4;
constexpr std::uint32_t access_denied = 5;
constexpr std::uint32_t invalid_handle = 6;
constexpr std::uint32_t not_enough_memory = 8;
constexpr std::uint32_t no_more_files = 18;
constexpr std::uint32_t write_protected = 19; // the disk
constexpr std::uint32_t write_fault = 29;
constexpr std::uint32_t read_fault = 30;
constexpr std::uint32_t general_failure = 31;
constexpr std::uint32_t sharing_violation = 32;
constexpr std::uint32_t lock_violation = 33;
constexpr std::uint32_t not_supported = 50;
constexpr std::uint32_t file_exists = 80;
constexpr std::uint32_t invalid_parameter = 87;
constexpr std::uint32_t disk_full = 112;
constexpr std::uint32_t invalid_name = 123;
constexpr std::uint32_t module_not_found = 126;
constexpr std::uint32_t negative_seek = 131; // to a place before the file
constexpr std::uint32_t directory_not_empty = 145;
constexpr std::uint32_t already_exists = 183;
constexpr std::uint32_t name_too_long = 206;
constexpr std::uint32_t more_data = 234;
constexpr std::uint32_t directory = 267;
constexpr std::uint32_t file_invalid = 1006; // an empty file was to be mapped
constexpr std::uint32_t no_system_resources = 1450;
} // namespace error

// The error number of the last failed operation of this thread. A successful operation leaves it
// alone unless its header says otherwise.
std::uint32_t last_error() noexcept;
void set_last_error(std::uint32_t number) noexcept;

} // namespace tvr::platform
