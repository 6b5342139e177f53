// A named stopwatch that writes the time between two marks to profiler.log.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/clock.h"

namespace tvr {

// Belongs to one thread. Its resolution is that of the tick counter. A line begins with "!!!" from 100 ms on,
// so that a text search finds the slow intervals.
class profiler {
public:
    using tick_source = std::uint32_t (*)() noexcept; // milliseconds, may wrap

    // The first interval begins here. An empty name prints as "unknown". `mark_at_end`: the destructor makes
    // a last mark.
    profiler(std::string_view name, bool mark_at_end, tick_source ticks = platform::tick_count);
    ~profiler();
    profiler(const profiler&) = delete;
    profiler& operator=(const profiler&) = delete;

    // Writes the interval's number, from 0 on, and its milliseconds, and begins the next one; the time that
    // the writing takes belongs to neither.
    void mark();

private:
    tick_source m_ticks;
    std::uint32_t m_last_tick;
    bool m_mark_at_end;
    std::uint32_t m_number = 0;
    std::string m_name;
};

} // namespace tvr
