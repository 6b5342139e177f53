#include "platform/disk_room.h"

#include <limits>

#include "platform/win32/errors.h"
#include "platform/win32/paths.h"
#include "platform/win32/system.h"

namespace tvr::platform {

namespace {

constexpr DWORD supports_hard_links = 0x00400000;
constexpr std::uint32_t usual_block = 4096;

// The folder under which the volume is mounted: "c:\".
bool volume_of(const std::string& native, char (&root)[MAX_PATH]) {
    return GetVolumePathNameA(native.c_str(), root, MAX_PATH) != 0;
}

} // namespace

std::optional<disk_room> room_at(std::string_view folder) {
    const std::string native = win32::native_path(folder);
    ULARGE_INTEGER bytes{};
    if (!GetDiskFreeSpaceExA(native.c_str(), &bytes, nullptr, nullptr)) {
        win32::fail_last();
        return std::nullopt;
    }
    disk_room room{bytes.QuadPart, std::numeric_limits<std::uint64_t>::max(), usual_block, false};
    char root[MAX_PATH];
    DWORD flags = 0;
    DWORD sectors = 0;
    DWORD sector_size = 0;
    DWORD unused = 0;
    if (!volume_of(native, root))
        return room;
    if (GetVolumeInformationA(root, nullptr, 0, nullptr, nullptr, &flags, nullptr, 0))
        room.has_links = (flags & supports_hard_links) != 0;
    if (GetDiskFreeSpaceA(root, &sectors, &sector_size, &unused, &unused) && sectors * sector_size != 0)
        room.block = sectors * sector_size;
    return room;
}

std::optional<std::uint64_t> size_on_disk(std::string_view path) {
    WIN32_FILE_ATTRIBUTE_DATA found{};
    if (!GetFileAttributesExA(win32::native_path(path).c_str(), GetFileExInfoStandard, &found)) {
        win32::fail_last();
        return std::nullopt;
    }
    return std::uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
}

} // namespace tvr::platform
