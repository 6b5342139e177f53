#include "client/user_folder.h"

#include <array>

#include "common/path.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/process.h"
#include "settings/common_settings.h"

namespace tvr {

namespace {

const char* const no_home = "this account has no home folder, and HOME and XDG_DATA_HOME name none";

// Why a folder can't be made or written in: the number of the first step that fails, 0 if none does.
std::uint32_t obstacle(const std::string& path) {
    if (!make_folders(path) && !platform::get_attributes(path))
        return platform::last_error();
    const auto probe = platform::make_temp_file(path, "tst");
    if (!probe)
        return platform::last_error();
    platform::file file;
    constexpr std::array<char, 260> bytes{};
    const bool written =
        file.open(*probe, platform::access::write, platform::share::none, platform::creation::open_always) &&
        file.write(bytes.data(), bytes.size());
    const std::uint32_t code = written ? platform::error::none : platform::last_error();
    file.close();
    platform::delete_file(*probe);
    return code;
}

} // namespace

user_folder find_user_folder() {
    std::string path = platform::expand_environment(common_settings::known_settingsfolder());
    if (path.empty() || path.starts_with('%')) // there is no %appdata%
        return {{}, no_home};
    return {std::move(path), {}};
}

user_folder make_user_folder() {
    if (std::string path = common_settings::working_directory(); !path.empty())
        return {std::move(path), {}};
    user_folder known = find_user_folder();
    if (known.path.empty())
        return known;
    const std::uint32_t code = obstacle(known.path);
    return {{},
            path_error(known.path, code) +
                (code == platform::error::none ? ", but its place can't be remembered" : "")};
}

std::string reason_text(std::uint32_t code) {
    switch (code) {
    case platform::error::none:
        return "can be used";
    case platform::error::file_not_found:
    case platform::error::path_not_found:
        return "isn't there, and can't be made";
    case platform::error::access_denied:
        return "access denied";
    case platform::error::write_protected:
        return "the disk can only be read";
    case platform::error::sharing_violation:
        return "in use by another program";
    case platform::error::disk_full:
        return "the disk is full";
    case platform::error::name_too_long:
        return "the path is too long";
    default:
        return "error " + std::to_string(code);
    }
}

std::string path_error(const std::string& path, std::uint32_t code) {
    return platform::display_path(path) + ": " + reason_text(code);
}

} // namespace tvr
