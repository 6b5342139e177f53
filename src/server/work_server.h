// Ties the engine together: owns the transaction and the event channel, brings up settings and statistic,
// and runs the loop that turns raised events into calls of the transaction.
#pragma once

#include <cstdint>

#include "platform/presence.h"
#include "platform/sync.h"
#include "signal/event_channel.h"
#include "transact/transaction.h"

namespace tvr {

// One object per process. Built and initialised on the main thread; work() runs on a thread of its own.
class work_server {
public:
    explicit work_server(platform::window_handle window); // of the server's presence
    ~work_server();
    work_server(const work_server&) = delete;
    work_server& operator=(const work_server&) = delete;

    // The object that the process built first, or null.
    static work_server* current() noexcept;

    // Reads the settings, prepares the flag file and reads the statistic. Returns whether the server may
    // run; missing or damaged files are no reason against it.
    bool init();
    // The work thread: waits on the channel until event 3 and returns 0.
    std::uint32_t work();
    // Says goodbye in the log, and waits half a second if init() had run. deliberate: it stops nothing, and
    // is called twice.
    void stop();
    void stop_again() { stop(); }

    // For the self-tests: not yet started as long as work() doesn't run.
    [[nodiscard]] transaction& pipeline() noexcept { return m_transaction; }

    // deliberate: these three have no caller here.
    void reinit() { m_transaction.reinit(); }
    void quit(); // asks the message loop to end, and returns
    // Reports the heads of the two old-style dictionaries in the log; returns 0.
    std::uint32_t load_training_information();

private:
    platform::window_handle m_window;
    transaction m_transaction;
    event_channel m_channel;
    bool m_initialized = false;
    platform::event m_long_idle; // nothing waits for it
};

// Writes the statistic for the last time. Called once at the end of the process, while other threads may
// still run.
void close_statistic();

} // namespace tvr
