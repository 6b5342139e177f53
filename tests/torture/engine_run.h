// The engine in a child of the test, driven to its rest.
#pragma once

#include <cstdint>
#include <functional>

namespace tvr::torture {

// How a child with an engine ended, in board::verdict.
enum class verdict : std::uint32_t {
    none,      // it was killed
    rest,      // the transaction thread waits, and no marker is left
    no_batch,  // an endless round: "[-] something wrong with file"
    no_marker, // an endless round: "Stage doesn't prepared. Exiting"
    left,      // the engine ended by itself
    stopped,   // and was asked to
    hangs,     // none of these within a minute
};

// Of a driver that runs beside an engine in the same process. Its own changes are spared.
class engine_driver {
public:
    // Waits until the transaction thread is at rest. Ends the process with another verdict if it never is.
    void wait_for_rest();
    // Raises the event, and waits until the engine is through with the training; or, without room on the
    // disk, has looked at it.
    void train(bool has_room = true);
    // Asks the engine to close; it ends the process.
    void stop();

private:
    unsigned m_waits = 1; // the next rest is this coming to the wait
};

// Runs the engine, and the driver on a thread of its own. The process ends with the driver, at once; its
// exit code is 0.
int run_engine(const std::function<void(engine_driver&)>& driver);
verdict last_verdict();
const char* name_of(verdict what);

// Stores and settings of a root: logs are on, the base is small, nothing is trained without being told.
void prepare_root();
// A client of its own: appends `count` messages of the series to the cache, of which every second one is
// spam. False if that failed.
bool append_messages(unsigned series, unsigned count);

constexpr unsigned base_size = 40; // messages a half; atoms have 12 at most

} // namespace tvr::torture
