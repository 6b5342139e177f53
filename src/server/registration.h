// The registry value through which clients find the executable, and the closing of the running server.
#pragma once

#include <cstdint>

namespace tvr {

// Logs the executable's product name and version; false if it carries none.
bool makeversion();
// Makes the value "tvr_srv.exe" hold the path of this executable. Failures are only logged.
void check_registry();

constexpr std::uint32_t uninstall_server = 1;   // delete the value "tvr_srv.exe"
constexpr std::uint32_t uninstall_settings = 2; // delete the value "tvram settings"
// Closes the running server, if there is one, and deletes the values that the flags name. Waits until
// the server has given up its presence.
void do_uninstall(std::uint32_t flags);

} // namespace tvr
