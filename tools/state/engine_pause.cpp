#include "tools/state/engine_pause.h"

#include <utility>

#include "client/user_folder.h"
#include "platform/process.h"
#include "signal/identity.h"
#include "tools/state/engine_view.h"

namespace tvr {

namespace {

constexpr unsigned least_handles =
    16; // so that no file counts as missing or damaged that only can't be opened

} // namespace

std::string engine_pause::begin() {
    if (const std::uint32_t process = engine_view::process_id())
        return "the engine runs as process " + std::to_string(process) + "; \"tvrctl stop\" ends it";
    if (!platform::reserve_handles(least_handles))
        return "fewer than " + std::to_string(least_handles) + " files can be open at a time";
    if (!m_presence.create(server_class, server_title))
        return "the engine is starting, or another command keeps it away";
    const std::uint32_t last = m_presence.previous_process();
    if (last != 0 && last != platform::current_process_id() && !engine_view::wait_for_end(last))
        return "process " + std::to_string(last) + ", which was the engine, doesn't end";
    return {};
}

std::string engine_pause::begin(std::string& working) {
    user_folder folder = make_user_folder();
    working = std::move(folder.path);
    return working.empty() ? folder.error : begin();
}

} // namespace tvr
