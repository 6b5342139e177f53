// Temporary files and the current folder.
#include "platform/file.h"

#include <array>

#include "platform/error.h"
#include "platform/win32/errors.h"
#include "platform/win32/paths.h"
#include "platform/win32/system.h"

namespace tvr::platform {

std::optional<std::string> make_temp_file(std::string_view folder, std::string_view prefix) {
    const std::string place = win32::native_path(folder);
    const DWORD attributes = GetFileAttributesA(place.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        win32::fail(error::directory);
        return std::nullopt;
    }
    // The name isn't known before the file is there.
    if (!win32::may_change(change::create_file, folder))
        return std::nullopt;
    std::array<char, MAX_PATH> made{};
    if (GetTempFileNameA(place.c_str(), std::string(prefix).c_str(), 0, made.data()) == 0) {
        win32::fail_last();
        return std::nullopt;
    }
    return made.data();
}

std::string temp_folder_path() {
    if (const auto folder = win32::moved_folder("tmp"))
        return folder->empty() ? *folder : *folder + "\\";
    std::array<char, MAX_PATH + 1> room{};
    const DWORD length = GetTempPathA(static_cast<DWORD>(room.size()), room.data());
    return length < room.size() ? std::string(room.data(), length) : std::string();
}

std::string current_directory() {
    std::array<char, MAX_PATH> room{};
    const DWORD length = GetCurrentDirectoryA(MAX_PATH, room.data());
    if (length == 0 || length >= MAX_PATH) {
        win32::fail_last();
        return {};
    }
    return {room.data(), length};
}

bool set_current_directory(std::string_view path) {
    return win32::succeeded(SetCurrentDirectoryA(win32::native_path(path).c_str()));
}

} // namespace tvr::platform
