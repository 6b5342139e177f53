#include "common/profiler.h"

#include "common/logger.h"

namespace tvr {

namespace {

constexpr std::uint32_t slow = 100; // milliseconds

} // namespace

profiler::profiler(std::string_view name, bool mark_at_end, tick_source ticks)
    : m_ticks(ticks), m_last_tick(ticks()), m_mark_at_end(mark_at_end), m_name(name) {}

profiler::~profiler() {
    if (m_mark_at_end)
        mark();
}

void profiler::mark() {
    const std::uint32_t elapsed = m_ticks() - m_last_tick;
    TVR_LOG(profiler_log, "%s[%s:%d] %d", elapsed >= slow ? "!!!" : "",
            m_name.empty() ? "unknown" : m_name.c_str(), static_cast<int>(m_number),
            static_cast<int>(elapsed));
    m_last_tick = m_ticks();
    ++m_number;
}

} // namespace tvr
