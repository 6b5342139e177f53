#include "tools/engine_pause.h"

#include "platform/clock.h"
#include "platform/process.h"
#include "signal/identity.h"
#include "tools/engine_view.h"

namespace tvr {

namespace {

constexpr std::uint32_t end_patience = 30000; // milliseconds
constexpr std::uint32_t poll_pause = 10;

} // namespace

std::string engine_pause::begin() {
    if (const std::uint32_t process = engine_view::process_id())
        return "the engine runs as process " + std::to_string(process) + "; \"tvrctl stop\" ends it";
    if (!m_presence.create(server_class, server_title))
        return "the engine is starting, or another command keeps it away";
    // An engine that nobody finds any more still works for a second.
    const std::uint32_t last = m_presence.previous_process();
    const std::uint32_t start = platform::tick_count();
    while (last != 0 && last != platform::current_process_id() && platform::process_exists(last)) {
        if (platform::tick_count() - start > end_patience)
            return "process " + std::to_string(last) + ", which was the engine, doesn't end";
        platform::sleep_for(poll_pause);
    }
    return {};
}

} // namespace tvr
