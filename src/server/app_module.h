// The module's identity, and the loop that the process spends its life in.
#pragma once

#include <string>
#include <string_view>

#include "platform/presence.h"

namespace tvr {

// One object per process, on the main thread.
class app_module {
public:
    // Reads the path values of the registry, and configures the logger with them. The help and log paths
    // are looked at only if there is a root path.
    void read_paths();

    // Takes the server's presence and the private message that ends the process at once. False if the
    // presence can't be made.
    bool create_presence();
    // Serves requests until somebody asks to close.
    void run();

    [[nodiscard]] const std::string& help_path() const noexcept { return m_help_path; }

private:
    std::string m_help_path;
    platform::presence m_presence;
};

} // namespace tvr
