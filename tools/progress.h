// Tells the user how far long work is: a bar on a terminal, elsewhere a line now and then once it has taken
// two seconds.
#pragma once

#include <cstdint>
#include <string>

namespace tvr {

// Writes to standard error. One thread at a time.
class progress {
public:
    progress(std::string what, bool quiet);
    ~progress(); // takes the bar away

    // `note` is shown after the bar: "1234 messages".
    void show(std::uint64_t done, std::uint64_t total, const std::string& note);
    void clear(); // takes the bar away until the next show(), so that a line can be written

private:
    std::string m_what;
    bool m_quiet;
    bool m_terminal;
    bool m_visible = false;
    std::uint32_t m_start;    // tick count
    std::uint32_t m_last = 0; // the same of the last drawing
    unsigned m_quarter = 0;   // of the work, already told
};

} // namespace tvr
