// Where a mail program looks for the programs that its add-ons talk to.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tvr::platform {

struct addon_host_place {
    std::string manifest;     // the file that describes the program: a path with backslashes
    std::string registry_key; // the key whose unnamed value names that file; empty where the folder is enough
};

// For the host of this name, for this user or for all users. Makes nothing. Nothing if the folder can't be
// found.
std::optional<addon_host_place> find_addon_host_place(std::string_view name, bool all_users);

} // namespace tvr::platform
