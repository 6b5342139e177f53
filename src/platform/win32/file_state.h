// What an open file is on this backend.
#pragma once

#include <string>

#include "platform/file.h"
#include "platform/win32/handle.h"

namespace tvr::platform {

struct file::state {
    win32::handle handle;
    std::string path; // as the caller gave it, for the change hook
};

namespace win32 {

// True for the numbers by which the system says that there is nothing of that name.
bool is_missing(const std::string& native) noexcept;
[[nodiscard]] std::uint64_t number_of(const FILETIME& time) noexcept;
[[nodiscard]] FILETIME file_time_of(std::uint64_t time) noexcept;

} // namespace win32

} // namespace tvr::platform
