// Makes the host known to the mail program, so that the add-on can start it.
#pragma once

#include <string>

namespace tvr {

// The two names that the add-on and the host know each other by.
inline constexpr const char* host_name = "tessivar";
inline constexpr const char* addon_id = "tessivar@orvenix.example";

// Writes the manifest that names `program` (as the user writes paths), for this user or for all users, and
// what else leads the mail program to it. `told` is what was done, for the user. The reason of a failure, or
// an empty text.
[[nodiscard]] std::string install_host(const std::string& program, bool all_users, std::string& told);
// Takes it away again; what isn't there is no failure.
[[nodiscard]] std::string uninstall_host(bool all_users, std::string& told);

// True if the mail program has started this process for the add-on: its arguments are then the manifest and
// the add-on's ID.
[[nodiscard]] bool is_host_call(int count, char** arguments);

} // namespace tvr
