#include "settings/common_settings.h"

#include <array>
#include <utility>

#include "common/file_names.h"
#include "common/logger.h"
#include "common/path.h"
#include "common/registry_text.h"
#include "platform/error.h"
#include "platform/process.h"
#include "platform/profile.h"

namespace tvr {

namespace {

constexpr const char* folder_value = "tvram settings";
constexpr const char* product_folder = "Orvenix\\Brackenhold";
constexpr const char* default_raw_folder = "%appdata%\\Orvenix\\Brackenhold\\data\\";

struct keyed_default {
    const char* key;
    std::int32_t value;
};
constexpr std::array<keyed_default, 5> values = {{{"spam threshold", 85},
                                                  {"unsure threshold", 75},
                                                  {"enable outlook", 1},
                                                  {"enable express", 1},
                                                  {"enable thebat", 1}}};

const keyed_default& entry(common_value index) {
    return values.at(static_cast<std::size_t>(index));
}

// The remembered folder, if it can be used.
std::optional<std::string> remembered_folder() {
    registry_text key;
    if (!key.open(platform::registry_root::current_user, paths_key))
        return std::nullopt;
    auto raw = key.read(folder_value);
    if (!raw)
        return std::nullopt;
    if (check_directory(platform::expand_environment(*raw)) == folder_state::usable) {
        TVR_LOG(default_log, "[i] successfull. Breaking");
        return raw;
    }
    TVR_LOG(default_log, "[i] failed.");
    return std::nullopt;
}

// Makes the default folder and remembers it. deliberate: it is remembered even if it can't be used.
std::optional<std::string> default_folder() {
    registry_text key;
    if (!key.create(platform::registry_root::current_user, paths_key))
        return std::nullopt;
    TVR_LOG(default_log, "[i] creating tessivar record in HKCU");
    std::string raw = default_raw_folder;
    const bool usable = check_directory(platform::expand_environment(raw)) == folder_state::usable;
    const bool written = key.write(folder_value, raw);
    return usable && written ? std::optional(std::move(raw)) : std::nullopt;
}

} // namespace

std::string common_settings::getsettingsfolder() {
    TVR_LOG(default_log, "[i] common_settings::getsettingsfolder invoked");
    TVR_LOG(default_log, "[i] checking HKCU\\Software\\Orvenix\\Tessivar");
    auto raw = remembered_folder();
    if (!raw)
        raw = default_folder();
    if (!raw) {
        // deliberate: the number doesn't appear.
        TVR_LOG(default_log, "%s", "[-] Unable to open or create default setting's folder for tessivar, &d");
        return {};
    }
    TVR_LOG(default_log, "[i] returning %s", raw->c_str());
    return *raw;
}

std::string common_settings::working_directory() {
    std::string folder = platform::expand_environment(getsettingsfolder());
    add_backslash(folder);
    return folder;
}

std::string common_settings::known_settingsfolder() {
    registry_text key;
    std::optional<std::string> raw;
    if (key.open(platform::registry_root::current_user, paths_key))
        raw = key.read(folder_value);
    std::string folder = raw.value_or(default_raw_folder);
    add_backslash(folder);
    return folder;
}

std::optional<std::string> common_settings::_get_common_appdata() {
    std::string folder = platform::common_appdata_folder();
    if (!folder.empty())
        return folder;
    TVR_LOG(default_log, "[-] _get_common_appdata cannot find 'all users application data 'folder");
    return std::nullopt;
}

std::optional<std::string> common_settings::common_folder() {
    auto folder = _get_common_appdata();
    if (folder)
        *folder = join_path(*folder, product_folder) + "\\";
    return folder;
}

std::int32_t common_settings::default_value(common_value index) {
    return entry(index).value;
}

std::int32_t common_settings::get_value(common_value index) {
    const auto folder = common_folder();
    const keyed_default& wanted = entry(index);
    return folder
               ? platform::profile_int("Settings", wanted.key, wanted.value, *folder + names::common_settings)
               : wanted.value;
}

bool common_settings::set_value(std::uint32_t value, common_value index) {
    const auto folder = common_folder();
    if (!folder || check_directory(*folder) != folder_state::usable)
        return false;
    return platform::write_profile_string("Settings", entry(index).key,
                                          std::to_string(static_cast<std::int32_t>(value)),
                                          *folder + names::common_settings);
}

} // namespace tvr
