// What an open file is on this backend.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <string>

#include "platform/file.h"
#include "platform/posix/descriptor.h"

namespace tvr::platform {

struct file::state {
    posix::descriptor handle;
    access rights = access::none;
    bool temporary = false;     // its content need not reach the disk
    std::uint64_t position = 0; // kept here: reads and writes name their place, a seek costs nothing
    std::string path;           // as the caller gave it, for the change hook

    [[nodiscard]] bool may(access wanted) const noexcept {
        return (static_cast<unsigned>(rights) & static_cast<unsigned>(wanted)) ==
               static_cast<unsigned>(wanted);
    }
    [[nodiscard]] bool look(struct stat& info) const noexcept; // false sets last_error()
};

namespace posix {

// Grows a file with zeros that have their place on the disk, so that a full disk is an error here and not
// a signal at the first write through a mapping. False leaves errno.
bool grow_file(int file, std::uint64_t from, std::uint64_t to) noexcept;

// The part of a stat mode that stands for the read-only attribute.
[[nodiscard]] bool is_read_only(unsigned mode) noexcept;
[[nodiscard]] std::uint64_t to_file_time(const timespec& time) noexcept;
[[nodiscard]] timespec from_file_time(std::uint64_t time) noexcept;

} // namespace posix

} // namespace tvr::platform
