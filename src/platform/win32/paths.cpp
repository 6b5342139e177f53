#include "platform/win32/paths.h"

#include <array>
#include <cstdint>
#include <cstdio>

#include "platform/ascii.h"
#include "platform/fnv.h"
#include "platform/process.h"
#include "platform/win32/system.h"

#include <shlobj.h>

namespace tvr::platform::win32 {

namespace {

void drop_trailing_backslashes(std::string& path) {
    while (path.size() > 3 && (path.back() == '\\' || path.back() == '/'))
        path.pop_back();
}

bool is_folder(const std::string& native) {
    const DWORD attributes = GetFileAttributesA(native.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

constexpr const char* root_variable = "TESSIVAR_ROOT";

// What a relative root means is settled before anything changes the current folder, for this process and for
// those that it starts.
[[maybe_unused]] const bool root_is_settled = [] {
    const auto root = moved_root();
    return !root || root->empty() || set_environment_variable(root_variable, *root);
}();

} // namespace

std::string native_path(std::string_view path) {
    return path.find('\0') == std::string_view::npos ? std::string(path) : std::string();
}

std::string full_path(const std::string& native) {
    std::array<char, MAX_PATH> room{};
    const DWORD length = GetFullPathNameA(native.c_str(), MAX_PATH, room.data(), nullptr);
    return length < MAX_PATH ? std::string(room.data(), length) : std::string();
}

std::optional<std::string> moved_root() {
    const auto value = environment_variable(root_variable);
    if (!value || value->empty())
        return std::nullopt;
    std::string path = full_path(*value);
    drop_trailing_backslashes(path);
    return path;
}

std::optional<std::string> moved_folder(std::string_view name) {
    auto folder = moved_root();
    if (folder && !folder->empty()) {
        folder->append("\\").append(name);
        if (!make_folders(*folder))
            folder->clear();
    }
    return folder;
}

std::string root_mark() {
    const auto root = moved_root();
    if (!root)
        return {};
    std::string lowered = *root;
    for (char& c : lowered)
        c = lower(c);
    const std::uint64_t hash = fnv_64(lowered);
    std::array<char, 18> digits{};
    std::snprintf(digits.data(), digits.size(), ".%08X%08X", static_cast<unsigned>(hash >> 32),
                  static_cast<unsigned>(hash));
    return digits.data();
}

std::string known_folder(int number) {
    std::array<char, MAX_PATH> room{};
    if (SHGetFolderPathA(nullptr, number, nullptr, SHGFP_TYPE_CURRENT, room.data()) != S_OK)
        return {};
    std::string path = room.data();
    drop_trailing_backslashes(path);
    return path;
}

bool make_folders(const std::string& native) {
    if (is_folder(native))
        return true;
    for (std::size_t cut = native.find('\\', 3); cut != std::string::npos; cut = native.find('\\', cut + 1))
        CreateDirectoryA(native.substr(0, cut).c_str(), nullptr);
    return CreateDirectoryA(native.c_str(), nullptr) != 0 || is_folder(native);
}

} // namespace tvr::platform::win32
