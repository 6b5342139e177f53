// The one road by which anything outside tells the server what to do: four named events, and the flag
// file ipc.bin.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/sync.h"

namespace tvr {

enum channel_event : std::uint32_t {
    ev_add = 0,      // new training messages lie in the cache
    ev_train = 1,    // recalculate now
    ev_reset = 2,    // rebuild the dictionaries from nothing
    ev_shutdown = 3, // end the work thread
    ev_timeout = 4,  // no event: the result of a wait on which nothing was raised
};

enum class start_result { no_server = 0, running = 1, started = 2 };

// Both ends use it: the server waits, tools and clients raise. Any thread may raise; one thread waits and
// replays.
class event_channel {
public:
    // Creates or opens the four events. A failure is logged, and leaves the channel deaf.
    event_channel();
    ~event_channel();
    event_channel(const event_channel&) = delete;
    event_channel& operator=(const event_channel&) = delete;

    // The flag file of the server's own instance (full path); made with the word 0 if it is missing. No other
    // instance has one.
    void set_file(std::string_view path);

    // Sets the event. Only while the flag file is missing, its bit is recorded there as well. A number
    // beyond 3 sets no event. Never fails.
    void raise(std::uint32_t number);

    // Whether a raise of this event hasn't been taken by the server's wait yet. Looks without taking it.
    [[nodiscard]] bool is_pending(std::uint32_t number) const;

    // Waits (milliseconds) and returns an event's number, the lowest first, or ev_timeout. A channel whose
    // events could not be created returns ev_timeout at once.
    std::uint32_t wait(std::uint32_t milliseconds);

    // Makes a missing flag file again and raises what it held.
    void replay();

    // Finds the running server, or starts it if that is allowed and this channel tried no start within the
    // last 10 seconds. `started` says nothing about success. Serialised between the threads of the process.
    start_result start_server(bool allow_start);

    using sleeper = void (*)(std::uint32_t milliseconds) noexcept;
    // Makes a server go that doesn't answer: waits for it, then demands its exit, then ends its process; each
    // of the first two takes up to seven seconds. Starts nothing: that is left to the next start_server().
    // True if the caller may go on; also after a server that could not be ended. False, with nothing done,
    // if the server's window is visible. Serialised with start_server(). `sleep` is for tests.
    bool _restart_server(sleeper sleep = platform::sleep_for);

    // The engine's program, as start_server() finds it.
    static std::optional<std::string> locate_server();

private:
    platform::critical_section m_locker;
    std::uint32_t m_private_message = 0;
    std::uint32_t m_last_start = 0; // tick count, 0 = none yet
    std::string m_file_name;
    bool m_ok = false;
    std::array<platform::event, 4> m_events;
};

} // namespace tvr
