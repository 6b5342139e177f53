#include "platform/profile.h"

#include <string>

#include "platform/win32/errors.h"
#include "platform/win32/file_state.h"
#include "platform/win32/paths.h"

namespace tvr::platform {

namespace {

// A name without a folder would be looked for beside the system's own files.
std::string ini_file(std::string_view path) {
    return win32::full_path(win32::native_path(path));
}

} // namespace

std::int32_t profile_int(std::string_view section, std::string_view key, std::int32_t fallback,
                         std::string_view path) {
    return static_cast<std::int32_t>(GetPrivateProfileIntA(
        std::string(section).c_str(), std::string(key).c_str(), fallback, ini_file(path).c_str()));
}

bool write_profile_string(std::string_view section, std::string_view key, std::string_view value,
                          std::string_view path) {
    const std::string file = ini_file(path);
    const change first = win32::is_missing(file) ? change::create_file : change::write_file;
    return win32::may_change(first, path) &&
           win32::succeeded(WritePrivateProfileStringA(std::string(section).c_str(), std::string(key).c_str(),
                                                       std::string(value).c_str(), file.c_str()));
}

} // namespace tvr::platform
