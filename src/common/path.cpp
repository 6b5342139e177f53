#include "common/path.h"

#include <algorithm>
#include <array>
#include <vector>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/registry.h"

namespace tvr {

namespace {

constexpr std::size_t longest_path = 260; // bytes

std::size_t name_start(std::string_view path) {
    return path.rfind('\\') + 1; // 0 when there is none
}

// Makes a file of 260 bytes in the folder and takes it away again.
folder_state probe_folder(std::string_view folder) {
    const auto path = platform::make_temp_file(folder, "tst");
    if (!path)
        return folder_state::not_creatable_file;
    auto state = folder_state::not_creatable_file;
    platform::file probe;
    if (probe.open(*path, platform::access::write, platform::share::none, platform::creation::open_always)) {
        const std::array<char, 260> bytes{};
        state = probe.write(bytes.data(), bytes.size()) ? folder_state::usable : folder_state::not_writable;
        probe.close();
    }
    platform::delete_file(*path);
    return state;
}

} // namespace

std::string join_path(std::string_view folder, std::string_view name) {
    std::string path;
    path.reserve(folder.size() + 1 + name.size());
    path = folder;
    add_backslash(path);
    path += name;
    return path;
}

std::string_view file_part(std::string_view path) {
    return path.substr(name_start(path));
}

std::string_view folder_part(std::string_view path) {
    return path.substr(0, name_start(path));
}

std::string tilde_name(std::string_view path) {
    const std::size_t at = name_start(path);
    if (at == path.size())
        return {};
    return std::string(path).insert(at, 1, '~');
}

void add_backslash(std::string& path) {
    if (!path.empty() && path.back() != '\\')
        path += '\\';
}

bool file_exists(std::string_view path) {
    platform::file probe;
    return probe.open(path, platform::access::none, platform::share::none, platform::creation::open_existing);
}

bool make_folders(std::string_view path) {
    std::vector<std::string> parents; // of those that are new
    const auto make = [&](std::string_view folder) {
        if (!platform::create_directory(folder))
            return false;
        if (folder.ends_with('\\'))
            folder.remove_suffix(1);
        parents.emplace_back(folder_part(folder));
        return true;
    };
    // A prefix that is empty or only names the root is no folder to make.
    for (std::size_t cut = path.find('\\', 1); cut < path.size(); cut = path.find('\\', cut + 1))
        if (!make(path.substr(0, cut)) && platform::last_error() == platform::error::path_not_found)
            return false;
    const bool done = make(path);
    const std::uint32_t code = platform::last_error();
    platform::make_durable(parents);
    platform::set_last_error(code);
    return done;
}

folder_state check_directory(std::string_view path) {
    if (make_folders(path))
        return folder_state::usable;
    if (platform::last_error() == platform::error::already_exists)
        return probe_folder(path);
    const auto attributes = platform::get_attributes(path);
    return attributes && (*attributes & platform::attribute::directory) != 0 ? folder_state::exists_unproven
                                                                             : folder_state::not_writable;
}

std::string registry_path_value(std::string_view name, std::string text) {
    platform::registry_key key;
    if (!key.open(platform::registry_root::local_machine, paths_key, platform::registry_access::allowed))
        return text;
    const auto value = key.query(name);
    if (!value || value->data.size() > longest_path)
        return text;
    std::string path = value->data.substr(0, value->data.find('\0'));
    if (value->type == platform::registry_type::expand_string)
        path = platform::expand_environment(path);
    if (path.size() > longest_path)
        return text;
    add_backslash(path);
    return path;
}

std::string root_folder() {
    return registry_path_value("TessivarRoot");
}

std::string module_folder() {
    return std::string(folder_part(platform::module_path()));
}

} // namespace tvr
