#include "common/logger.h"
#include "common/path.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "signal/event_channel.h"
#include "signal/identity.h"

namespace tvr {

namespace {

constexpr std::uint32_t start_guard = 10000; // milliseconds between two start attempts of one channel
constexpr std::size_t path_room = 261;       // bytes of a path in the registry, terminator included

std::string registered_server() {
    platform::registry_key key;
    if (!key.open(platform::registry_root::local_machine, paths_key, platform::registry_access::allowed))
        return {};
    const auto value = key.query(server_value);
    if (!value || value->data.size() > path_room)
        return {};
    return value->data.substr(0, value->data.find('\0'));
}

} // namespace

std::optional<std::string> event_channel::locate_server() {
    std::string path = registered_server();
    if (!path.empty())
        return path;
    TVR_LOG(default_log,
            "[i] Tessivar engine init: can't locate tvr_srv.exe in the registry. Trying to find it "
            "near dll module...");
    const std::string module = platform::module_path();
    const std::string_view folder = folder_part(module);
    if (folder.empty()) {
        TVR_LOG(default_log, "[-] Tessivar engine init: can't locate tvr_srv.exe. Run it explicitly with key "
                             "'/register'. Aborting...");
        return std::nullopt;
    }
    return join_path(folder, server_value);
}

start_result event_channel::start_server(bool allow_start) {
    const platform::locker locker(m_locker);
    if (platform::find_presence(server_class, server_title).found)
        return start_result::running;
    if (!allow_start)
        return start_result::no_server;
    const std::uint32_t now = platform::tick_count();
    if (m_last_start != 0 && now - m_last_start < start_guard)
        return start_result::no_server;
    m_last_start = now;
    TVR_LOG(default_log, "[-] No server window found. Starting...");
    const auto path = locate_server();
    if (!path)
        return start_result::no_server;
    TVR_LOG(default_log, "[i] Starting server engine with command line: %s", path->c_str());
    if (!platform::start_process(*path)) {
        const std::uint32_t code = platform::last_error();
        TVR_LOG(default_log, "[-] Error starting process. Code %d", static_cast<int>(code));
    }
    return start_result::started;
}

} // namespace tvr
