#include "common/logger.h"
#include "platform/error.h"
#include "platform/presence.h"
#include "platform/process.h"
#include "signal/event_channel.h"
#include "signal/identity.h"

namespace tvr {

namespace {

constexpr int poll_count = 70;            // looks of one rung
constexpr std::uint32_t poll_pause = 100; // milliseconds between two looks

// Waits until the server has gone, at most seven seconds. `server` is the one found last.
bool is_gone(platform::presence_info& server, event_channel::sleeper sleep) {
    for (int look = 0; look < poll_count; ++look) {
        const platform::presence_info found = platform::find_presence(server_class, server_title);
        if (!found.found)
            return true;
        server = found;
        sleep(poll_pause);
    }
    return false;
}

// deliberate: one line for both rungs that ask, though the first one sends no message.
void log_server_left() {
    TVR_LOG(default_log, "_restart_server: server was killed by sending private termination message");
}

void terminate_server(std::uint32_t process_id) {
    if (process_id == 0)
        TVR_LOG(default_log, "[i] _restart_server - got NULL processID. What does it mean?");
    platform::process_handle process;
    if (!process.open(process_id)) {
        const std::uint32_t code = platform::last_error();
        TVR_LOG(default_log, "[-] _restart_server can't access server to terminate it. Last error: %d",
                static_cast<int>(code));
        return;
    }
    if (process.terminate(-1)) {
        TVR_LOG(default_log, "_restart_server: server was killed by termination hit of sledge-hammer");
        return;
    }
    const std::uint32_t code = platform::last_error();
    TVR_LOG(default_log, "[-] _restart_server can't terminate the server. Last error: %d",
            static_cast<int>(code));
    process.leave_open(); // deliberate: a process that can't be ended stays ours to look at
}

} // namespace

bool event_channel::_restart_server(sleeper sleep) {
    const platform::locker locker(m_locker);
    TVR_LOG(default_log, "[i] Calling shutdown_server");
    if (start_server(false) == start_result::no_server)
        return true;
    platform::presence_info server = platform::find_presence(server_class, server_title);
    if (!server.found)
        return true;
    // The server always hides; somebody who shows it looks into it with a debugger.
    if (server.visible) {
        TVR_LOG(default_log,
                "[i] server's window is visible. If you are not debugging it now, simple kill it "
                "manually...");
        return false;
    }
    TVR_LOG(default_log, "[i] server will be killed and restarted now...");
    raise(ev_timeout); // deliberate: no event has this number, so the rung only waits for a server that goes
    if (is_gone(server, sleep)) {
        log_server_left();
        return true;
    }
    if (m_private_message != 0) {
        platform::broadcast_private_message(m_private_message);
        TVR_LOG(default_log, "_restart_server: private message was sent to demand immediate exiting");
        if (is_gone(server, sleep)) {
            log_server_left();
            return true;
        }
    }
    terminate_server(server.process_id);
    return true;
}

} // namespace tvr
