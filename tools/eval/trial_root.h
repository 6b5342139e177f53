// A root for a trial: with an engine of its own, and nothing of the user's but his thresholds.
#pragma once

#include <string>

namespace tvr {

// From the constructor to remove() this process and its engine see this root in place of the user's. One at a
// time, made and removed while there is one thread.
class trial_root {
public:
    // Also clears away what trials have left that were killed.
    trial_root();
    ~trial_root() { remove(); }
    trial_root(const trial_root&) = delete;
    trial_root& operator=(const trial_root&) = delete;

    [[nodiscard]] bool made() const noexcept { return !m_path.empty(); }
    // As the system writes it, without a separator at the end.
    [[nodiscard]] const std::string& path() const noexcept { return m_path; }

    // Starts the engine and waits until it is there. From then on remove() finds it for certain: an engine
    // that is just coming up can't be found.
    [[nodiscard]] bool start_engine() const;
    // Ends the engine, removes the root, and goes back to the user's.
    void remove();

private:
    std::string m_path;
    std::string m_root_before; // of this process; empty if there was none
};

} // namespace tvr
