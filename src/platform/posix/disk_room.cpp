#include "platform/disk_room.h"

#include <algorithm>
#include <array>
#include <limits>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include "platform/posix/errors.h"
#include "platform/posix/paths.h"

namespace tvr::platform {

namespace {

// Kinds of file systems that have no hard links, or may have none: FAT, exFAT, FUSE, SMB, 9P.
constexpr std::array<std::uint32_t, 6> without_links = {0x4D44,     0x2011BAB0, 0x65735546,
                                                        0xFF534D42, 0xFE534D42, 0x01021997};

bool links_work(const std::string& native) {
    struct statfs kind {};
    return statfs(native.c_str(), &kind) == 0 &&
           std::ranges::find(without_links, static_cast<std::uint32_t>(kind.f_type)) == without_links.end();
}

} // namespace

std::optional<disk_room> room_at(std::string_view folder) {
    const std::string native = posix::native_path(folder);
    struct statvfs found {};
    if (statvfs(native.c_str(), &found) != 0) {
        posix::fail_errno();
        return std::nullopt;
    }
    // Where files aren't counted, all numbers are 0.
    const std::uint64_t files =
        found.f_files != 0 ? found.f_favail : std::numeric_limits<std::uint64_t>::max();
    const auto block = static_cast<std::uint32_t>(found.f_frsize);
    return disk_room{std::uint64_t{found.f_bavail} * block, files, block, links_work(native)};
}

std::optional<std::uint64_t> size_on_disk(std::string_view path) {
    struct stat found {};
    if (stat(posix::native_path(path).c_str(), &found) != 0) {
        posix::fail_errno();
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(found.st_size);
}

} // namespace tvr::platform
