#include "tools/host/host_manifest.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include <nlohmann/json.hpp>

#include "platform/addon_host.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/registry.h"

namespace tvr {

namespace {

namespace fs = std::filesystem;
using platform::registry_root;

// By the means of the library: these files are for other programs, and perhaps other users, to read, so the
// rights are the usual ones.
std::string write_manifest(const fs::path& path, const std::string& text) {
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error)
        return path.parent_path().string() + ": " + error.message();
    fs::path beside = path;
    beside += ".new";
    std::ofstream file(beside, std::ios::binary);
    file << text;
    file.close();
    if (!file)
        return beside.string() + ": can't be written";
    fs::rename(beside, path, error);
    if (error) {
        std::error_code ignored;
        fs::remove(beside, ignored);
        return path.string() + ": " + error.message();
    }
    return {};
}

std::string registry_failure(const std::string& key, const char* what) {
    return "the registry's " + key + ": " + what + " (error " + std::to_string(platform::last_error()) + ")";
}

constexpr const char* no_folder = "the folder for it can't be found";

registry_root root_of(bool all_users) {
    return all_users ? registry_root::local_machine : registry_root::current_user;
}

} // namespace

std::string install_host(const std::string& program, bool all_users, std::string& told) {
    const auto place = platform::find_addon_host_place(host_name, all_users);
    if (!place)
        return no_folder;
    const std::u8string path = fs::path(program).u8string();
    const nlohmann::json manifest = {
        {"name", host_name},
        {"description", "Tessivar, the spam filter that learns from your mail"},
        {"path", std::string(path.begin(), path.end())},
        {"type", "stdio"},
        {"allowed_extensions", {addon_id}},
    };
    const std::string text = manifest.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    const std::string shown = platform::display_path(place->manifest);
    if (std::string why = write_manifest(shown, text); !why.empty())
        return why;
    told = shown + " names " + program;
    if (place->registry_key.empty())
        return {};
    platform::registry_key key;
    if (!key.create(root_of(all_users), place->registry_key) ||
        !key.set("", platform::registry_type::string, shown + '\0'))
        return registry_failure(place->registry_key, "can't be written");
    return {};
}

std::string uninstall_host(bool all_users, std::string& told) {
    const auto place = platform::find_addon_host_place(host_name, all_users);
    if (!place)
        return no_folder;
    const std::string shown = platform::display_path(place->manifest);
    platform::registry_key key;
    if (!place->registry_key.empty() &&
        key.open(root_of(all_users), place->registry_key, platform::registry_access::write) &&
        !key.remove("") && platform::last_error() != platform::error::file_not_found)
        return registry_failure(place->registry_key, "can't be deleted");
    std::error_code error;
    told = shown + (fs::remove(shown, error) ? " is gone" : " wasn't there");
    return error ? shown + ": " + error.message() : std::string();
}

bool is_host_call(int count, char** arguments) {
    return count == 3 && std::string_view(arguments[1]).ends_with(".json") &&
           std::string_view(arguments[2]) == addon_id;
}

} // namespace tvr
