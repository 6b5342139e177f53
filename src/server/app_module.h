// The module's identity, and the loop that the process spends its life in.
#pragma once

#include <array>
#include <string>

#include "platform/presence.h"
#include "platform/process.h"

namespace tvr {

// One object per process, on the main thread.
class app_module {
public:
    // The first object of the process becomes the current one.
    explicit app_module(platform::module_handle instance);
    virtual ~app_module();
    app_module(const app_module&) = delete;
    app_module& operator=(const app_module&) = delete;

    // Takes another module for both handles, and prepares the controls. The constructor does the same.
    virtual void init(platform::module_handle module);
    // Forgets both handles; true.
    virtual bool term();
    // Serves requests until somebody asks to close, and then forgets the handles.
    virtual void run();

    static app_module* current() noexcept; // null if there is none

    // Reads the path values of the registry, and configures the logger with them. The help and log paths
    // are looked at only if there is a root path.
    void read_paths();
    // Takes the server's presence and the private message that ends the process at once. False if the
    // presence can't be made.
    bool create_presence();
    // Of the presence, 0 without one.
    [[nodiscard]] platform::window_handle window() const noexcept { return m_presence.window(); }

    [[nodiscard]] platform::module_handle module() const noexcept { return m_module; }
    // deliberate: the last two have no caller here.
    [[nodiscard]] platform::module_handle resource_module() const noexcept { return m_resource_module; }
    [[nodiscard]] const std::string& help_path() const noexcept { return m_help_path; }

private:
    platform::module_handle m_module = 0;
    platform::module_handle m_resource_module = 0;
    [[maybe_unused]] std::array<std::string, 2> m_texts; // nothing fills them
    std::string m_help_path;
    platform::presence m_presence;
};

} // namespace tvr
